#pragma once

#include "ui/common/RecordListModel.h"
#include "workspace/PermissionMode.h"

#include <QString>

namespace nimbrel {

class CodexWorkspace;

// The label of an effort identifier: "Codex Default" for none, "Extra High" for xhigh, else its
// words (hyphens become blanks) each capitalised.
QString effortDisplayName(const QString& effort);

// The permission modes in the order offered, keyed by their keys: roles id, label, summary,
// colour and selected (the one given).
QList<ListRecord> permissionModeRecords(std::optional<PermissionMode> selected);

// The effort a session shows as selected: its own, its thread's, or its model's default.
QString displayedEffort(const CodexWorkspace& workspace, const QString& threadID);

} // namespace nimbrel
