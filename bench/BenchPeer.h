#pragma once

#include "peer/BridgeMessage.h"
#include "peer/DeviceIdentity.h"
#include "peer/PeerLink.h"
#include "platform/SecretStore.h"
#include "platform/UserDefaults.h"

#include <QElapsedTimer>
#include <QSslConfiguration>
#include <QWebSocket>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>

namespace nimbrel {

// A phone of the benchmark's own.
struct BenchPeer {
    QWebSocket socket;
    std::shared_ptr<const DeviceIdentity> identity;
    std::optional<HelloPayload> bridgeHello, hello;
    std::function<void(const BridgeMessage&)> onMessage;
    std::atomic<long> events = 0;
    QElapsedTimer clock;
    double lastEventAt = 0;

    BenchPeer(const QString& folder, quint16 port, const QString& name)
    {
        MemoryUserDefaults defaults;
        identity = DeviceIdentity::create(SecretStore(folder + "/secrets"), defaults).value();
        const QSslConfiguration tls = PeerLink::tlsConfiguration();
        socket.setSslConfiguration(tls);
        QObject::connect(&socket, &QWebSocket::sslErrors, [this] { socket.ignoreSslErrors(); });
        QObject::connect(&socket, &QWebSocket::textMessageReceived, [this](const QString& text) {
            const auto message = decodeBridgeMessage(text.toStdString());
            if (!message.ok())
                return;
            if (message.value().kind == BridgeMessageKind::Hello)
                bridgeHello = HelloPayload::fromBody(*message.value().body).value();
            if (message.value().kind == BridgeMessageKind::Event &&
                message.value().method == QStringLiteral("item/agentMessage/delta")) {
                ++events;
                lastEventAt = static_cast<double>(clock.nsecsElapsed()) / 1e9;
            }
            if (onMessage)
                onMessage(message.value());
        });
        socket.open(QUrl(QStringLiteral("wss://127.0.0.1:%1/sarvane?name=%2").arg(port).arg(name)));
    }

    void send(const BridgeMessage& message)
    {
        socket.sendTextMessage(QString::fromUtf8(encodeBridgeMessage(message).value()));
    }
};

} // namespace nimbrel
