#include "BridgeWorkspaceViewModel.h"

#include "platform/DateFormatting.h"
#include "platform/TextFormatting.h"
#include "ui/sessions/SessionPresentation.h"
#include "workspace/CodexWorkspace.h"

#include <utility>

namespace nimbrel {

BridgeWorkspaceViewModel::BridgeWorkspaceViewModel(CodexWorkspace& workspace, Scheduler& scheduler,
                                                   UserDefaults& defaults, QObject* parent)
    : QObject(parent)
    , m_workspace(workspace)
    , m_preference(defaults)
    , m_clock(scheduler, relativeDateInterval)
    , m_threadRows(
          {"threadID", "title", "dotTint", "busy", "folder", "source", "updated", "selected"})
    , m_tabs({"threadID", "title", "dotTint", "selected", "closeEnabled"})
    , m_accountUsage(workspace, scheduler, std::nullopt, false)
    , m_session(workspace, scheduler, m_preference)
{
    for (auto signal : {&CodexWorkspace::filteredThreadsChanged, &CodexWorkspace::threadsChanged,
                        &CodexWorkspace::selectedThreadIDChanged})
        connect(&workspace, signal, this, &BridgeWorkspaceViewModel::updateThreadRows);
    for (auto signal : {&CodexWorkspace::openThreadIDsChanged, &CodexWorkspace::threadsChanged,
                        &CodexWorkspace::selectedThreadIDChanged})
        connect(&workspace, signal, this, &BridgeWorkspaceViewModel::updateTabs);
    // A session's phase and questions colour its row and its tab.
    connect(&workspace, &CodexWorkspace::sessionChanged, this, [this] {
        updateThreadRows();
        updateTabs();
    });
    connect(&m_clock, &ViewClock::ticked, this, &BridgeWorkspaceViewModel::updateThreadRows);
    connect(&workspace, &CodexWorkspace::isDemoModeChanged, this,
            &BridgeWorkspaceViewModel::tourChanged);
    updateThreadRows();
    updateTabs();
}

QVariantMap BridgeWorkspaceViewModel::texts()
{
    return {
        {"newSession", QStringLiteral("New Session")},
        {"newSessionSymbol", QStringLiteral("list-add-symbolic")},
        {"refresh", QStringLiteral("Refresh")},
        {"refreshSymbol", QStringLiteral("view-refresh-symbolic")},
        {"search", QStringLiteral("Search sessions or folders")},
        {"close", QStringLiteral("Close")},
        {"closeSymbol", QStringLiteral("window-close-symbolic")},
        {"emptySymbol", QStringLiteral("tab-new-symbolic")},
        {"emptyTitle", QStringLiteral("Open a Codex session")},
        {"emptyText", QStringLiteral("Each session is an independent workspace. Start work here, "
                                     "then continue the same conversation from the browser cockpit "
                                     "on your phone or tablet.")},
        {"tourText", QStringLiteral("Codex was not found on this computer. The offline tour opens "
                                    "sample sessions to read, page and send to, without Codex.")},
        {"tourButton", QStringLiteral("Take the Offline Tour")},
        {"tourSymbol", QStringLiteral("media-playback-start")},
        {"actions", QStringLiteral("Session Actions")},
        {"actionsSymbol", QStringLiteral("document-properties-symbolic")},
        {"rename", QStringLiteral("Rename…")},
        {"renameSymbol", QStringLiteral("insert-text-symbolic")},
        {"renameTitle", QStringLiteral("Rename Session")},
        {"renameConfirm", QStringLiteral("Rename")},
        {"namePlaceholder", QStringLiteral("Session name")},
        {"fork", QStringLiteral("Fork")},
        {"forkSymbol", QStringLiteral("edit-copy-symbolic")},
        {"archive", QStringLiteral("Archive…")},
        {"archiveSymbol", QStringLiteral("folder-symbolic")},
        {"archiveConfirm", QStringLiteral("Archive")},
        {"archiveText",
         QStringLiteral("The session leaves the list here and in the browser cockpit. "
                        "Codex keeps it in its archive.")},
        {"cancel", QStringLiteral("Cancel")}};
}

void BridgeWorkspaceViewModel::updateThreadRows()
{
    const std::optional<QString>& selected = m_workspace.selectedThreadID();
    QList<ListRecord> rows;
    m_rowThreads.clear();
    for (const CodexThread& thread : m_workspace.filteredThreads()) {
        m_rowThreads[thread.id] = thread;
        const CodexSessionState* state = m_workspace.session(thread.id);
        const TurnControlState::Phase phase =
            state ? state->turnControl.phase : TurnControlState::Phase::Idle;
        rows.append({thread.id,
                     {thread.id, thread.title, threadDotTint(thread, phase),
                      phase != TurnControlState::Phase::Idle, threadFolderText(thread.cwd),
                      thread.source.toUpper(), formatRelativeDate(thread.updatedAt, m_clock.now()),
                      selected == thread.id}});
    }
    m_threadRows.setRecords(rows);
}

void BridgeWorkspaceViewModel::updateTabs()
{
    const std::optional<QString>& selected = m_workspace.selectedThreadID();
    QList<ListRecord> rows;
    static const CodexSessionState unopened;
    for (const CodexThread& thread : m_workspace.openThreads()) {
        // Read in place: a copy would copy the whole transcript on every delta.
        const CodexSessionState* found = m_workspace.session(thread.id);
        const CodexSessionState& state = found ? *found : unopened;
        rows.append({thread.id,
                     {thread.id, thread.title, tabDotTint(state), selected == thread.id,
                      state.turnControl.phase == TurnControlState::Phase::Idle}});
    }
    m_tabs.setRecords(rows);
    emit tabsChanged();
}

int BridgeWorkspaceViewModel::selectedTab() const
{
    const std::optional<QString>& selected = m_workspace.selectedThreadID();
    return selected ? m_tabs.rowOf(*selected) : -1;
}

void BridgeWorkspaceViewModel::refresh()
{
    m_workspace.refreshThreads();
}

void BridgeWorkspaceViewModel::openRow(const QString& threadID)
{
    const auto found = m_rowThreads.find(threadID);
    if (found == m_rowThreads.end())
        return;
    m_workspace.rememberThread(found->second);
    m_workspace.openThread(threadID);
}

void BridgeWorkspaceViewModel::selectTab(const QString& threadID)
{
    m_workspace.selectThread(threadID);
}

void BridgeWorkspaceViewModel::closeTab(const QString& threadID)
{
    const CodexSessionState* state = m_workspace.session(threadID);
    if (state && state->turnControl.phase != TurnControlState::Phase::Idle)
        return;
    m_workspace.closeTab(threadID);
}

void BridgeWorkspaceViewModel::renameSession(const QString& threadID, const QString& name)
{
    m_workspace.renameThread(threadID, name);
}

void BridgeWorkspaceViewModel::archiveSession(const QString& threadID)
{
    m_workspace.archiveThread(threadID);
}

void BridgeWorkspaceViewModel::forkSession(const QString& threadID)
{
    m_workspace.forkThread(threadID);
}

QString BridgeWorkspaceViewModel::archiveQuestion(const QString& title) const
{
    return QStringLiteral("Archive “%1”?").arg(truncatedToCharacters(title, 60));
}

void BridgeWorkspaceViewModel::showNewSession()
{
    if (m_newSession)
        return;
    m_newSession = new NewBridgeSessionViewModel(m_workspace, this);
    emit newSessionChanged();
}

void BridgeWorkspaceViewModel::dismissNewSession(bool create)
{
    if (!m_newSession)
        return;
    if (create)
        m_newSession->create();
    // The sheet's view may still read it until this event is done.
    std::exchange(m_newSession, nullptr)->deleteLater();
    emit newSessionChanged();
}

bool BridgeWorkspaceViewModel::offersTour() const
{
    return m_codexMissing && !m_workspace.isDemoMode();
}

void BridgeWorkspaceViewModel::setCodexMissing(bool missing)
{
    if (missing == m_codexMissing)
        return;
    m_codexMissing = missing;
    emit tourChanged();
}

void BridgeWorkspaceViewModel::startTour()
{
    m_workspace.setDemoMode(true);
    m_workspace.seedDemoSessions();
}

} // namespace nimbrel
