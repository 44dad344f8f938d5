// The model catalogue and each session's model and effort.
#include "workspace/CodexWorkspace.h"

#include "platform/Property.h"
#include "workspace/SessionParsers.h"

#include <QPointer>

namespace nimbrel {

void CodexWorkspace::loadModels()
{
    if (m_isDemoMode || !requester || !m_engineReady || m_isLoadingModels)
        return;
    updateProperty(this, m_isLoadingModels, true, &CodexWorkspace::isLoadingModelsChanged);
    updateProperty(this, m_modelLoadError, std::nullopt, &CodexWorkspace::modelLoadErrorChanged);
    QPointer<CodexWorkspace> self(this);
    request(QStringLiteral("model/list"),
            JSONValue::object({{"limit", 100}, {"includeHidden", false}}),
            [self](const WorkspaceResult& outcome) {
                if (self)
                    self->handleModelList(outcome);
            });
}

void CodexWorkspace::handleModelList(const WorkspaceResult& outcome)
{
    updateProperty(this, m_isLoadingModels, false, &CodexWorkspace::isLoadingModelsChanged);
    if (!outcome.ok()) {
        updateProperty(
            this, m_modelLoadError,
            std::optional(QStringLiteral("Models could not be loaded: ") + outcome.error().text()),
            &CodexWorkspace::modelLoadErrorChanged);
        return;
    }
    std::vector<CodexModelOption> models;
    if (const JSONValue* data = outcome.value().find("data"))
        for (const JSONValue& element : data->items())
            if (std::optional<CodexModelOption> model = parseModelOption(element))
                models.push_back(std::move(*model));
    if (models.empty())
        updateProperty(
            this, m_modelLoadError,
            std::optional(QStringLiteral("Codex did not return any models. Update the Codex CLI on "
                                         "this computer, then reload the catalog.")),
            &CodexWorkspace::modelLoadErrorChanged);
    updateProperty(this, m_availableModels, std::move(models),
                   &CodexWorkspace::availableModelsChanged);
}

const CodexModelOption* CodexWorkspace::model(const QString& modelID) const
{
    for (const CodexModelOption& model : m_availableModels)
        if (model.id == modelID)
            return &model;
    return nullptr;
}

std::optional<CodexModelOption> CodexWorkspace::defaultModel() const
{
    for (const CodexModelOption& model : m_availableModels)
        if (model.isDefault)
            return model;
    return m_availableModels.empty() ? std::nullopt : std::optional(m_availableModels.front());
}

QString CodexWorkspace::effectiveModelID(const QString& threadID) const
{
    if (const CodexSessionState* held = session(threadID); held && held->model)
        return *held->model;
    if (const std::optional<CodexThread> thread = threadForID(threadID); thread && thread->model)
        return *thread->model;
    if (const std::optional<CodexModelOption> fallback = defaultModel())
        return fallback->id;
    return {};
}

std::optional<QString> CodexWorkspace::defaultEffort(const QString& modelID) const
{
    const CodexModelOption* found = model(modelID);
    return found ? std::optional(found->defaultReasoningEffort) : std::nullopt;
}

QString CodexWorkspace::modelDisplayName(const QString& modelID) const
{
    if (const CodexModelOption* found = model(modelID))
        return found->displayName;
    return modelID.isEmpty() ? QStringLiteral("Codex Default") : modelID;
}

std::vector<CodexReasoningEffortOption>
CodexWorkspace::supportedEfforts(const QString& modelID) const
{
    const CodexModelOption* found = model(modelID);
    return found ? found->supportedReasoningEfforts : std::vector<CodexReasoningEffortOption>{};
}

std::optional<QString> CodexWorkspace::effortDescription(const QString& effort,
                                                         const QString& modelID) const
{
    for (const CodexReasoningEffortOption& option : supportedEfforts(modelID))
        if (option.id == effort)
            return option.description;
    return std::nullopt;
}

// A choice takes effect with the session's next turn; nothing changes while one is under way.
void CodexWorkspace::setModel(const QString& modelID, const QString& threadID)
{
    if (const CodexSessionState* held = session(threadID);
        held && held->turnControl.phase != TurnControlState::Phase::Idle)
        return;
    const std::vector<CodexReasoningEffortOption> efforts = supportedEfforts(modelID);
    changeSession(threadID, [&](CodexSessionState& state) {
        state.model = modelID.isEmpty() ? std::nullopt : std::optional(modelID);
        const bool offered = std::any_of(
            efforts.begin(), efforts.end(), [&](const CodexReasoningEffortOption& option) {
                return state.reasoningEffort && option.id == *state.reasoningEffort;
            });
        if (!state.reasoningEffort || (!efforts.empty() && !offered))
            state.reasoningEffort = defaultEffort(modelID);
    });
}

void CodexWorkspace::setReasoningEffort(const QString& effort, const QString& threadID)
{
    if (const CodexSessionState* held = session(threadID);
        held && held->turnControl.phase != TurnControlState::Phase::Idle)
        return;
    changeSession(threadID, [&](CodexSessionState& state) {
        state.reasoningEffort = effort.isEmpty() ? std::nullopt : std::optional(effort);
    });
}

} // namespace nimbrel
