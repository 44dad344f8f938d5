#pragma once

#include <QString>

namespace nimbrel {

// The name people know this computer by: its pretty host name where one is set, else its host
// name, else fallback.
QString hostDisplayName(const QString& fallback = QStringLiteral("Nimbrel Bridge"));

} // namespace nimbrel
