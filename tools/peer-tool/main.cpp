// nimbrel-peer: drives a Nimbrel Bridge from another process or computer, as a phone would.
// Every message it receives is printed on standard output as one JSON line, with the control
// characters in it escaped; progress and the pairing code go to standard error.
#include "peer/BridgeMessage.h"
#include "peer/DeviceIdentity.h"
#include "peer/PeerLink.h"
#include "platform/HostName.h"
#include "platform/Scheduler.h"
#include "platform/SecretStore.h"
#include "platform/StandardInputLines.h"
#include "platform/TextFormatting.h"
#include "platform/UserDefaults.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>

#include <algorithm>

#include <cstdio>

using namespace nimbrel;

namespace {

void say(const QString& line) { std::fprintf(stderr, "%s\n", qPrintable(line)); }

// The bridges this device has paired with: their device id, key and name, kept in its state, so
// that a bridge that later shows another key under the same id is caught.
class KnownBridges {
public:
    explicit KnownBridges(UserDefaults& defaults) : m_defaults(defaults) {}

    QStringList ids() const { return m_defaults.stringList(QStringLiteral("KnownBridgeIDs")); }
    std::optional<QString> publicKey(const QString& id) const { return m_defaults.string(key(id, "publicKey")); }
    std::optional<QString> name(const QString& id) const { return m_defaults.string(key(id, "name")); }

    void remember(const HelloPayload& hello)
    {
        QStringList known = ids();
        if (!known.contains(hello.deviceID))
            known.append(hello.deviceID);
        m_defaults.setValue(QStringLiteral("KnownBridgeIDs"), known);
        m_defaults.setValue(key(hello.deviceID, "publicKey"), hello.publicKey);
        m_defaults.setValue(key(hello.deviceID, "name"), hello.displayName);
    }

    bool forget(const QString& id)
    {
        QStringList known = ids();
        if (!known.removeAll(id))
            return false;
        m_defaults.setValue(QStringLiteral("KnownBridgeIDs"), known);
        m_defaults.remove(key(id, "publicKey"));
        m_defaults.remove(key(id, "name"));
        return true;
    }

    // Whether a service found nearby carries the name of a remembered bridge ("<name>-XXXX").
    bool isRemembered(const QString& serviceName) const
    {
        const QStringList known = ids();
        return std::any_of(known.begin(), known.end(), [&](const QString& id) {
            const std::optional<QString> remembered = name(id);
            return remembered && serviceName.startsWith(*remembered + QLatin1Char('-'));
        });
    }

private:
    static QString key(const QString& id, const char* field)
    {
        return QStringLiteral("KnownBridges/") + id + QLatin1Char('/') + QLatin1String(field);
    }

    UserDefaults& m_defaults;
};

// One connection to one bridge, and the commands given to it.
class PeerSession : public QObject {
public:
    PeerSession(std::shared_ptr<const DeviceIdentity> identity, const QString& name, Scheduler& scheduler,
                KnownBridges& known, std::optional<JSONValue> automaticAnswer)
        : m_identity(std::move(identity)), m_name(name), m_scheduler(scheduler), m_link(PeerLinkMode::Client, name, scheduler),
          m_known(known), m_automaticAnswer(std::move(automaticAnswer))
    {
        m_link.onConnected = [this](const QString& host) { connected(host); };
        m_link.onDisconnected = [this](const QString&) {
            if (m_stopped)
                return;
            say(QStringLiteral("Disconnected."));
            QCoreApplication::exit(m_oneShot ? 2 : 0);
        };
        m_link.onData = [this](const QByteArray& data, const QString&) { received(data); };
    }

    // One-shot: the command runs once connected, and its outcome ends the program.
    void runOnce(const QStringList& command)
    {
        m_oneShot = true;
        m_oneShotVerb = command.first();
        m_queued.append(command.join(QLatin1Char('\x1f')));
    }

    void connectTo(const QHostAddress& address, quint16 port)
    {
        say(QStringLiteral("Connecting to ") + address.toString() + QLatin1Char(':') + QString::number(port) + QChar(0x2026));
        m_link.connectTo(address, port, QStringLiteral("bridge"));
    }

