#include "TemporaryHome.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace nimbrel::test {

TemporaryHome::TemporaryHome()
    : m_oldHome(qgetenv("HOME"))
    , m_oldPath(qgetenv("PATH"))
    , m_oldConfig(qgetenv("XDG_CONFIG_HOME"))
    , m_oldData(qgetenv("XDG_DATA_HOME"))
{
    qputenv("HOME", m_folder.path().toUtf8());
    qputenv("PATH", QByteArray());
    qunsetenv("XDG_CONFIG_HOME");
    qunsetenv("XDG_DATA_HOME");
}

TemporaryHome::~TemporaryHome()
{
    qputenv("HOME", m_oldHome);
    qputenv("PATH", m_oldPath);
    auto restore = [](const char* name, const QByteArray& value) {
        if (value.isEmpty())
            qunsetenv(name);
        else
            qputenv(name, value);
    };
    restore("XDG_CONFIG_HOME", m_oldConfig);
    restore("XDG_DATA_HOME", m_oldData);
}

void TemporaryHome::setPath(const QString& pathVariable)
{
    qputenv("PATH", pathVariable.toUtf8());
}

QString TemporaryHome::makeFile(const QString& relative, const QByteArray& content,
                                bool executable) const
{
    const QString path = m_folder.filePath(relative);
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    file.open(QIODevice::WriteOnly | QIODevice::Truncate);
    file.write(content);
    file.close();
    QFile::Permissions permissions = QFile::ReadOwner | QFile::WriteOwner;
    if (executable)
        permissions |= QFile::ExeOwner;
    file.setPermissions(permissions);
    return path;
}

QString TemporaryHome::makeLink(const QString& relative, const QString& target) const
{
    const QString path = m_folder.filePath(relative);
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile::link(target, path);
    return path;
}

} // namespace nimbrel::test
