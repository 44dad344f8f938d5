#pragma once

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

namespace nimbrel::test {

// A fresh home folder and PATH for one test; the old values come back when it ends.
class TemporaryHome {
public:
    TemporaryHome();
    ~TemporaryHome();

    QString path() const { return m_folder.path(); }
    QString filePath(const QString& relative) const { return m_folder.filePath(relative); }
    void setPath(const QString& pathVariable);

    // Creates the file (and its folders) with the given content and mode; returns its path.
    QString makeFile(const QString& relative, const QByteArray& content = "#!/bin/sh\n",
                     bool executable = true) const;
    // Makes relative a symbolic link to target; returns its path.
    QString makeLink(const QString& relative, const QString& target) const;

private:
    QTemporaryDir m_folder;
    QByteArray m_oldHome;
    QByteArray m_oldPath;
    QByteArray m_oldConfig;
    QByteArray m_oldData;
};

} // namespace nimbrel::test
