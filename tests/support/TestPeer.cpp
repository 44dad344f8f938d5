#include "TestPeer.h"

#include "peer/PeerLink.h"
#include "support/EventLoop.h"

#include <QSslConfiguration>

namespace nimbrel::test {

TestPeer::TestPeer(quint16 port, const QString& transportName, const QString& name)
    : helloName(name)
    , m_state(std::make_shared<QTemporaryDir>())
{
    MemoryUserDefaults defaults;
    identity = DeviceIdentity::create(SecretStore(m_state->filePath("secrets")), defaults).value();
    open(port, transportName);
}

TestPeer::TestPeer(quint16 port, const QString& transportName, const TestPeer& sameDevice)
    : identity(sameDevice.identity)
    , helloName(sameDevice.helloName)
    , m_state(sameDevice.m_state)
{
    open(port, transportName);
}

void TestPeer::open(quint16 port, const QString& transportName)
{
    m_socket = std::make_unique<QWebSocket>();
    const QSslConfiguration tls = PeerLink::tlsConfiguration();
    m_socket->setSslConfiguration(tls);
    QObject::connect(m_socket.get(), &QWebSocket::sslErrors, m_socket.get(),
                     [s = m_socket.get()] { s->ignoreSslErrors(); });
    QObject::connect(m_socket.get(), &QWebSocket::textMessageReceived, [this](const QString& text) {
        if (onText)
            return onText(text);
        receivedText.append(text);
        auto message = decodeBridgeMessage(text.toStdString());
        if (!message.ok())
            return;
        if (message.value().kind == BridgeMessageKind::Hello && message.value().body)
            if (auto hello = HelloPayload::fromBody(*message.value().body); hello.ok())
                bridgeHello = hello.value();
        received.push_back(message.value());
    });
    m_socket->open(QUrl(QStringLiteral("wss://127.0.0.1:%1/sarvane?name=%2")
                            .arg(port)
                            .arg(QString::fromLatin1(QUrl::toPercentEncoding(transportName)))));
}

bool TestPeer::waitUntilConnected()
{
    return test::waitFor([&] { return m_socket->state() == QAbstractSocket::ConnectedState; });
}

void TestPeer::send(const BridgeMessage& message)
{
    sendRaw(encodeBridgeMessage(message).value());
}

void TestPeer::sendRaw(const QByteArray& bytes)
{
    m_socket->sendTextMessage(QString::fromUtf8(bytes));
}

void TestPeer::sendHello()
{
    localHello = identity->makeHello(helloName).value();
    send({bridgeProtocolVersion, BridgeMessageKind::Hello, {}, {}, localHello->toBody()});
}

void TestPeer::request(const QString& id, const QString& method, std::optional<JSONValue> body)
{
    send({bridgeProtocolVersion, BridgeMessageKind::Request, id, method, std::move(body)});
}

void TestPeer::close()
{
    m_socket->close();
    test::waitFor([&] { return m_socket->state() == QAbstractSocket::UnconnectedState; });
}

std::optional<BridgeMessage>
TestPeer::waitFor(BridgeMessageKind kind, const std::optional<QString>& method, std::size_t from)
{
    std::optional<BridgeMessage> found;
    test::waitFor([&] {
        for (std::size_t i = from; i < received.size(); ++i)
            if (received[i].kind == kind && (!method || received[i].method == method)) {
                found = received[i];
                return true;
            }
        return false;
    });
    return found;
}

std::size_t TestPeer::count(BridgeMessageKind kind, const std::optional<QString>& method) const
{
    return static_cast<std::size_t>(
        std::count_if(received.begin(), received.end(), [&](const BridgeMessage& m) {
            return m.kind == kind && (!method || m.method == method);
        }));
}

} // namespace nimbrel::test
