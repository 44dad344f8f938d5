#pragma once

#include <QProcessEnvironment>
#include <QString>

namespace nimbrel {

// The PATH a Codex child runs with: the executable's own folder, then the current PATH, then the
// usual system folders; empty and repeated entries dropped, the first occurrence standing.
QString childSearchPath(const QString& executablePath, const QProcessEnvironment& environment);

// The current environment with only PATH replaced by childSearchPath.
QProcessEnvironment childEnvironment(const QString& executablePath,
                                     const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment());

} // namespace nimbrel
