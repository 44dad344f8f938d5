#include "LaunchAtLogin.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

namespace nimbrel {

QString LaunchAtLogin::entryPath()
{
    QString config = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (config.isEmpty())
        config = QDir::homePath() + QStringLiteral("/.config");
    return config + QStringLiteral("/autostart/nimbrel-bridge.desktop");
}

bool LaunchAtLogin::isEnabled()
{
    QFile entry(entryPath());
    if (!entry.open(QIODevice::ReadOnly))
        return false;
    for (const QByteArray& line : entry.readAll().split('\n'))
        if (line.trimmed().toLower() == "hidden=true")
            return false;
    return true;
}

std::optional<QString> LaunchAtLogin::setEnabled(bool enabled, const QString& executablePath)
{
    const QString path = entryPath();
    if (!enabled) {
        QFile entry(path);
        if (entry.exists() && !entry.remove())
            return entry.errorString();
        return std::nullopt;
    }
    const QString folder = QFileInfo(path).absolutePath();
    if (!QDir().mkpath(folder))
        return QStringLiteral("Cannot create %1").arg(folder);
    QSaveFile entry(path);
    if (!entry.open(QIODevice::WriteOnly))
        return entry.errorString();
    QString quoted = executablePath;
    quoted.replace(QLatin1Char('\\'), QStringLiteral("\\\\")).replace(QLatin1Char('"'), QStringLiteral("\\\""));
    entry.write(QStringLiteral("[Desktop Entry]\nType=Application\nName=Nimbrel Bridge\n"
                               "Comment=Drive Codex on this computer from a phone nearby\n"
                               "Exec=\"%1\"\nX-GNOME-Autostart-enabled=true\n").arg(quoted).toUtf8());
    if (!entry.commit())
        return entry.errorString();
    return std::nullopt;
}

} // namespace nimbrel
