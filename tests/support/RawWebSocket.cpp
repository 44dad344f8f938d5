#include "RawWebSocket.h"

#include "peer/PeerLink.h"
#include "support/EventLoop.h"

#include <QRegularExpression>
#include <QUrl>

namespace nimbrel::test {

RawWebSocket::RawWebSocket(quint16 port, const QHostAddress& from)
{
    m_socket.setSslConfiguration(PeerLink::tlsConfiguration());
    QObject::connect(&m_socket, &QSslSocket::sslErrors, &m_socket,
                     [this] { m_socket.ignoreSslErrors(); });
    if (!from.isNull())
        m_socket.bind(from);
    m_socket.connectToHostEncrypted(from.protocol() == QAbstractSocket::IPv6Protocol
                                        ? QStringLiteral("::1")
                                        : QStringLiteral("127.0.0.1"),
                                    port);
    waitFor([&] {
        return m_socket.isEncrypted() || m_socket.state() == QAbstractSocket::UnconnectedState;
    });
}

int RawWebSocket::upgrade(const QString& name, bool withUpgradeHeaders,
                          const QByteArray& extraHeaders)
{
    QByteArray request =
        "GET /sarvane?name=" + QUrl::toPercentEncoding(name) + " HTTP/1.1\r\nHost: 127.0.0.1\r\n";
    if (withUpgradeHeaders)
        request += "Upgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Key: "
                   "dGhlIHNhbXBsZSBub25jZQ==\r\n"
                   "Sec-WebSocket-Version: 13\r\n";
    m_socket.write(request + extraHeaders + "\r\n");
    QByteArray response;
    waitFor([&] {
        response += m_socket.read(m_socket.bytesAvailable());
        return response.contains("\r\n\r\n") ||
               m_socket.state() == QAbstractSocket::UnconnectedState;
    });
    const qsizetype headerEnd = response.indexOf("\r\n\r\n");
    if (headerEnd < 0)
        return 0;
    m_buffer = response.mid(headerEnd + 4);
    m_upgraded = true;
    QObject::connect(&m_socket, &QIODevice::readyRead, [this] {
        if (m_reading)
            readFrames();
    });
    return response.split(' ').value(1).toInt();
}

QByteArray RawWebSocket::exchange(const QByteArray& request)
{
    m_socket.write(request);
    QByteArray response;
    const auto complete = [&] {
        const qsizetype headerEnd = response.indexOf("\r\n\r\n");
        if (headerEnd < 0)
            return false;
        const QRegularExpression length(QStringLiteral("Content-Length: (\\d+)"));
        const qsizetype body = request.startsWith("HEAD ")
                                   ? 0
                                   : length.match(QString::fromLatin1(response.left(headerEnd)))
                                         .captured(1)
                                         .toLongLong();
        return response.size() >= headerEnd + 4 + body;
    };
    waitFor([&] {
        response += m_socket.read(m_socket.bytesAvailable());
        return complete() || m_socket.state() == QAbstractSocket::UnconnectedState;
    });
    return complete() ? response : QByteArray();
}

void RawWebSocket::sendFrame(const QByteArray& payload, quint8 opcode)
{
    QByteArray frame;
    frame.append(static_cast<char>(0x80 | opcode));
    const quint64 length = static_cast<quint64>(payload.size());
    if (length < 126) {
        frame.append(static_cast<char>(0x80 | length));
    } else if (length < 65536) {
        frame.append(static_cast<char>(0x80 | 126));
        frame.append(static_cast<char>(length >> 8)).append(static_cast<char>(length & 0xFF));
    } else {
        frame.append(static_cast<char>(0x80 | 127));
        for (int shift = 56; shift >= 0; shift -= 8)
            frame.append(static_cast<char>((length >> shift) & 0xFF));
    }
    frame.append(QByteArray(4, '\0')); // a zero mask leaves the payload as it is
    m_socket.write(frame + payload);
}

void RawWebSocket::sendFrameHeader(quint64 length)
{
    QByteArray header;
    header.append(static_cast<char>(0x81)).append(static_cast<char>(0x80 | 127));
    for (int shift = 56; shift >= 0; shift -= 8)
        header.append(static_cast<char>((length >> shift) & 0xFF));
    m_socket.write(header + QByteArray(4, '\0'));
}

void RawWebSocket::stopReading()
{
    // Nothing here reads again, Qt takes a byte at most, and the kernel holds little.
    m_reading = false;
    m_socket.setReadBufferSize(1);
    m_socket.setSocketOption(QAbstractSocket::ReceiveBufferSizeSocketOption, 16 * 1024);
}

void RawWebSocket::resumeReading()
{
    m_reading = true;
    m_socket.setReadBufferSize(0);
    if (m_upgraded)
        readFrames();
}

std::optional<int> RawWebSocket::closeCode()
{
    readFrames();
    return m_closeCode;
}

void RawWebSocket::readFrames()
{
    if (m_socket.readBufferSize() == 1)
        return; // not reading
    m_buffer += m_socket.readAll();
    // Server frames are not masked and, here, not fragmented; text messages and the close frame
    // are kept.
    for (;;) {
        if (m_buffer.size() < 2)
            return;
        const auto byte = [&](qsizetype i) { return static_cast<quint8>(m_buffer[i]); };
        const quint8 opcode = byte(0) & 0x0F;
        quint64 length = byte(1) & 0x7F;
        qsizetype offset = 2;
        if (length == 126) {
            if (m_buffer.size() < 4)
                return;
            length = (quint64(byte(2)) << 8) | byte(3);
            offset = 4;
        } else if (length == 127) {
            if (m_buffer.size() < 10)
                return;
            length = 0;
            for (int i = 0; i < 8; ++i)
                length = (length << 8) | byte(2 + i);
            offset = 10;
        }
        if (static_cast<quint64>(m_buffer.size() - offset) < length)
            return;
        const QByteArray payload = m_buffer.mid(offset, static_cast<qsizetype>(length));
        m_buffer.remove(0, offset + static_cast<qsizetype>(length));
        if (opcode == 0x1)
            m_texts.append(payload);
        if (opcode == 0x8 && payload.size() >= 2)
            m_closeCode = (static_cast<quint8>(payload[0]) << 8) | static_cast<quint8>(payload[1]);
    }
}

} // namespace nimbrel::test
