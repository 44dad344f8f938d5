#pragma once

#include "platform/Scheduler.h"
#include "ui/common/RecordListModel.h"
#include "ui/common/ViewClock.h"

#include <QObject>
#include <QVariantMap>

#include <optional>

namespace nimbrel {

class CodexWorkspace;

// The "Usage & Limits" sheet: the account's allowance buckets, windows, resets and credits, and for
// a session its context headroom and token totals. It asks for a fresh reading when it opens, and
// reads its texts again every 30 seconds, since a reading goes stale by the clock alone.
//
// Each block is a list of rows: rowType ("heading", "line", "caption", "notice", "bucket", "bar",
// "reset", "value", "divider"), text, detail (a plan, a bar's share, a row's value), amount (a
// bar's share left), tint (a palette colour; empty for the row type's own), accessibleValue and
// busy (a heading's progress).
class CodexUsageViewModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QVariantMap texts READ texts CONSTANT)
    Q_PROPERTY(bool refreshEnabled READ refreshEnabled NOTIFY changed)
    Q_PROPERTY(QString demoLabel READ demoLabel NOTIFY changed)
    Q_PROPERTY(bool showsSession READ showsSession CONSTANT)
    Q_PROPERTY(nimbrel::RecordListModel* accountRows READ accountRows CONSTANT)
    Q_PROPERTY(nimbrel::RecordListModel* sessionRows READ sessionRows CONSTANT)

public:
    // Without a thread id the sheet speaks of the account alone.
    CodexUsageViewModel(CodexWorkspace& workspace, Scheduler& scheduler,
                        std::optional<QString> threadID, QObject* parent = nullptr);

    static QVariantMap texts();
    bool refreshEnabled() const;
    // "OFFLINE DEMO · Sample usage" in the offline tour, else empty.
    QString demoLabel() const;
    bool showsSession() const { return m_threadID.has_value(); }
    RecordListModel* accountRows() { return &m_accountRows; }
    RecordListModel* sessionRows() { return &m_sessionRows; }

    Q_INVOKABLE void refresh();

signals:
    void changed();

private:
    void update();
    QList<ListRecord> accountRecords() const;
    QList<ListRecord> sessionRecords() const;

    CodexWorkspace& m_workspace;
    const std::optional<QString> m_threadID;
    ViewClock m_clock;
    RecordListModel m_accountRows;
    RecordListModel m_sessionRows;
};

} // namespace nimbrel
