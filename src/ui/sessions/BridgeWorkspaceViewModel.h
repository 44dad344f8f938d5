#pragma once

#include "ui/common/RecordListModel.h"
#include "ui/common/ViewClock.h"
#include "ui/sessions/MacSessionViewModel.h"
#include "ui/sessions/NewBridgeSessionViewModel.h"
#include "ui/sessions/transcript/SessionActivityPreference.h"
#include "ui/usage/UsageStatusButtonViewModel.h"

#include <QObject>
#include <QVariantMap>

#include <map>

namespace nimbrel {

class CodexWorkspace;

// The page "Sessions": the sidebar's list of threads, the tab strip, the selected session's pane
// and the sheet that starts a new session.
//
// threadRows: threadID, title, dotTint, busy (a turn runs), folder, source (in capitals), updated
// (a relative date, kept current), selected. tabs: threadID, title, dotTint, selected,
// closeEnabled.
class BridgeWorkspaceViewModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QVariantMap texts READ texts CONSTANT)
    Q_PROPERTY(nimbrel::RecordListModel* threadRows READ threadRows CONSTANT)
    Q_PROPERTY(nimbrel::RecordListModel* tabs READ tabs CONSTANT)
    Q_PROPERTY(int selectedTab READ selectedTab NOTIFY tabsChanged)
    Q_PROPERTY(QObject* accountUsage READ accountUsage CONSTANT)
    Q_PROPERTY(QObject* session READ session CONSTANT)
    Q_PROPERTY(QObject* preference READ preference CONSTANT)
    Q_PROPERTY(QObject* newSession READ newSession NOTIFY newSessionChanged)
    Q_PROPERTY(bool offersTour READ offersTour NOTIFY tourChanged)

public:
    static constexpr double relativeDateInterval = 10;

    BridgeWorkspaceViewModel(CodexWorkspace& workspace, Scheduler& scheduler,
                             UserDefaults& defaults, QObject* parent = nullptr);

    static QVariantMap texts();
    RecordListModel* threadRows() { return &m_threadRows; }
    RecordListModel* tabs() { return &m_tabs; }
    // The row of the selected tab, or -1.
    int selectedTab() const;
    QObject* accountUsage() { return &m_accountUsage; }
    MacSessionViewModel* sessionView() { return &m_session; }
    QObject* session() { return &m_session; }
    QObject* preference() { return &m_preference; }
    NewBridgeSessionViewModel* newSessionSheet() const { return m_newSession; }
    QObject* newSession() const { return m_newSession; }

    Q_INVOKABLE void refresh();
    // A row of the list: its thread is kept, so that it opens even once the list has dropped it.
    Q_INVOKABLE void openRow(const QString& threadID);
    Q_INVOKABLE void selectTab(const QString& threadID);
    Q_INVOKABLE void closeTab(const QString& threadID);
    Q_INVOKABLE void renameSession(const QString& threadID, const QString& name);
    Q_INVOKABLE void archiveSession(const QString& threadID);
    Q_INVOKABLE void forkSession(const QString& threadID);
    Q_INVOKABLE QString archiveQuestion(const QString& title) const;
    Q_INVOKABLE void showNewSession();
    // Closes the sheet; with create, after asking for the session.
    Q_INVOKABLE void dismissNewSession(bool create);

    // The empty page offers the offline tour while Codex is not found, until the tour runs.
    bool offersTour() const;
    void setCodexMissing(bool missing);
    // Starts the offline tour with its sample sessions.
    Q_INVOKABLE void startTour();

signals:
    void tabsChanged();
    void newSessionChanged();
    void tourChanged();

private:
    void updateThreadRows();
    void updateTabs();

    CodexWorkspace& m_workspace;
    SessionActivityPreference m_preference;
    ViewClock m_clock;
    RecordListModel m_threadRows;
    std::map<QString, CodexThread> m_rowThreads; // the thread of each row shown
    RecordListModel m_tabs;
    UsageStatusButtonViewModel m_accountUsage;
    MacSessionViewModel m_session;
    NewBridgeSessionViewModel* m_newSession = nullptr; // a child while the sheet is open
    bool m_codexMissing = false;
};

} // namespace nimbrel