    void connectToFirstFound()
    {
        say(QStringLiteral("Looking for a bridge nearby…"));
        QObject::connect(&m_link, &PeerLink::statusTextChanged, this, [this] {
            if (m_link.statusText().startsWith(QStringLiteral("Discovery failed")))
                say(m_link.statusText());
        });
        // A remembered bridge is taken at once; any other only when none has shown up for a while.
        QObject::connect(&m_link, &PeerLink::discoveredPeersChanged, this, [this] { chooseFound(false); });
        m_scheduler.schedule(this, preferRememberedSeconds, [this] { chooseFound(true); });
    }

    void chooseFound(bool takeAny)
    {
        if (m_connecting)
            return;
        const QStringList found = m_link.discoveredPeers();
        const auto remembered = std::find_if(found.begin(), found.end(), [&](const QString& name) { return m_known.isRemembered(name); });
        const QString chosen = remembered != found.end() ? *remembered : takeAny ? found.value(0) : QString();
        if (chosen.isEmpty())
            return;
        if (auto address = m_link.discoveredAddress(chosen)) {
            m_connecting = true;
            say(QStringLiteral("Found ") + loggableText(chosen) + QLatin1Char('.'));
            connectTo(address->first, address->second);
        }
    }

    void start() { m_link.start(); }

    // A command line: pair | call METHOD [JSON] | answer ID JSON [METHOD] | ping | quit.
    void command(const QStringList& words)
    {
        if (!m_bridgeHello) { // commands wait until the bridge has shown who it is
            m_queued.append(words.join(QLatin1Char('\x1f')));
            return;
        }
        const QString verb = words.value(0);
        if (verb == QLatin1String("pair")) {
            sendHello();
            send({bridgeProtocolVersion, BridgeMessageKind::PairingRequest, {}, {}, {}});
        } else if (verb == QLatin1String("call") && words.size() >= 2) {
            auto params = parseJSON(words.value(2, QStringLiteral("{}")));
            if (!params)
                return;
            m_lastCallID = QStringLiteral("nimbrel-peer-%1").arg(++m_nextCall);
            send({bridgeProtocolVersion, BridgeMessageKind::Request, m_lastCallID, words[1], *params});
        } else if (verb == QLatin1String("answer") && words.size() >= 3) {
            if (auto body = parseJSON(words[2]))
                send({bridgeProtocolVersion, BridgeMessageKind::ServerResponse, words[1],
                      words.size() > 3 ? std::optional(words[3]) : std::nullopt, *body});
        } else if (verb == QLatin1String("ping")) {
            send({bridgeProtocolVersion, BridgeMessageKind::Ping, QStringLiteral("ping-%1").arg(++m_nextCall), {}, {}});
        } else if (verb == QLatin1String("quit")) {
            QCoreApplication::exit(0);
        } else if (verb != QLatin1String("watch")) {
            say(QStringLiteral("Commands: pair, call METHOD [PARAMS-JSON], answer ID JSON [METHOD], ping, watch, quit."));
        }
    }

private:
    std::optional<JSONValue> parseJSON(const QString& text)
    {
        auto parsed = JSONValue::decode(text.toStdString());
        if (!parsed.ok()) {
            say(QStringLiteral("Not JSON: ") + parsed.error().message);
            if (m_oneShot)
                QCoreApplication::exit(64);
            return std::nullopt;
        }
        return parsed.value();
    }

    void stop(const QString& why, int exitCode)
    {
        say(why);
        m_stopped = true;
        QCoreApplication::exit(exitCode);
    }

    void send(const BridgeMessage& message)
    {
        if (auto error = m_link.send(encodeBridgeMessage(message).value(), m_host))
            say(QStringLiteral("Could not send: ") + *error);
    }

    void connected(const QString& host)
    {
        m_host = host;
        say(QStringLiteral("Connected."));
        auto hello = m_identity->makeHello(m_name);
        if (!hello.ok()) {
            say(QStringLiteral("Could not make a hello: ") + hello.error());
            QCoreApplication::exit(70);
            return;
        }
        m_localHello = hello.value();
    }

