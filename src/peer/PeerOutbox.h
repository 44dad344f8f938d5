#pragma once

#include <QByteArray>
#include <QString>

#include <deque>

namespace nimbrel {

// Messages waiting for one peer, first in first out, packed into shared blocks so that many small
// messages cost their bytes and little more.
class PeerOutbox {
public:
    static constexpr qsizetype blockBytes = 64 * 1024;

    void push(const QByteArray& message);
    // The oldest message, taken out as text (messages are UTF-8); call only when not empty.
    QString popText();
    void clear();

    bool empty() const { return m_lengths.empty(); }
    // The bytes of the messages waiting, without the packing.
    qint64 bytes() const { return m_bytes; }

private:
    std::deque<QByteArray> m_blocks; // messages back to back
    std::deque<qsizetype> m_lengths; // of each message, oldest first
    qsizetype m_readOffset = 0;      // into the first block
    qint64 m_bytes = 0;
};

} // namespace nimbrel
