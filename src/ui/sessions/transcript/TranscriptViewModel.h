#pragma once

#include "ui/common/RecordListModel.h"
#include "ui/common/WindowPalette.h"
#include "ui/sessions/markdown/MarkdownActions.h"
#include "ui/sessions/markdown/MarkdownCard.h"
#include "ui/sessions/transcript/ChangesCard.h"
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
    Q_PROPERTY(QString previousPartText READ previousPartText CONSTANT)
    Q_PROPERTY(QString nextPartText READ nextPartText CONSTANT)

public:
    // Roles of a row. rowType is "header", "card" or "changes"; a card inside a group has inGroup;
    // a card shown as Markdown has its blocks (a list model), a changes card its files (a list
    // model, entryID its turn), others none. A file change card links to its files in a turn's
    // changes: links, a list of maps of label, symbol, turnID and path. A user's card has its
    // images (see transcriptImages). A long settled answer shows a part at a time: partText says
    // which, previousPart and nextPart are the parts its buttons show (-1: no button).
    static const QList<QByteArray> roles;

    TranscriptViewModel(CodexWorkspace& workspace, SessionActivityPreference& preference,
                        QString threadID, QObject* parent = nullptr);

    RecordListModel* rows() { return &m_rows; }
    qint64 pageOffset() const { return m_pageOffset; }
    void setPageOffset(qint64 offset);
    bool showsActivityStrip() const;
    QString activityStripText() const;
    static QString liveText() { return QStringLiteral("LIVE"); }
    static QString previousPartText() { return QStringLiteral("Previous part"); }
    static QString nextPartText() { return QStringLiteral("Next part"); }
    MarkdownActions* markdown() { return &m_markdown; }

    // A group's header pressed, by the id of its block; a card's output button, by its entry.
    Q_INVOKABLE void toggleGroup(const QString& blockID);
    Q_INVOKABLE void toggleFullText(const QString& entryID);
    // A long answer's part shown, once the user asked for the complete answer.
    Q_INVOKABLE void showAnswerPart(const QString& entryID, int part);
    // A file of a turn's changes opened or closed, its long diff unfolded or folded.
    Q_INVOKABLE void toggleChangedFile(const QString& turnID, const QString& path);
    Q_INVOKABLE void toggleFullDiff(const QString& turnID, const QString& path);
    // A file change card's link: the file opens in its turn's changes, and the view is asked to
    // bring it into sight.
    Q_INVOKABLE void revealChange(const QString& turnID, const QString& path);
    // A file's open diff into a text item's document (a QQuickTextDocument), coloured.
    Q_INVOKABLE void writeDiff(QObject* target, const QVariantList& lines) const;

signals:
    void stripChanged();
    // The session changed what the page shows (not a fold or unfold of the user's).
    void pageContentChanged();
    // The item with this objectName should be scrolled into sight.
    void revealRequested(const QString& objectName);

private:
    struct CachedOutput {
        TranscriptEntry entry;
        bool isStreaming = false;
        bool showsFullText = false;
        int part = 0;
        TranscriptOutput output;
    };

    // Returns whether the rows changed.
    bool refresh();
    ListRecord cardRow(const TranscriptEntry& entry, TurnControlState::Phase phase, bool inGroup,
                       std::map<QString, CachedOutput>& outputs,
                       const std::vector<TurnDiff>& diffs);
    ListRecord changesRow(const TurnDiff& diff);

    CodexWorkspace& m_workspace;
    SessionActivityPreference& m_preference;
    QString m_threadID;
    qint64 m_pageOffset = 0;
    RecordListModel m_rows{roles};
    std::map<QString, bool> m_groupOverrides;
    std::set<QString> m_fullTextEntries;
    std::map<QString, int> m_answerParts; // long answers paged through, by entry: the part shown
    bool m_blocksChanged = false; // a refresh showed some answer's blocks anew
    std::map<QString, CachedOutput> m_outputs;
    std::map<QString, std::unique_ptr<MarkdownCard>> m_markdownCards;
    std::map<QString, std::unique_ptr<ChangesCard>> m_changesCards; // by turn
    MarkdownActions m_markdown;
    WindowPalette m_palette;
};

} // namespace nimbrel
