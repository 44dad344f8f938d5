#pragma once

#include "ui/common/ViewClock.h"
#include "ui/usage/CodexUsageViewModel.h"

#include <QObject>

#include <optional>

namespace nimbrel {

class CodexWorkspace;

// The usage button: the account's allowance in one tinted line, read again every 30 seconds, and
// the "Usage & Limits" sheet it opens, made when it opens and dropped when it closes.
class UsageStatusButtonViewModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString statusText READ statusText NOTIFY changed)
    // A palette colour name.
    Q_PROPERTY(QString tint READ tint NOTIFY changed)
    Q_PROPERTY(bool showsWord READ showsWord CONSTANT)
    Q_PROPERTY(QVariantMap texts READ texts CONSTANT)
    Q_PROPERTY(QString accessibleName READ accessibleName NOTIFY changed)
    Q_PROPERTY(QString identifier READ identifier CONSTANT)
    Q_PROPERTY(bool isPresented READ isPresented NOTIFY presentedChanged)
    Q_PROPERTY(QObject* sheet READ sheet NOTIFY presentedChanged)

public:
    // With a thread id the sheet speaks of that session too; compact shows the lowest share alone.
    UsageStatusButtonViewModel(CodexWorkspace& workspace, Scheduler& scheduler,
                               std::optional<QString> threadID, bool compact,
                               QObject* parent = nullptr);

    QString statusText() const;
    QString tint() const;
    bool showsWord() const { return !m_compact; }
    static QVariantMap texts();
    QString accessibleName() const { return QStringLiteral("Usage, ") + statusText(); }
    QString identifier() const;
    bool isPresented() const { return m_sheet != nullptr; }
    CodexUsageViewModel* sheet() const { return m_sheet; }

    Q_INVOKABLE void present();
    Q_INVOKABLE void dismiss();

signals:
    void changed();
    void presentedChanged();

private:
    CodexWorkspace& m_workspace;
    Scheduler& m_scheduler;
    const std::optional<QString> m_threadID;
    const bool m_compact;
    ViewClock m_clock;
    CodexUsageViewModel* m_sheet = nullptr; // a child while presented
};

} // namespace nimbrel
