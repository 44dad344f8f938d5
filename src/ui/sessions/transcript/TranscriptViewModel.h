#pragma once

#include "ui/common/RecordListModel.h"
#include "ui/sessions/markdown/MarkdownActions.h"
#include "ui/sessions/markdown/MarkdownCard.h"
#include "ui/sessions/transcript/TranscriptPresentation.h"

#include <QObject>

#include <map>
#include <memory>
#include <set>

namespace nimbrel {

class CodexWorkspace;
class SessionActivityPreference;

// The visible page of one session's transcript as the window lays it out, pageOffset entries behind
// the newest: one row per group header and per card,
// the cards of a collapsed group left out, each card's output already shortened. Rows are keyed by
// block and entry, so a delta touches only the card it grew. Which groups the user folded and which
// outputs they unfolded live here, as long as the rows do.
class TranscriptViewModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(nimbrel::RecordListModel* rows READ rows CONSTANT)
    Q_PROPERTY(bool showsActivityStrip READ showsActivityStrip NOTIFY stripChanged)
    Q_PROPERTY(QString activityStripText READ activityStripText NOTIFY stripChanged)
    Q_PROPERTY(QString liveText READ liveText CONSTANT)
    Q_PROPERTY(nimbrel::MarkdownActions* markdown READ markdown CONSTANT)

public:
    // Roles of a row. rowType is "header" or "card"; a card inside a group has inGroup; a card
    // shown as Markdown has its blocks (a list model), others none.
    static const QList<QByteArray> roles;

    TranscriptViewModel(CodexWorkspace& workspace, SessionActivityPreference& preference,
                        QString threadID, QObject* parent = nullptr);

    RecordListModel* rows() { return &m_rows; }
    qint64 pageOffset() const { return m_pageOffset; }
    void setPageOffset(qint64 offset);
    bool showsActivityStrip() const;
    QString activityStripText() const;
    static QString liveText() { return QStringLiteral("LIVE"); }
    MarkdownActions* markdown() { return &m_markdown; }

    // A group's header pressed, by the id of its block; a card's output button, by its entry.
    Q_INVOKABLE void toggleGroup(const QString& blockID);
    Q_INVOKABLE void toggleFullText(const QString& entryID);

signals:
    void stripChanged();
    // The session changed what the page shows (not a fold or unfold of the user's).
    void pageContentChanged();

private:
    struct CachedOutput {
        TranscriptEntry entry;
        bool isStreaming = false;
        bool showsFullText = false;
        TranscriptOutput output;
    };

    // Returns whether the rows changed.
    bool refresh();
    ListRecord cardRow(const TranscriptEntry& entry, TurnControlState::Phase phase, bool inGroup,
                       std::map<QString, CachedOutput>& outputs);

    CodexWorkspace& m_workspace;
    SessionActivityPreference& m_preference;
    QString m_threadID;
    qint64 m_pageOffset = 0;
    RecordListModel m_rows{roles};
    std::map<QString, bool> m_groupOverrides;
    std::set<QString> m_fullTextEntries;
    std::map<QString, CachedOutput> m_outputs;
    std::map<QString, std::unique_ptr<MarkdownCard>> m_markdownCards;
    MarkdownActions m_markdown;
};

} // namespace nimbrel
