#include "NewSessionConfigurationViewModel.h"

#include "ui/sessions/configuration/SessionConfiguration.h"
#include "workspace/CodexWorkspace.h"

namespace nimbrel {

namespace {

const QString useDefault = QStringLiteral("Use Codex Default");

} // namespace

NewSessionConfigurationViewModel::NewSessionConfigurationViewModel(CodexWorkspace& workspace,
                                                                   QObject* parent)
    : QObject(parent)
    , m_workspace(workspace)
    , m_permissionMode(workspace.rememberedPermissionMode())
{
    for (auto signal :
         {&CodexWorkspace::availableModelsChanged, &CodexWorkspace::isLoadingModelsChanged,
          &CodexWorkspace::modelLoadErrorChanged})
        connect(&m_workspace, signal, this, &NewSessionConfigurationViewModel::refresh);
    refresh();
}

QVariantMap NewSessionConfigurationViewModel::texts()
{
    return {{"modelSection", "Model and thinking"},
            {"modelPicker", "Model"},
            {"effortPicker", "Thinking effort"},
            {"reload", "Reload Available Models"},
            {"reloadSymbol", "view-refresh"},
            {"permissionsHeading", "Permissions"},
            {"permissionNote", "You can change this for the session's next turn at any time."}};
}

void NewSessionConfigurationViewModel::setModel(const QString& model)
{
    if (model == m_model)
        return;
    m_model = model;
    if (!m_effort.isEmpty()) {
        const auto efforts = m_workspace.supportedEfforts(model);
        const bool offered = std::any_of(
            efforts.begin(), efforts.end(),
            [&](const CodexReasoningEffortOption& option) { return option.id == m_effort; });
        if (!offered)
            m_effort = m_workspace.defaultEffort(model).value_or(QString());
    }
    refresh();
}

void NewSessionConfigurationViewModel::setEffort(const QString& effort)
{
    if (effort == m_effort)
        return;
    m_effort = effort;
    emit changed();
}

int NewSessionConfigurationViewModel::modelIndex() const
{
    return std::max(m_modelRows.rowOf(m_model), 0);
}

int NewSessionConfigurationViewModel::effortIndex() const
{
    return std::max(m_effortRows.rowOf(m_effort), 0);
}

QString NewSessionConfigurationViewModel::statusText() const
{
    if (m_workspace.isLoadingModels())
        return QStringLiteral("Loading available models…");
    return m_workspace.modelLoadError().value_or(QString());
}

bool NewSessionConfigurationViewModel::statusIsProgress() const
{
    return m_workspace.isLoadingModels();
}

bool NewSessionConfigurationViewModel::statusShowsReload() const
{
    return !m_workspace.isLoadingModels() && m_workspace.modelLoadError().has_value();
}

QString NewSessionConfigurationViewModel::permissionMode() const
{
    return permissionModeKey(m_permissionMode);
}

void NewSessionConfigurationViewModel::setPermissionMode(const QString& key)
{
    const std::optional<PermissionMode> mode = permissionModeFromKey(key);
    if (!mode || *mode == m_permissionMode)
        return;
    m_permissionMode = *mode;
    refresh();
}

void NewSessionConfigurationViewModel::reloadModels()
{
    m_workspace.loadModels();
}

void NewSessionConfigurationViewModel::refresh()
{
    QList<ListRecord> models{{QString(), {QString(), useDefault}}};
    for (const CodexModelOption& model : m_workspace.availableModels())
        models.append({model.id, {model.id, model.displayName}});
    QList<ListRecord> efforts{{QString(), {QString(), useDefault}}};
    if (!m_model.isEmpty())
        for (const CodexReasoningEffortOption& option : m_workspace.supportedEfforts(m_model))
            efforts.append({option.id, {option.id, effortDisplayName(option.id)}});
    m_modelRows.setRecords(models);
    m_effortRows.setRecords(efforts);
    m_permissionRows.setRecords(permissionModeRecords(m_permissionMode));
    emit changed();
}

} // namespace nimbrel