    // This device's signed hello goes only to a bridge that passed the checks, and only when it
    // is remembered or asked to pair: a hello given to anyone else could be replayed.
    void sendHello()
    {
        if (m_helloSent)
            return;
        m_helloSent = true;
        send({bridgeProtocolVersion, BridgeMessageKind::Hello, {}, {}, m_localHello->toBody()});
    }

    void received(const QByteArray& data)
    {
        if (m_stopped)
            return;
        // The bridge's bytes never reach the terminal as they are: its control characters, line
        // breaks and bidirectional controls are escaped. Within a JSON string an escape stands for
        // the same character, so a JSON line stays the same JSON.
        std::fprintf(stdout, "%s\n",
                     withEscapedControlCharacters(QString::fromUtf8(data)).toUtf8().constData());
        std::fflush(stdout);
        auto decoded = decodeBridgeMessage(std::string_view(data.constData(), static_cast<std::size_t>(data.size())));
        if (!decoded.ok())
            return;
        const BridgeMessage& message = decoded.value();
        switch (message.kind) {
        case BridgeMessageKind::Hello: {
            auto hello = message.body ? HelloPayload::fromBody(*message.body) : Result<HelloPayload, QString>(QStringLiteral("no body"));
            if (!hello.ok() || !verify(hello.value())) {
                say(QStringLiteral("The bridge's hello did not verify."));
                return;
            }
            // The TLS certificate must carry the key that signed the hello, or someone sits between.
            if (QString::fromLatin1(m_link.peerPublicKey(m_host).toBase64()) != hello.value().publicKey)
                return stop(QStringLiteral("The bridge's certificate does not match its hello."), 3);
            const std::optional<QString> rememberedKey = m_known.publicKey(hello.value().deviceID);
            if (rememberedKey && *rememberedKey != hello.value().publicKey)
                return stop(QStringLiteral("This bridge's key changed since pairing.\nIf you trust "
                                           "it again, forget it first: "
                                           "nimbrel-peer forget-bridge ") +
                                withEscapedControlCharacters(hello.value().deviceID),
                            4);
            m_bridgeHello = hello.value();
            say(QStringLiteral("Pairing code: ") + pairingCode(*m_localHello, hello.value()));
            if (rememberedKey)
                sendHello();
            for (const QString& queued : std::exchange(m_queued, {}))
                command(queued.split(QLatin1Char('\x1f')));
            break;
        }
        case BridgeMessageKind::PairingAccepted:
            if (m_bridgeHello)
                m_known.remember(*m_bridgeHello);
            say(QStringLiteral("Paired."));
            if (m_oneShotVerb == QLatin1String("pair"))
                QCoreApplication::exit(0);
            break;
        case BridgeMessageKind::PairingRejected:
            say(QStringLiteral("Pairing rejected."));
            if (m_oneShot)
                QCoreApplication::exit(1);
            break;
        case BridgeMessageKind::Response:
        case BridgeMessageKind::Error:
            if (m_oneShot && message.id == m_lastCallID)
                QCoreApplication::exit(message.kind == BridgeMessageKind::Response ? 0 : 1);
            break;
        case BridgeMessageKind::ServerRequest:
            if (m_automaticAnswer && message.id)
                send({bridgeProtocolVersion, BridgeMessageKind::ServerResponse, message.id, message.method, *m_automaticAnswer});
            break;
        default: break;
        }
    }

    static constexpr double preferRememberedSeconds = 2;

