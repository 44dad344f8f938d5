#pragma once

#include <QByteArray>

namespace nimbrel {

// Follows the frames a WebSocket client sends, given the bytes in order in any pieces, and counts
// the control frames among them (ping, pong, close): what the link answers on its own.
class ControlFrameCounter {
public:
    // The control frames whose headers end in bytes.
    int feed(const QByteArray& bytes);

private:
    QByteArray m_header;         // of the frame being read, at most 14 bytes
    quint64 m_payloadToSkip = 0; // of the frame whose header was read
};

} // namespace nimbrel
