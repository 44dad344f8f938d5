#include "ControlFrameCounter.h"

#include <algorithm>

namespace nimbrel {

namespace {

// The length of a frame's header once its first two bytes are known.
qsizetype headerLength(const QByteArray& header)
{
    const quint8 second = static_cast<quint8>(header[1]);
    const quint8 length = second & 0x7F;
    return 2 + (length == 126 ? 2 : length == 127 ? 8 : 0) + ((second & 0x80) ? 4 : 0);
}

quint64 payloadLength(const QByteArray& header)
{
    const quint8 length = static_cast<quint8>(header[1]) & 0x7F;
    if (length < 126)
        return length;
    const int bytes = length == 126 ? 2 : 8;
    quint64 value = 0;
    for (int i = 0; i < bytes; ++i)
        value = (value << 8) | static_cast<quint8>(header[2 + i]);
    return value;
}

} // namespace

int ControlFrameCounter::feed(const QByteArray& bytes)
{
    int control = 0;
    qsizetype position = 0;
    while (position < bytes.size()) {
        if (m_payloadToSkip > 0) {
            const qsizetype skipped = static_cast<qsizetype>(
                std::min<quint64>(m_payloadToSkip, static_cast<quint64>(bytes.size() - position)));
            m_payloadToSkip -= static_cast<quint64>(skipped);
            position += skipped;
            continue;
        }
        m_header.append(bytes[position++]);
        if (m_header.size() < 2 || m_header.size() < headerLength(m_header))
            continue;
        if (static_cast<quint8>(m_header[0]) & 0x08)
            ++control;
        m_payloadToSkip = payloadLength(m_header);
        m_header.clear();
    }
    return control;
}

} // namespace nimbrel
