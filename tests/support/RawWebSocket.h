#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QSslSocket>

#include <optional>

namespace nimbrel::test {

// A WebSocket client written by hand over TLS, for what a well-behaved client library will not do:
// forged or refused upgrades, frames that lie about their size, a reader that stops reading, or a
// connection from another local address.
class RawWebSocket {
public:
    // Connects and finishes TLS; binds to `from` first when it is given (to ::1 from an IPv6
    // address, to 127.0.0.1 otherwise).
    RawWebSocket(quint16 port, const QHostAddress& from = {});

    bool encrypted() const { return m_socket.isEncrypted(); }
    // Sends an upgrade request for the name (percent-encoded here); withUpgradeHeaders false sends
    // the bare GET; extraHeaders are whole lines, each ending in CRLF. Returns the HTTP status the
    // server answered with, or 0 when it closed first.
    int upgrade(const QString& name, bool withUpgradeHeaders = true,
                const QByteArray& extraHeaders = {});
    // Sends a whole HTTP request and returns the response: its head, and the body its
    // Content-Length announces (none after HEAD); empty when the server closed first.
    QByteArray exchange(const QByteArray& request);
    // One masked frame: opcode 0x1 text, 0x8 close, ...
    void sendFrame(const QByteArray& payload, quint8 opcode = 0x1);
    void sendText(const QByteArray& message) { sendFrame(message, 0x1); }
    // Only the header of a masked text frame announcing `length` bytes.
    void sendFrameHeader(quint64 length);
    void sendBytes(const QByteArray& bytes) { m_socket.write(bytes); }
    // Stops taking data from the network for good, until resumed: neither this class nor Qt reads,
    // the kernel's small receive buffer fills, then the sender's.
    void stopReading();
    void resumeReading();
    // The code of the close frame received, once one has come.
    std::optional<int> closeCode();
    // The text messages received since the upgrade (unfragmented ones).
    const QList<QByteArray>& texts()
    {
        readFrames();
        return m_texts;
    }
    bool isClosed() const { return m_socket.state() == QAbstractSocket::UnconnectedState; }
    // What the server sent on a connection that never upgraded, all of it so far.
    QByteArray received()
    {
        m_received += m_socket.readAll();
        return m_received;
    }

private:
    void readFrames();

    QSslSocket m_socket;
    QByteArray m_buffer;
    QByteArray m_received;
    bool m_upgraded = false;
    bool m_reading = true;
    std::optional<int> m_closeCode;
    QList<QByteArray> m_texts;
};

} // namespace nimbrel::test