    std::shared_ptr<const DeviceIdentity> m_identity;
    QString m_name;
    Scheduler& m_scheduler;
    PeerLink m_link;
    KnownBridges& m_known;
    std::optional<JSONValue> m_automaticAnswer;
    std::optional<HelloPayload> m_localHello;
    std::optional<HelloPayload> m_bridgeHello;
    QString m_host;
    QStringList m_queued;
    QString m_lastCallID;
    QString m_oneShotVerb;
    int m_nextCall = 0;
    bool m_connecting = false;
    bool m_oneShot = false;
    bool m_stopped = false;
    bool m_helloSent = false;
};

// The words of a typed command. The JSON of call and answer may hold blanks: after the verb and
// the id or method, the rest is one word, except that answer's last word is its method when the
// JSON is whole without it.
QStringList commandWords(const QString& line)
{
    QStringList words = line.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    const QString verb = words.value(0);
    if (words.size() <= 3 || (verb != QLatin1String("call") && verb != QLatin1String("answer")))
        return words;
    const QString rest = QStringList(words.mid(2)).join(QLatin1Char(' '));
    if (verb == QLatin1String("answer") && !JSONValue::decode(rest.toStdString()).ok()) {
        const QString json = QStringList(words.mid(2, words.size() - 3)).join(QLatin1Char(' '));
        return QStringList{verb, words[1], json, words.last()};
    }
    return QStringList{verb, words[1], rest};
}

QString defaultStateFolder()
{
    QString data = qEnvironmentVariable("XDG_DATA_HOME");
    if (data.isEmpty())
        data = QDir::homePath() + QStringLiteral("/.local/share");
    return data + QStringLiteral("/nimbrel-peer");
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("nimbrel-peer"));
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Drives a Nimbrel Bridge as a phone would. Without a command, reads commands line by line from "
        "standard input: pair, call METHOD [PARAMS-JSON], answer ID JSON [METHOD], ping, quit."));
    parser.addHelpOption();
    parser.addOptions({
        {QStringLiteral("host"), QStringLiteral("Address of the bridge; without it, the first one found nearby."), QStringLiteral("address")},
        {QStringLiteral("port"), QStringLiteral("Port of the bridge (48215)."), QStringLiteral("port"), QStringLiteral("48215")},
        {QStringLiteral("name"), QStringLiteral("This device's name."), QStringLiteral("name")},
        {QStringLiteral("state"), QStringLiteral("Folder for this device's key and id."), QStringLiteral("folder")},
        {QStringLiteral("answer"), QStringLiteral("Answer every approval (serverRequest) with this JSON body, "
                                                  "for example {\"decision\":\"accept\"}."), QStringLiteral("json")},
    });
    parser.addPositionalArgument(QStringLiteral("command"),
                                 QStringLiteral("pair | call METHOD [PARAMS-JSON] | watch | forget-bridge ID"));
    parser.process(app);

    const QString state = parser.isSet(QStringLiteral("state")) ? parser.value(QStringLiteral("state")) : defaultStateFolder();
    QDir().mkpath(state);
    SettingsUserDefaults defaults(state + QStringLiteral("/defaults.ini"));
    auto identity = DeviceIdentity::create(SecretStore(state + QStringLiteral("/secrets")), defaults);
    if (!identity.ok()) {
        say(QStringLiteral("No device identity: ") + identity.error());
        return 70;
    }
    KnownBridges known(defaults);
    const QStringList command = parser.positionalArguments();
    if (command.value(0) == QLatin1String("forget-bridge")) {
        if (!known.forget(command.value(1))) {
            say(QStringLiteral("No remembered bridge has the id ") + loggableText(command.value(1)) + QLatin1Char('.'));
            return 1;
        }
        say(QStringLiteral("Forgot bridge ") + command.value(1) + QLatin1Char('.'));
        return 0;
    }
    std::optional<JSONValue> answer;
    if (parser.isSet(QStringLiteral("answer"))) {
        auto parsed = JSONValue::decode(parser.value(QStringLiteral("answer")).toStdString());
        if (!parsed.ok()) {
            say(QStringLiteral("--answer is not JSON: ") + parsed.error().message);
            return 64;
        }
        answer = parsed.value();
    }

    SystemScheduler scheduler;
    const QString name = parser.isSet(QStringLiteral("name")) ? parser.value(QStringLiteral("name"))
                                                             : hostDisplayName() + QStringLiteral(" peer");
    PeerSession session(identity.value(), name, scheduler, known, answer);
    if (!command.isEmpty())
        session.runOnce(command);
    session.start();
    if (parser.isSet(QStringLiteral("host")))
        session.connectTo(QHostAddress(parser.value(QStringLiteral("host"))), static_cast<quint16>(parser.value(QStringLiteral("port")).toUInt()));
    else
        session.connectToFirstFound();

    if (command.isEmpty()) {
        auto* input = new StandardInputLines(&app);
        QObject::connect(input, &StandardInputLines::lineRead, [&](const QString& line) {
            session.command(commandWords(line));
        });
    }
    return app.exec();
}
