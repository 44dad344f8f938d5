#pragma once

#include <QObject>
#include <QString>

#include <functional>
#include <map>

namespace nimbrel {

class BridgeController;
class DesktopNotifications;
class UserDefaults;
struct ApprovalPrompt;
struct UserInputRequest;

// What one desktop notification says.
struct NotificationText {
    QString summary;
    QString body;
    friend bool operator==(const NotificationText&, const NotificationText&) = default;
};

// The texts, from the product's own words and at most 120 characters of each text from outside.
// session is the session's title, empty where it is not known.
NotificationText approvalNotificationText(const ApprovalPrompt& approval, const QString& session);
NotificationText questionNotificationText(const UserInputRequest& request, const QString& session);
NotificationText turnEndedNotificationText(const QString& status, const QString& session);

// Tells the desktop when Codex needs the user or has finished while the user looks elsewhere: one
// notification per approval or question that arrives while the window is not active, withdrawn
// when the request is answered anywhere or closed; one when a turn ends in a session that is not in
// front. Nothing in the offline tour, nothing when the user switched notifications off.
class AttentionNotifications : public QObject {
    Q_OBJECT

public:
    // How the notifications meet the window.
    struct Window {
        std::function<bool()> isActive;
        // Whether the window shows this session in front of the user.
        std::function<bool(const QString& threadID)> shows;
        // Raises the window on a session (empty: on the window alone).
        std::function<void(const QString& threadID)> bringForward;
    };

    AttentionNotifications(BridgeController& controller, UserDefaults& defaults,
                           DesktopNotifications& notifications, Window window,
                           QObject* parent = nullptr);

private:
    void refreshRequests();
    void handleTurnEnded(const QString& threadID, const QString& status);
    bool mayNotify() const;
    QString sessionTitle(const std::optional<QString>& threadID) const;

    BridgeController& m_controller;
    UserDefaults& m_defaults;
    DesktopNotifications& m_notifications;
    Window m_window;
    // The open requests by notification key, each with its session (empty where unknown).
    std::map<QString, QString> m_openRequests;
};

} // namespace nimbrel
