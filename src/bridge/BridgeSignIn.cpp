// Signing the Codex account in from this computer: with ChatGPT in the browser here, with a code
// entered on another device, or with an API key. Peers cannot do this: the allow-list keeps them
// out of account/login.
#include "bridge/BridgeController.h"

#include "platform/TextFormatting.h"
#include "workspace/SessionParsers.h"

#include <QPointer>
#include <QUrl>

namespace nimbrel {

void BridgeController::startSignIn(const QString& type)
{
    if (type != QLatin1String("chatgpt") && type != QLatin1String("chatgptDeviceCode"))
        return;
    requestSignIn(type, JSONValue::object({{"type", type}}));
}

// The key is written to Codex's input once and kept nowhere: not in the log, the state or a file.
void BridgeController::signInWithAPIKey(const QString& key)
{
    const QString trimmed = key.trimmed();
    if (trimmed.isEmpty())
        return;
    requestSignIn(QStringLiteral("apiKey"),
                  JSONValue::object({{"type", "apiKey"}, {"apiKey", trimmed}}));
}

void BridgeController::cancelSignIn()
{
    const QString loginID = m_signIn.loginID;
    setSignIn({});
    if (!loginID.isEmpty() && m_appServerReady)
        m_appServer->request(QStringLiteral("account/login/cancel"),
                             JSONValue::object({{"loginId", loginID}}),
                             [](const AppServerClient::RequestResult&) {});
}

void BridgeController::requestSignIn(const QString& type, const JSONValue& params)
{
    if (!m_appServerReady)
        return failSignIn(type, m_appServerStatus);
    setSignIn({SignInState::Phase::Starting, type, {}, {}, {}, {}});
    QPointer<BridgeController> self(this);
    m_appServer->request(QStringLiteral("account/login/start"), params,
                         [self, type](const AppServerClient::RequestResult& outcome) {
                             if (self)
                                 self->handleSignInReply(type, outcome);
                         });
}

namespace {

// Only a web page may be opened for signing in: the address is the engine's text.
bool isWebAddress(const QString& text)
{
    const QUrl url(text, QUrl::StrictMode);
    return url.isValid() && !url.host().isEmpty() &&
           (url.scheme() == QLatin1String("https") || url.scheme() == QLatin1String("http"));
}

} // namespace

void BridgeController::handleSignInReply(const QString& type,
                                         const AppServerClient::RequestResult& outcome)
{
    // A reply to an attempt the user has since cancelled or replaced changes nothing.
    if (m_signIn.phase != SignInState::Phase::Starting || m_signIn.type != type)
        return;
    if (!outcome.ok())
        return failSignIn(type, outcome.error().text());
    const JSONValue& result = outcome.value();
    SignInState waiting{SignInState::Phase::Waiting,
                        type,
                        stringAt(result, "loginId").value_or(QString()),
                        {},
                        {},
                        {}};
    if (type == QLatin1String("chatgpt")) {
        waiting.url = stringAt(result, "authUrl").value_or(QString());
    } else if (type == QLatin1String("chatgptDeviceCode")) {
        waiting.url = stringAt(result, "verificationUrl").value_or(QString());
        waiting.code = stringAt(result, "userCode").value_or(QString());
    }
    if (type != QLatin1String("apiKey") && waiting.url.isEmpty())
        return failSignIn(type, QStringLiteral("Codex gave no address to sign in at."));
    if (type != QLatin1String("apiKey") && !isWebAddress(waiting.url))
        return failSignIn(type, QStringLiteral("Codex gave an address to sign in at that is not a "
                                               "web address, so it is not opened."));
    setSignIn(waiting);
    appendLog(type == QLatin1String("chatgptDeviceCode")
                  ? QStringLiteral("To sign Codex in, open ") + loggableText(waiting.url) +
                        QStringLiteral(" on any device and enter the code ") +
                        loggableText(waiting.code) + QLatin1Char('.')
                  : QStringLiteral("Waiting for Codex to finish signing in."));
    if (type == QLatin1String("chatgpt"))
        emit signInAddressReady(waiting.url);
}

void BridgeController::handleSignInCompleted(const JSONValue& params)
{
    const std::optional<QString> loginID = stringAt(params, "loginId");
    // Another attempt's completion (one from a terminal, say) still means the account changed.
    const bool ours = !loginID || loginID->isEmpty() || m_signIn.loginID.isEmpty() ||
                      *loginID == m_signIn.loginID;
    const JSONValue* success = params.find("success");
    if (success && success->boolValue().value_or(false)) {
        if (ours)
            setSignIn({});
        appendLog(QStringLiteral("Codex signed in."));
        checkAccount();
        m_workspace->refreshUsage();
        return;
    }
    if (!ours || m_signIn.phase == SignInState::Phase::Idle)
        return;
    const QString error = stringAt(params, "error").value_or(QString());
    failSignIn(m_signIn.type, error.isEmpty() ? QStringLiteral("Codex could not sign in.") : error);
}

void BridgeController::failSignIn(const QString& type, const QString& error)
{
    setSignIn({SignInState::Phase::Failed, type, {}, {}, {}, error});
    appendLog(QStringLiteral("Signing in failed: ") + loggableText(error));
}

void BridgeController::setSignIn(SignInState state)
{
    if (m_signIn == state)
        return;
    m_signIn = std::move(state);
    emit signInChanged();
}

} // namespace nimbrel
