#include "LaunchAtLogin.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>

namespace nimbrel {

namespace {

// The line that marks an entry as this program's own.
constexpr char kOwnEntryMark[] = "X-Nimbrel-Bridge-Autostart=true";

QByteArray readEntry()
{
    QFile entry(LaunchAtLogin::entryPath());
    return entry.open(QIODevice::ReadOnly) ? entry.readAll() : QByteArray();
}

} // namespace

QString quotedExecArgument(const QString& argument)
{
    static const QString reserved = QStringLiteral(" \t\n\"'\\><~|&;$*?#()`");
    bool needsQuotes = argument.isEmpty();
    for (const QChar c : argument)
        needsQuotes = needsQuotes || reserved.contains(c);
    QString text;
    if (!needsQuotes) {
        text = argument;
    } else {
        text = QStringLiteral("\"");
        for (const QChar c : argument) {
            if (c == QLatin1Char('"') || c == QLatin1Char('`') || c == QLatin1Char('$') ||
                c == QLatin1Char('\\'))
                text += QLatin1Char('\\');
            text += c;
        }
        text += QLatin1Char('"');
    }
    // The key is itself an escaped string, and % starts a field code.
    return text.replace(QLatin1Char('\\'), QStringLiteral("\\\\"))
        .replace(QLatin1Char('%'), QStringLiteral("%%"));
}

QString LaunchAtLogin::entryPath()
{
    QString config = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (config.isEmpty())
        config = QDir::homePath() + QStringLiteral("/.config");
    return config + QStringLiteral("/autostart/nimbrel-bridge.desktop");
}

bool LaunchAtLogin::isEnabled()
{
    if (!QFile::exists(entryPath()))
        return false;
    for (const QByteArray& line : readEntry().split('\n'))
        if (line.trimmed().toLower() == "hidden=true")
            return false;
    return true;
}

QString LaunchAtLogin::launchCommand(const QString& executablePath)
{
    const QFileInfo program(executablePath);
    const QString onPath = QStandardPaths::findExecutable(program.fileName());
    const bool byName = !onPath.isEmpty() && !program.canonicalFilePath().isEmpty() &&
                        QFileInfo(onPath).canonicalFilePath() == program.canonicalFilePath();
    const QString command = byName ? program.fileName() : program.absoluteFilePath();
    return quotedExecArgument(command) + QStringLiteral(" --background");
}

std::optional<QString> LaunchAtLogin::setEnabled(bool enabled, const QString& executablePath)
{
    const QString path = entryPath();
    const bool exists = QFile::exists(path);
    if (exists && !readEntry().contains(kOwnEntryMark))
        return QStringLiteral("%1 was not written by Nimbrel Bridge and is left as it is")
            .arg(path);
    if (!enabled) {
        QFile entry(path);
        if (exists && !entry.remove())
            return entry.errorString();
        return std::nullopt;
    }
    const QString folder = QFileInfo(path).absolutePath();
    if (!QDir().mkpath(folder))
        return QStringLiteral("Cannot create %1").arg(folder);
    QSaveFile entry(path);
    if (!entry.open(QIODevice::WriteOnly))
        return entry.errorString();
    const QByteArray text = "[Desktop Entry]\nType=Application\nName=Nimbrel Bridge\n"
                            "Comment=Drive Codex on this computer from a phone nearby\n"
                            "Icon=nimbrel-bridge\nExec=" +
                            launchCommand(executablePath).toUtf8() +
                            "\nX-GNOME-Autostart-enabled=true\n" + kOwnEntryMark + "\n";
    entry.write(text);
    if (!entry.commit())
        return entry.errorString();
    return std::nullopt;
}

} // namespace nimbrel
