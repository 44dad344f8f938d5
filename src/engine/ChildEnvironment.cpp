#include "ChildEnvironment.h"

#include <QFileInfo>
#include <QStringList>

namespace nimbrel {

QString childSearchPath(const QString& executablePath, const QProcessEnvironment& environment)
{
    QStringList parts{QFileInfo(executablePath).absolutePath()};
    if (environment.contains(QStringLiteral("PATH")))
        parts += environment.value(QStringLiteral("PATH")).split(QLatin1Char(':'), Qt::SkipEmptyParts);
    parts += {QStringLiteral("/opt/homebrew/bin"), QStringLiteral("/usr/local/bin"), QStringLiteral("/usr/bin"),
              QStringLiteral("/bin"), QStringLiteral("/usr/sbin"), QStringLiteral("/sbin")};
    QStringList kept;
    for (const QString& part : parts)
        if (!part.isEmpty() && !kept.contains(part))
            kept.append(part);
    return kept.join(QLatin1Char(':'));
}

QProcessEnvironment childEnvironment(const QString& executablePath, const QProcessEnvironment& environment)
{
    QProcessEnvironment result = environment;
    result.insert(QStringLiteral("PATH"), childSearchPath(executablePath, environment));
    return result;
}

} // namespace nimbrel
