#pragma once

#include <QString>

namespace nimbrel {

class CodexWorkspace;

// The label of an effort identifier: "Codex Default" for none, "Extra High" for xhigh, else its
// words (hyphens become blanks) each capitalised.
QString effortDisplayName(const QString& effort);

// The effort a session shows as selected: its own, its thread's, or its model's default.
QString displayedEffort(const CodexWorkspace& workspace, const QString& threadID);

} // namespace nimbrel
