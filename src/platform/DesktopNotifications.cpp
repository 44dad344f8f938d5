#include "DesktopNotifications.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

namespace nimbrel {

namespace {

constexpr auto kInterface = "org.freedesktop.Notifications";

QDBusMessage call(const QString& method)
{
    return QDBusMessage::createMethodCall(DesktopNotifications::service, DesktopNotifications::path,
                                          QString::fromLatin1(kInterface), method);
}

QString escapedMarkup(const QString& text)
{
    return QString(text)
        .replace(QLatin1Char('&'), QStringLiteral("&amp;"))
        .replace(QLatin1Char('<'), QStringLiteral("&lt;"))
        .replace(QLatin1Char('>'), QStringLiteral("&gt;"));
}

} // namespace

DesktopNotifications::DesktopNotifications(QDBusConnection bus, QObject* parent)
    : QObject(parent)
    , m_bus(std::move(bus))
{
    if (!m_bus.isConnected())
        return;
    m_bus.connect(service, path, QString::fromLatin1(kInterface), QStringLiteral("ActionInvoked"),
                  this, SLOT(handleActionInvoked(uint, QString)));
    m_bus.connect(service, path, QString::fromLatin1(kInterface),
                  QStringLiteral("NotificationClosed"), this, SLOT(handleClosed(uint, uint)));
    auto* watcher =
        new QDBusPendingCallWatcher(m_bus.asyncCall(call(QStringLiteral("GetCapabilities"))), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* w) {
        const QDBusPendingReply<QStringList> reply = *w;
        if (reply.isValid())
            m_readsMarkup = reply.value().contains(QStringLiteral("body-markup"));
        w->deleteLater();
    });
}

void DesktopNotifications::show(const QString& key, const QString& summary, const QString& body)
{
    if (!m_bus.isConnected())
        return;
    QDBusMessage message = call(QStringLiteral("Notify"));
    const QVariantMap hints{{QStringLiteral("desktop-entry"), QStringLiteral("nimbrel-bridge")}};
    message << QStringLiteral("Nimbrel Bridge") << m_ids.value(key, 0u)
            << QStringLiteral("nimbrel-bridge") << summary
            << (m_readsMarkup ? escapedMarkup(body) : body)
            << QStringList{QStringLiteral("default"), QStringLiteral("Open")} << hints << -1;
    m_sending.insert(key);
    m_withdrawnWhileSending.remove(key);
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(message), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, key](QDBusPendingCallWatcher* w) {
                w->deleteLater();
                const QDBusPendingReply<uint> reply = *w;
                m_sending.remove(key);
                if (!reply.isValid())
                    return; // no service: the notification is simply not shown
                const uint id = reply.value();
                m_ids.insert(key, id);
                m_keys.insert(id, key);
                if (m_withdrawnWhileSending.remove(key))
                    withdraw(key);
            });
}

void DesktopNotifications::withdraw(const QString& key)
{
    if (m_sending.contains(key)) {
        m_withdrawnWhileSending.insert(key);
        return;
    }
    const auto id = m_ids.constFind(key);
    if (id == m_ids.constEnd())
        return;
    QDBusMessage message = call(QStringLiteral("CloseNotification"));
    message << *id;
    m_bus.asyncCall(message);
    forget(key);
}

void DesktopNotifications::forget(const QString& key)
{
    m_keys.remove(m_ids.value(key));
    m_ids.remove(key);
}

void DesktopNotifications::handleActionInvoked(uint id, const QString& action)
{
    const auto found = m_keys.constFind(id);
    if (found == m_keys.constEnd() || action != QLatin1String("default"))
        return;
    // Whoever hears of it may withdraw notifications, which changes m_keys.
    const QString key = *found;
    emit activated(key);
}

void DesktopNotifications::handleClosed(uint id, uint)
{
    const auto found = m_keys.constFind(id);
    if (found == m_keys.constEnd())
        return;
    // forget removes the entry the key is read from.
    const QString key = *found;
    forget(key);
}

} // namespace nimbrel
