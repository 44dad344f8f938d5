// The model catalogue and each session's model and effort.
#include "workspace/CodexWorkspace.h"

namespace nimbrel {

std::optional<QString> CodexWorkspace::defaultEffort(const QString& modelID) const
{
    for (const CodexModelOption& model : m_availableModels)
        if (model.id == modelID)
            return model.defaultReasoningEffort;
    return std::nullopt;
}

} // namespace nimbrel
