#pragma once

#include <QString>

namespace nimbrel {

// A failure of the engine link; text() is what callers show, log or send on.
class AppServerError {
public:
    enum class Kind { RequestTimedOut, Server, Terminated, CodexNotFound, NotReady, InvalidResponse };

    static AppServerError requestTimedOut(const QString& method) { return {Kind::RequestTimedOut, method, 0}; }
    static AppServerError server(const QString& message) { return {Kind::Server, message, 0}; }
    static AppServerError terminated(int exitCode) { return {Kind::Terminated, {}, exitCode}; }
    static AppServerError codexNotFound() { return {Kind::CodexNotFound, {}, 0}; }
    static AppServerError notReady() { return {Kind::NotReady, {}, 0}; }
    static AppServerError invalidResponse() { return {Kind::InvalidResponse, {}, 0}; }

    Kind kind() const { return m_kind; }
    int exitCode() const { return m_exitCode; }
    QString text() const;

    friend bool operator==(const AppServerError&, const AppServerError&) = default;

private:
    AppServerError(Kind kind, QString payload, int exitCode)
        : m_kind(kind), m_payload(std::move(payload)), m_exitCode(exitCode)
    {
    }

    Kind m_kind;
    QString m_payload;
    int m_exitCode;
};

} // namespace nimbrel
