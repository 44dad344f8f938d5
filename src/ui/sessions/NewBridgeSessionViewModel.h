#pragma once

#include "ui/sessions/configuration/NewSessionConfigurationViewModel.h"

#include <QObject>
#include <QUrl>
#include <QVariantMap>

namespace nimbrel {

class CodexWorkspace;

// The sheet that starts a session: a folder (blank for the home folder), an optional first task,
// and the model and thinking effort. Made afresh each time it opens, so every field starts empty.
class NewBridgeSessionViewModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QVariantMap texts READ texts CONSTANT)
    Q_PROPERTY(QString cwd READ cwd WRITE setCwd NOTIFY changed)
    Q_PROPERTY(QString prompt READ prompt WRITE setPrompt NOTIFY changed)
    Q_PROPERTY(QObject* configuration READ configuration CONSTANT)

public:
    explicit NewBridgeSessionViewModel(CodexWorkspace& workspace, QObject* parent = nullptr);

    static QVariantMap texts();
    QString cwd() const { return m_cwd; }
    void setCwd(const QString& cwd);
    QString prompt() const { return m_prompt; }
    void setPrompt(const QString& prompt);
    QObject* configuration() { return &m_configuration; }

    // A folder confirmed in the folder dialog; anything but a local folder leaves cwd alone.
    Q_INVOKABLE void chooseFolder(const QUrl& folder);
    // Asks the workspace for the session, with blank texts left to the engine.
    Q_INVOKABLE void create();

signals:
    void changed();

private:
    CodexWorkspace& m_workspace;
    QString m_cwd;
    QString m_prompt;
    NewSessionConfigurationViewModel m_configuration;
};

} // namespace nimbrel
