#pragma once

#include "peer/BridgeMessage.h"
#include "peer/DeviceIdentity.h"

#include <QTemporaryDir>
#include <QWebSocket>

#include <functional>
#include <memory>
#include <vector>

namespace nimbrel::test {

// A phone of the test's own: a WebSocket client with its own device identity, connecting under a
// transport name the test chooses, keeping every message it receives.
class TestPeer {
public:
    TestPeer(quint16 port, const QString& transportName,
             const QString& helloName = QStringLiteral("Test Phone"));
    // Another connection of the same device (same key and id).
    TestPeer(quint16 port, const QString& transportName, const TestPeer& sameDevice);

    bool waitUntilConnected();
    void send(const BridgeMessage& message);
    void sendRaw(const QByteArray& bytes);
    void sendHello();
    void request(const QString& id, const QString& method,
                 std::optional<JSONValue> body = JSONValue::object({}));
    void close();

    // The first message received at or after index `from` that matches, waiting for it.
    std::optional<BridgeMessage> waitFor(BridgeMessageKind kind,
                                         const std::optional<QString>& method = {},
                                         std::size_t from = 0);
    std::size_t count(BridgeMessageKind kind, const std::optional<QString>& method = {}) const;

    // When set, every text message goes here instead of into `received` (for floods).
    std::function<void(const QString& text)> onText;
    std::vector<BridgeMessage> received;
    QStringList receivedText; // the same messages as they came over the wire
    std::optional<HelloPayload> bridgeHello;
    std::optional<HelloPayload> localHello;
    std::shared_ptr<const DeviceIdentity> identity;
    QString helloName;

private:
    void open(quint16 port, const QString& transportName);

    std::shared_ptr<QTemporaryDir> m_state;
    std::unique_ptr<QWebSocket> m_socket;
};

} // namespace nimbrel::test
