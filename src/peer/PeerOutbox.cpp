#include "PeerOutbox.h"

#include <algorithm>
#include <cstring>

namespace nimbrel {

void PeerOutbox::push(const QByteArray& message)
{
    const qsizetype needed = 4 + message.size();
    if (m_blocks.empty() || m_blocks.back().capacity() - m_blocks.back().size() < needed) {
        m_blocks.emplace_back();
        m_blocks.back().reserve(std::max(blockBytes, needed));
    }
    const auto length = static_cast<quint32>(message.size());
    char header[4];
    std::memcpy(header, &length, sizeof(header));
    m_blocks.back().append(header, 4).append(message);
    m_bytes += message.size();
    ++m_messages;
}

QString PeerOutbox::popText()
{
    const QByteArray& block = m_blocks.front();
    quint32 length;
    std::memcpy(&length, block.constData() + m_readOffset, sizeof(length));
    const auto size = static_cast<qsizetype>(length);
    QString text = QString::fromUtf8(block.constData() + m_readOffset + 4, size);
    m_readOffset += 4 + size;
    if (m_readOffset >= block.size()) {
        m_blocks.pop_front();
        m_readOffset = 0;
    }
    m_bytes -= size;
    --m_messages;
    return text;
}

void PeerOutbox::clear()
{
    m_blocks.clear();
    m_readOffset = 0;
    m_bytes = 0;
    m_messages = 0;
}

} // namespace nimbrel
