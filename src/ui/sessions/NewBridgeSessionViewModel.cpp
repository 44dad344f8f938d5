#include "NewBridgeSessionViewModel.h"

#include "workspace/CodexWorkspace.h"

namespace nimbrel {

NewBridgeSessionViewModel::NewBridgeSessionViewModel(CodexWorkspace& workspace, QObject* parent)
    : QObject(parent)
    , m_workspace(workspace)
    , m_configuration(workspace)
{
}

QVariantMap NewBridgeSessionViewModel::texts()
{
    return {{"title", QStringLiteral("New Codex Session")},
            {"folderSection", QStringLiteral("WORKSPACE FOLDER")},
            {"folderPrompt", QStringLiteral("Blank uses your home folder")},
            {"choose", QStringLiteral("Choose…")},
            {"chooseAccept", QStringLiteral("Use Workspace")},
            {"taskSection", QStringLiteral("FIRST TASK (OPTIONAL)")},
            {"taskPrompt", QStringLiteral("What should Codex do?")},
            {"cancel", QStringLiteral("Cancel")},
            {"create", QStringLiteral("Create")}};
}

void NewBridgeSessionViewModel::setCwd(const QString& cwd)
{
    if (cwd == m_cwd)
        return;
    m_cwd = cwd;
    emit changed();
}

void NewBridgeSessionViewModel::setPrompt(const QString& prompt)
{
    if (prompt == m_prompt)
        return;
    m_prompt = prompt;
    emit changed();
}

void NewBridgeSessionViewModel::chooseFolder(const QUrl& folder)
{
    if (folder.isLocalFile())
        setCwd(folder.toLocalFile());
}

void NewBridgeSessionViewModel::create()
{
    m_workspace.createSession(m_cwd, m_prompt, m_configuration.model(), m_configuration.effort(),
                              m_configuration.permissionMode());
}

} // namespace nimbrel
