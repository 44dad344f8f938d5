#include "SecretStore.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace nimbrel {

namespace {

KeychainError systemError(int code, const QString& what)
{
    return KeychainError{code, QStringLiteral("%1: %2").arg(what, QString::fromLocal8Bit(std::strerror(code)))};
}

bool isPlainName(const QString& name)
{
    return !name.isEmpty() && name != QLatin1String(".") && name != QLatin1String("..")
           && !name.contains(QLatin1Char('/')) && !name.contains(QLatin1Char('\0'));
}

// A folder or item of the store must belong to this user and be closed to everyone else.
std::optional<KeychainError> checkPrivate(const struct stat& info, const QString& path)
{
    if (info.st_uid != ::geteuid())
        return KeychainError{EPERM, QStringLiteral("The secret store %1 belongs to another user").arg(path)};
    if (info.st_mode & (S_IRWXG | S_IRWXO))
        return KeychainError{EACCES, QStringLiteral("The secret store %1 is open to other users").arg(path)};
    return std::nullopt;
}

std::optional<KeychainError> makePrivateFolder(const QString& path)
{
    const QByteArray native = QFile::encodeName(path);
    if (::mkdir(native.constData(), 0700) != 0 && errno != EEXIST)
        return systemError(errno, QStringLiteral("Cannot create %1").arg(path));
    struct stat info;
    if (::lstat(native.constData(), &info) != 0)
        return systemError(errno, QStringLiteral("Cannot read %1").arg(path));
    if (!S_ISDIR(info.st_mode))
        return KeychainError{ENOTDIR, QStringLiteral("%1 is not a folder").arg(path)};
    if ((info.st_mode & 0777) != 0700 && ::chmod(native.constData(), 0700) != 0)
        return systemError(errno, QStringLiteral("Cannot protect %1").arg(path));
    return std::nullopt;
}

} // namespace

QString SecretStore::defaultRoot()
{
    QString data = qEnvironmentVariable("XDG_DATA_HOME");
    if (data.isEmpty())
        data = QDir::homePath() + QStringLiteral("/.local/share");
    return data + QStringLiteral("/nimbrel-bridge/secrets");
}

SecretStore::SecretStore(QString root) : m_root(std::move(root)) {}

QString SecretStore::itemPath(const QString& service, const QString& account) const
{
    return m_root + QLatin1Char('/') + service + QLatin1Char('/') + account;
}

Result<std::optional<QByteArray>, KeychainError> SecretStore::read(const QString& service, const QString& account) const
{
    if (!isPlainName(service) || !isPlainName(account))
        return KeychainError{EINVAL, QStringLiteral("Invalid secret name %1/%2").arg(service, account)};
    for (const QString& folder : {m_root, m_root + QLatin1Char('/') + service}) {
        struct stat info;
        if (::lstat(QFile::encodeName(folder).constData(), &info) != 0) {
            if (errno == ENOENT)
                return std::optional<QByteArray>();
            return systemError(errno, QStringLiteral("Cannot read %1").arg(folder));
        }
        if (!S_ISDIR(info.st_mode))
            return KeychainError{ENOTDIR, QStringLiteral("%1 is not a folder").arg(folder)};
        if (auto error = checkPrivate(info, folder))
            return *error;
    }
    const QString path = itemPath(service, account);
    const int file = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (file < 0) {
        if (errno == ENOENT)
            return std::optional<QByteArray>();
        return systemError(errno, QStringLiteral("Cannot read %1").arg(path));
    }
    struct stat info;
    std::optional<KeychainError> problem;
    if (::fstat(file, &info) != 0)
        problem = systemError(errno, QStringLiteral("Cannot read %1").arg(path));
    else if (!S_ISREG(info.st_mode))
        problem = KeychainError{EINVAL, QStringLiteral("%1 is not a file").arg(path)};
    else
        problem = checkPrivate(info, path);
    QByteArray content;
    while (!problem) {
        char buffer[4096];
        const ssize_t count = ::read(file, buffer, sizeof buffer);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            problem = systemError(errno, QStringLiteral("Cannot read %1").arg(path));
        if (count <= 0)
            break;
        content.append(buffer, count);
    }
    ::close(file);
    if (problem)
        return *problem;
    return std::optional<QByteArray>(content);
}

std::optional<KeychainError> SecretStore::write(const QByteArray& bytes, const QString& service, const QString& account) const
{
    if (!isPlainName(service) || !isPlainName(account))
        return KeychainError{EINVAL, QStringLiteral("Invalid secret name %1/%2").arg(service, account)};
    const QString base = QFileInfo(m_root).absolutePath();
    if (!QDir().mkpath(base))
        return KeychainError{EACCES, QStringLiteral("Cannot create %1").arg(base)};
    const QString folder = m_root + QLatin1Char('/') + service;
    for (const QString& path : {m_root, folder})
        if (auto error = makePrivateFolder(path))
            return error;

    // Write beside the item, then rename over it: a crash leaves the old item or the new one.
    QByteArray temporary = QFile::encodeName(folder + QStringLiteral("/.") + account + QStringLiteral(".XXXXXX"));
    const int file = ::mkstemp(temporary.data());
    if (file < 0)
        return systemError(errno, QStringLiteral("Cannot write %1").arg(folder));
    auto fail = [&](const QString& what) {
        const int code = errno;
        ::close(file);
        ::unlink(temporary.constData());
        return systemError(code, what);
    };
    const QString path = itemPath(service, account);
    if (::fchmod(file, 0600) != 0)
        return fail(QStringLiteral("Cannot protect %1").arg(path));
    for (qsizetype written = 0; written < bytes.size();) {
        const ssize_t count = ::write(file, bytes.constData() + written, static_cast<size_t>(bytes.size() - written));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return fail(QStringLiteral("Cannot write %1").arg(path));
        written += count;
    }
    if (::fsync(file) != 0)
        return fail(QStringLiteral("Cannot write %1").arg(path));
    ::close(file);
    if (::rename(temporary.constData(), QFile::encodeName(path).constData()) != 0) {
        const int code = errno;
        ::unlink(temporary.constData());
        return systemError(code, QStringLiteral("Cannot write %1").arg(path));
    }
    const int directory = ::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory >= 0) {
        ::fsync(directory);
        ::close(directory);
    }
    return std::nullopt;
}

} // namespace nimbrel
