#pragma once

#include <QDBusConnection>
#include <QHash>
#include <QObject>
#include <QSet>
#include <QString>

namespace nimbrel {

// The desktop's notification service (org.freedesktop.Notifications on the session bus). Callers
// name each notification by a key of their own; showing a key again replaces it. Every call is
// asynchronous; where there is no bus or no service, nothing is shown and nothing fails.
class DesktopNotifications : public QObject {
    Q_OBJECT

public:
    static inline const QString service = QStringLiteral("org.freedesktop.Notifications");
    static inline const QString path = QStringLiteral("/org/freedesktop/Notifications");

    explicit DesktopNotifications(QDBusConnection bus = QDBusConnection::sessionBus(),
                                  QObject* parent = nullptr);

    // body is plain text; it is escaped where the service reads markup.
    void show(const QString& key, const QString& summary, const QString& body);
    void withdraw(const QString& key);
    bool isShowing(const QString& key) const
    {
        return m_ids.contains(key) || m_sending.contains(key);
    }

signals:
    // The user chose the notification (its default action).
    void activated(const QString& key);

private slots:
    void handleActionInvoked(uint id, const QString& action);
    void handleClosed(uint id, uint reason);

private:
    void forget(const QString& key);

    QDBusConnection m_bus;
    bool m_readsMarkup = true; // until the service says otherwise
    QHash<QString, uint> m_ids;
    QHash<uint, QString> m_keys;
    // Keys whose Notify has not been answered yet, and those withdrawn in that time.
    QSet<QString> m_sending;
    QSet<QString> m_withdrawnWhileSending;
};

} // namespace nimbrel
