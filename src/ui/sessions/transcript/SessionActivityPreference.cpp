#include "SessionActivityPreference.h"

#include "platform/UserDefaults.h"
#include "ui/sessions/transcript/TranscriptPresentation.h"

namespace nimbrel {

SessionActivityPreference::SessionActivityPreference(UserDefaults& defaults, QObject* parent)
    : QObject(parent)
    , m_defaults(defaults)
{
    const QVariant stored = m_defaults.value(key);
    m_expanded = stored.isValid() ? stored.toBool() : true;
}

void SessionActivityPreference::setExpanded(bool expanded)
{
    if (expanded == m_expanded)
        return;
    m_expanded = expanded;
    m_defaults.setValue(key, expanded);
    emit expandedChanged();
}

QString SessionActivityPreference::buttonText() const
{
    return m_expanded ? QStringLiteral("Collapse activity") : QStringLiteral("Expand activity");
}

QString SessionActivityPreference::accessibilityValue() const
{
    return expansionValue(m_expanded);
}

} // namespace nimbrel
