#include "HostName.h"

#include <QFile>
#include <QSysInfo>

namespace nimbrel {

namespace {

// PRETTY_HOSTNAME from /etc/machine-info, where systemd keeps it.
QString prettyHostName()
{
    QFile file(QStringLiteral("/etc/machine-info"));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    for (const QByteArray& line : file.readAll().split('\n')) {
        if (!line.startsWith("PRETTY_HOSTNAME="))
            continue;
        QString value = QString::fromUtf8(line.mid(16)).trimmed();
        if (value.size() >= 2 && (value.startsWith(QLatin1Char('"')) || value.startsWith(QLatin1Char('\''))) && value.back() == value.front())
            value = value.mid(1, value.size() - 2);
        return value.replace(QStringLiteral("\\\""), QStringLiteral("\""));
    }
    return {};
}

} // namespace

QString hostDisplayName(const QString& fallback)
{
    if (const QString pretty = prettyHostName(); !pretty.isEmpty())
        return pretty;
    if (const QString host = QSysInfo::machineHostName(); !host.isEmpty())
        return host;
    return fallback;
}

} // namespace nimbrel
