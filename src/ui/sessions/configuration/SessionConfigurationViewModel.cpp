#include "SessionConfigurationViewModel.h"

#include "ui/sessions/configuration/SessionConfiguration.h"
#include "workspace/CodexWorkspace.h"

namespace nimbrel {

SessionConfigurationViewModel::SessionConfigurationViewModel(CodexWorkspace& workspace,
                                                             QString threadID, QObject* parent)
    : QObject(parent)
    , m_workspace(workspace)
    , m_threadID(std::move(threadID))
{
    connect(&m_workspace, &CodexWorkspace::sessionChanged, this, [this](const QString& id) {
        if (id == m_threadID)
            refresh();
    });
    for (auto signal :
         {&CodexWorkspace::availableModelsChanged, &CodexWorkspace::isLoadingModelsChanged,
          &CodexWorkspace::modelLoadErrorChanged, &CodexWorkspace::threadsChanged})
        connect(&m_workspace, signal, this, &SessionConfigurationViewModel::refresh);
    refresh();
}

QVariantMap SessionConfigurationViewModel::texts()
{
    return {{"modelSection", "Model for the next turn"},
            {"effortSection", "Thinking depth for the next turn"},
            {"reload", "Reload Available Models"},
            {"reloadSymbol", "view-refresh"},
            {"modelSymbol", "computer"},
            {"effortSymbol", "dialog-information"},
            {"chevronSymbol", "go-down"},
            {"selectedSymbol", "emblem-default"},
            {"modelSelectorID", "session-model-selector"},
            {"effortSelectorID", "session-effort-selector"},
            {"permissionSymbol", "changes-allow"},
            {"permissionSelectorID", "session-permission-selector"},
            {"permissionSection", "Permissions for the next turn"},
            {"settingsTitle", "Session Settings"},
            {"done", "Done"},
            {"modelHeading", "Model"},
            {"modelPicker", "Model"},
            {"effortHeading", "Thinking effort"},
            {"effortPicker", "Effort"},
            {"permissionsHeading", "Permissions"}};
}

QString SessionConfigurationViewModel::effectiveModelID() const
{
    return m_workspace.effectiveModelID(m_threadID);
}

std::optional<PermissionMode> SessionConfigurationViewModel::permissionMode() const
{
    return m_workspace.sessionMode(m_threadID);
}

QString SessionConfigurationViewModel::permissionTitle() const
{
    const std::optional<PermissionMode> mode = permissionMode();
    return mode ? permissionModeTitle(*mode) : QStringLiteral("Not chosen yet");
}

QString SessionConfigurationViewModel::permissionColour() const
{
    const std::optional<PermissionMode> mode = permissionMode();
    return mode ? permissionModeColour(*mode) : QStringLiteral("gray");
}

QString SessionConfigurationViewModel::permissionSummary() const
{
    const std::optional<PermissionMode> mode = permissionMode();
    return mode ? permissionModeSummary(*mode)
                : QStringLiteral("Nobody has chosen permissions for this session. Its next turn "
                                 "runs as Codex has it set, and this then shows which mode that "
                                 "is.");
}

void SessionConfigurationViewModel::choosePermissionMode(const QString& key)
{
    m_workspace.setPermissionMode(key, m_threadID);
}

bool SessionConfigurationViewModel::isIdle() const
{
    const CodexSessionState* state = m_workspace.session(m_threadID);
    return !state || state->turnControl.phase == TurnControlState::Phase::Idle;
}

QString SessionConfigurationViewModel::modelName() const
{
    return m_workspace.modelDisplayName(effectiveModelID());
}

QString SessionConfigurationViewModel::modelHint() const
{
    return isIdle() ? QStringLiteral("Choose the Codex model for the next turn")
                    : QStringLiteral("Stop the active turn before changing models");
}

QString SessionConfigurationViewModel::modelsPlaceholder() const
{
    if (!m_workspace.availableModels().empty())
        return {};
    return m_workspace.isLoadingModels() ? QStringLiteral("Loading available models…")
                                         : QStringLiteral("No models available");
}

QString SessionConfigurationViewModel::modelLoadError() const
{
    return m_workspace.modelLoadError().value_or(QString());
}

QString SessionConfigurationViewModel::effortName() const
{
    return effortDisplayName(displayedEffort(m_workspace, m_threadID));
}

QString SessionConfigurationViewModel::effortHint() const
{
    return isIdle() ? QStringLiteral("Choose the thinking depth for the next turn")
                    : QStringLiteral("Stop the active turn before changing thinking depth");
}

QString SessionConfigurationViewModel::effortsPlaceholder() const
{
    return m_workspace.supportedEfforts(effectiveModelID()).empty()
               ? QStringLiteral("No thinking-depth choices reported for this model")
               : QString();
}

int SessionConfigurationViewModel::modelPickerIndex() const
{
    return m_modelPickerRows.rowOf(effectiveModelID());
}

bool SessionConfigurationViewModel::modelNoteIsProgress() const
{
    return m_workspace.isLoadingModels();
}

bool SessionConfigurationViewModel::modelNoteShowsReload() const
{
    return !m_workspace.isLoadingModels() && m_workspace.modelLoadError().has_value();
}

QString SessionConfigurationViewModel::modelNote() const
{
    if (m_workspace.isLoadingModels())
        return QStringLiteral("Loading models…");
    if (m_workspace.modelLoadError())
        return *m_workspace.modelLoadError();
    const QString id = effectiveModelID();
    for (const CodexModelOption& model : m_workspace.availableModels())
        if (model.id == id)
            return model.description;
    return {};
}

int SessionConfigurationViewModel::effortPickerIndex() const
{
    return m_effortPickerRows.rowOf(displayedEffort(m_workspace, m_threadID));
}

QString SessionConfigurationViewModel::effortNote() const
{
    return m_workspace
        .effortDescription(displayedEffort(m_workspace, m_threadID), effectiveModelID())
        .value_or(QString());
}

QString SessionConfigurationViewModel::footer() const
{
    return isIdle()
               ? QStringLiteral(
                     "Model and effort changes apply to the next turn and remain active for later "
                     "turns in this session.")
               : QStringLiteral(
                     "Stop the active turn before changing its model or thinking effort.");
}

QString SessionConfigurationViewModel::footerSymbol() const
{
    return isIdle() ? QString() : QStringLiteral("dialog-information");
}

void SessionConfigurationViewModel::chooseModel(const QString& modelID)
{
    if (isIdle())
        m_workspace.setModel(modelID, m_threadID);
}

void SessionConfigurationViewModel::chooseEffort(const QString& effort)
{
    if (isIdle())
        m_workspace.setReasoningEffort(effort, m_threadID);
}

void SessionConfigurationViewModel::reloadModels()
{
    m_workspace.loadModels();
}

void SessionConfigurationViewModel::refresh()
{
    const QString modelID = effectiveModelID();
    const QString effort = displayedEffort(m_workspace, m_threadID);
    QList<ListRecord> models, pickerModels, efforts, pickerEfforts;
    for (const CodexModelOption& model : m_workspace.availableModels()) {
        models.append({model.id, {model.id, model.displayName, model.id == modelID}});
        pickerModels.append({model.id, {model.id, model.displayName}});
    }
    if (pickerModels.isEmpty())
        pickerModels.append({modelID, {modelID, m_workspace.modelDisplayName(modelID)}});
    for (const CodexReasoningEffortOption& option : m_workspace.supportedEfforts(modelID)) {
        efforts.append({option.id, {option.id, effortDisplayName(option.id), option.id == effort}});
        pickerEfforts.append({option.id, {option.id, effortDisplayName(option.id)}});
    }
    if (pickerEfforts.isEmpty())
        pickerEfforts.append({effort, {effort, effortDisplayName(effort)}});
    m_modelOptions.setRecords(models);
    m_modelPickerRows.setRecords(pickerModels);
    m_effortOptions.setRecords(efforts);
    m_effortPickerRows.setRecords(pickerEfforts);
    m_permissionOptions.setRecords(permissionModeRecords(permissionMode()));
    emit changed();
}

} // namespace nimbrel
