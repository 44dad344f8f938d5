#include "PeerOutbox.h"

#include <algorithm>

namespace nimbrel {

void PeerOutbox::push(const QByteArray& message)
{
    const qsizetype size = message.size();
    if (m_blocks.empty() || m_blocks.back().capacity() - m_blocks.back().size() < size) {
        m_blocks.emplace_back();
        m_blocks.back().reserve(std::max(blockBytes, size));
    }
    m_blocks.back().append(message);
    m_lengths.push_back(size);
    m_bytes += size;
}

QString PeerOutbox::popText()
{
    const QByteArray& block = m_blocks.front();
    const qsizetype size = m_lengths.front();
    QString text = QString::fromUtf8(block.constData() + m_readOffset, size);
    m_lengths.pop_front();
    m_readOffset += size;
    m_bytes -= size;
    if (m_lengths.empty()) {
        clear();
    } else if (m_readOffset >= block.size() && m_blocks.size() > 1) {
        m_blocks.pop_front();
        m_readOffset = 0;
    }
    return text;
}

void PeerOutbox::clear()
{
    m_blocks.clear();
    m_lengths.clear();
    m_readOffset = 0;
    m_bytes = 0;
}

} // namespace nimbrel
