#pragma once

#include <QObject>

namespace nimbrel {

class UserDefaults;

// Whether groups of activity show unfolded: the stored preference, and the line of controls that
// flips it for every group at once.
class SessionActivityPreference : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool expanded READ expanded WRITE setExpanded NOTIFY expandedChanged)
    Q_PROPERTY(QString label READ label CONSTANT)
    Q_PROPERTY(QString symbol READ symbol CONSTANT)
    Q_PROPERTY(QString buttonText READ buttonText NOTIFY expandedChanged)
    Q_PROPERTY(QString accessibilityValue READ accessibilityValue NOTIFY expandedChanged)

public:
    static inline const QString key = QStringLiteral("Sarvane.ExpandSessionActivity");

    explicit SessionActivityPreference(UserDefaults& defaults, QObject* parent = nullptr);

    bool expanded() const { return m_expanded; }
    void setExpanded(bool expanded);
    Q_INVOKABLE void toggle() { setExpanded(!m_expanded); }

    static QString label() { return QStringLiteral("Session activity"); }
    static QString symbol() { return QStringLiteral("network-transmit-receive"); }
    QString buttonText() const;
    QString accessibilityValue() const;

signals:
    void expandedChanged();

private:
    UserDefaults& m_defaults;
    bool m_expanded = true;
};

} // namespace nimbrel
