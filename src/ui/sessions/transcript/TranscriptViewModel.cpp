#include "TranscriptViewModel.h"

#include "ui/sessions/transcript/SessionActivityPreference.h"
#include "workspace/CodexWorkspace.h"
#include "workspace/SessionParsers.h"

#include <QLocale>
#include <QQuickTextDocument>

#include <span>
#include <utility>

namespace nimbrel {

const QList<QByteArray> TranscriptViewModel::roles = {
    "rowType",         "entryID",      "blockID",     "title",    "status",
    "symbol",          "accent",       "text",        "muted",    "monospaced",
    "toggleLabel",     "inGroup",      "updatesText", "expanded", "accessibilityValue",
    "accessibilityID", "chevron",      "blocks",      "links",    "images",
    "partText",        "previousPart", "nextPart"};

TranscriptViewModel::TranscriptViewModel(CodexWorkspace& workspace,
                                         SessionActivityPreference& preference, QString threadID,
                                         QObject* parent)
    : QObject(parent)
    , m_workspace(workspace)
    , m_preference(preference)
    , m_threadID(std::move(threadID))
    , m_markdown(this)
{
    connect(&m_workspace, &CodexWorkspace::sessionChanged, this, [this](const QString& id) {
        if (id == m_threadID && refresh())
            emit pageContentChanged();
    });
    // The global control overrules every choice made for a single group.
    connect(&m_preference, &SessionActivityPreference::expandedChanged, this, [this] {
        m_groupOverrides.clear();
        refresh();
    });
    refresh();
}

bool TranscriptViewModel::showsActivityStrip() const
{
    const CodexSessionState* state = m_workspace.session(m_threadID);
    return state && nimbrel::showsActivityStrip(*state);
}

QString TranscriptViewModel::activityStripText() const
{
    const CodexSessionState* state = m_workspace.session(m_threadID);
    return state ? nimbrel::activityStripText(*state) : QString();
}

void TranscriptViewModel::toggleGroup(const QString& blockID)
{
    const int row = m_rows.rowOf(QStringLiteral("header:") + blockID);
    if (row < 0)
        return;
    m_groupOverrides[blockID] = !m_rows.value(row, "expanded").toBool();
    refresh();
}

void TranscriptViewModel::toggleFullText(const QString& entryID)
{
    // A long answer's complete text is paged through, from its second part.
    const auto card = m_markdownCards.find(entryID);
    if (card != m_markdownCards.end() && card->second->partCount() > 1) {
        if (!m_answerParts.erase(entryID))
            m_answerParts[entryID] = 1;
    } else if (!m_fullTextEntries.erase(entryID)) {
        m_fullTextEntries.insert(entryID);
    }
    refresh();
}

void TranscriptViewModel::showAnswerPart(const QString& entryID, int part)
{
    const auto card = m_markdownCards.find(entryID);
    if (card == m_markdownCards.end() || part < 0 || part >= card->second->partCount())
        return;
    m_answerParts[entryID] = part;
    refresh();
}

namespace {

// The files of the turns' diffs that a file change entry names, newest turn first, each once.
QVariantList changeLinks(const TranscriptEntry& entry, const std::vector<TurnDiff>& diffs,
                         const std::map<QString, std::unique_ptr<ChangesCard>>& cards)
{
    QVariantList links;
    if (entry.kind != TranscriptKind::FileChange)
        return links;
    const QStringList lines = entry.text.split(QLatin1Char('\n'));
    QSet<QString> linked;
    for (auto diff = diffs.rbegin(); diff != diffs.rend(); ++diff) {
        const auto card = cards.find(diff->turnID);
        if (card == cards.end())
            continue;
        for (const DiffFile& file : card->second->parsed()) {
            const bool named = std::any_of(lines.begin(), lines.end(), [&](const QString& line) {
                return line == file.path || line.endsWith(QLatin1Char('/') + file.path);
            });
            if (!named || linked.contains(file.path))
                continue;
            linked.insert(file.path);
            links.append(QVariantMap{{QStringLiteral("label"), file.path},
                                     {QStringLiteral("symbol"), QStringLiteral("go-jump")},
                                     {QStringLiteral("turnID"), diff->turnID},
                                     {QStringLiteral("path"), file.path}});
        }
    }
    return links;
}

} // namespace

void TranscriptViewModel::toggleChangedFile(const QString& turnID, const QString& path)
{
    if (const auto card = m_changesCards.find(turnID); card != m_changesCards.end())
        card->second->toggleFile(path);
}

void TranscriptViewModel::toggleFullDiff(const QString& turnID, const QString& path)
{
    if (const auto card = m_changesCards.find(turnID); card != m_changesCards.end())
        card->second->toggleFullDiff(path);
}

void TranscriptViewModel::revealChange(const QString& turnID, const QString& path)
{
    const auto card = m_changesCards.find(turnID);
    if (card == m_changesCards.end())
        return;
    card->second->expandFile(path);
    const int row = card->second->files()->rowOf(QStringLiteral("file:") + path);
    if (row >= 0)
        emit revealRequested(card->second->files()->value(row, "accessibilityID").toString() +
                             QStringLiteral("-") + turnID);
}

void TranscriptViewModel::writeDiff(QObject* target, const QVariantList& lines) const
{
    auto* quickDocument = qobject_cast<QQuickTextDocument*>(target);
    if (quickDocument && quickDocument->textDocument())
        writeDiffLines(*quickDocument->textDocument(), lines, m_palette.color("added"),
                       m_palette.color("removed"), m_palette.color("hunk"));
}

ListRecord TranscriptViewModel::changesRow(const TurnDiff& diff)
{
    std::unique_ptr<ChangesCard>& card = m_changesCards[diff.turnID];
    if (!card)
        card = std::make_unique<ChangesCard>();
    card->show(diff.diff);
    return {QStringLiteral("changes:") + diff.turnID,
            {QStringLiteral("changes"),
             diff.turnID,
             QString(),
             QStringLiteral("Changes"),
             QString(),
             QStringLiteral("document-edit"),
             QStringLiteral("green"),
             card->summary(),
             false,
             false,
             QString(),
             false,
             QString(),
             false,
             QString(),
             QStringLiteral("changes-") + diff.turnID,
             QString(),
             QVariant::fromValue<QObject*>(card->files()),
             QVariantList(),
             QVariantList(),
             QString(),
             -1,
             -1}};
}

ListRecord TranscriptViewModel::cardRow(const TranscriptEntry& entry, TurnControlState::Phase phase,
                                        bool inGroup, std::map<QString, CachedOutput>& outputs,
                                        const std::vector<TurnDiff>& diffs)
{
    const bool streaming = entryIsStreaming(entry, phase);
    const bool full = m_fullTextEntries.contains(entry.id);
    // An entry that did not change keeps its shortened output: only the growing card is cut anew.
    auto cached = m_outputs.find(entry.id);
    MarkdownCard* markdown = nullptr;
    if (rendersMarkdown(entry)) {
        std::unique_ptr<MarkdownCard>& card = m_markdownCards[entry.id];
        if (!card) {
            card = std::make_unique<MarkdownCard>();
            cached = m_outputs.end();
        }
        markdown = card.get();
    }
    const auto paged = m_answerParts.find(entry.id);
    const int part = markdown && !streaming && paged != m_answerParts.end() ? paged->second : 0;
    const bool changed = cached == m_outputs.end() || cached->second.isStreaming != streaming ||
                         cached->second.showsFullText != full || cached->second.part != part ||
                         !(cached->second.entry == entry);
    // A copy: showing the Markdown reaches QML, which may redraw and replace m_outputs.
    CachedOutput current =
        changed
            ? CachedOutput{entry, streaming, full, part,
                           markdown ? TranscriptOutput() : transcriptOutput(entry, streaming, full)}
            : cached->second;
    if (changed && markdown) {
        // An answer shows as its blocks, within their bounds: a live one its newest blocks, a
        // settled one a part at a time.
        markdown->show(entry.combinedText(), streaming, full, part);
        m_blocksChanged = true;
        if (!streaming && markdown->partCount() > 1)
            current.output.toggleLabel = paged != m_answerParts.end()
                                             ? QStringLiteral("Collapse answer")
                                             : QStringLiteral("Show complete answer");
    }
    if (changed)
        m_outputs.insert_or_assign(entry.id, current);
    outputs.insert_or_assign(entry.id, current);
    const TranscriptOutput& output = current.output;
    QString partText;
    int previousPart = -1;
    int nextPart = -1;
    if (markdown && !streaming && markdown->partCount() > 1) {
        const QLocale locale(QLocale::English);
        if (paged == m_answerParts.end()) {
            partText = QStringLiteral("Showing the first %1 of %2 characters.")
                           .arg(locale.toString(markdown->partStart(1)),
                                locale.toString(markdown->textSize()));
        } else {
            partText = QStringLiteral("Part %1 of %2").arg(part + 1).arg(markdown->partCount());
            previousPart = part - 1;
            nextPart = part + 1 < markdown->partCount() ? part + 1 : -1;
        }
    }
    const TranscriptCardStyle style = transcriptCardStyle(entry.kind);
    return {QStringLiteral("card:") + entry.id,
            {QStringLiteral("card"),
             entry.id,
             QString(),
             entry.title,
             entry.status.value_or(QString()).toUpper(),
             style.symbol,
             style.accent,
             output.text,
             output.muted,
             output.monospaced,
             output.toggleLabel,
             inGroup,
             QString(),
             false,
             QString(),
             QString(),
             QString(),
             QVariant::fromValue<QObject*>(markdown ? markdown->blocks() : nullptr),
             changeLinks(entry, diffs, m_changesCards),
             transcriptImages(entry),
             partText,
             previousPart,
             nextPart}};
}

void TranscriptViewModel::setPageOffset(qint64 offset)
{
    if (offset == m_pageOffset)
        return;
    m_pageOffset = offset;
    refresh();
}

bool TranscriptViewModel::refresh()
{
    emit stripChanged();
    const CodexSessionState* state = m_workspace.session(m_threadID);
    if (!state) {
        const bool changed = !m_rows.records().isEmpty();
        m_rows.setRecords({});
        return changed;
    }
    const TranscriptPage page =
        transcriptPage(static_cast<qsizetype>(state->transcript.size()), m_pageOffset);
    const std::span<const TranscriptEntry> entries =
        std::span(state->transcript).subspan(page.start, page.end - page.start);
    const TurnControlState::Phase phase = state->turnControl.phase;

    // Each turn's changes follow the entry that was newest when it ended; a running turn's follow
    // the newest entry, when this page shows it.
    std::map<QString, std::vector<const TurnDiff*>> changesAfter;
    for (const TurnDiff& diff : state->turnDiffs) {
        if (diff.afterEntryID)
            changesAfter[*diff.afterEntryID].push_back(&diff);
        else if (!state->transcript.empty() && page.end == qsizetype(state->transcript.size()))
            changesAfter[state->transcript.back().id].push_back(&diff);
    }
    // The cards of every turn's changes the session holds stay, so that file change cards can link
    // to them; the others go once no row shows them.
    for (const TurnDiff& diff : state->turnDiffs) {
        std::unique_ptr<ChangesCard>& card = m_changesCards[diff.turnID];
        if (!card)
            card = std::make_unique<ChangesCard>();
        card->show(diff.diff);
    }

    QList<ListRecord> rows;
    std::map<QString, CachedOutput> outputs;
    std::map<QString, bool> overrides;
    const auto appendChanges = [&](const TranscriptBlock& block) {
        for (const TranscriptEntry& entry : block.entries)
            if (const auto found = changesAfter.find(entry.id); found != changesAfter.end())
                for (const TurnDiff* diff : found->second)
                    rows.append(changesRow(*diff));
    };
    for (const TranscriptBlock& block : groupTranscriptBlocks(entries)) {
        if (!block.entries.front().isActivity()) {
            for (const TranscriptEntry& entry : block.entries)
                rows.append(cardRow(entry, phase, false, outputs, state->turnDiffs));
            appendChanges(block);
            continue;
        }
        std::optional<bool> override;
        if (const auto found = m_groupOverrides.find(block.id()); found != m_groupOverrides.end()) {
            override = found->second;
            overrides.insert(*found);
        }
        const bool expanded = activityGroupExpanded(override, m_preference.expanded());
        rows.append({QStringLiteral("header:") + block.id(),
                     {QStringLiteral("header"),
                      QString(),
                      block.id(),
                      QStringLiteral("Processing"),
                      QString(),
                      SessionActivityPreference::symbol(),
                      QString(),
                      QString(),
                      false,
                      false,
                      QString(),
                      false,
                      activityUpdatesText(block.entries.size()),
                      expanded,
                      expansionValue(expanded),
                      QStringLiteral("processing-") + block.id(),
                      expanded ? QStringLiteral("go-down") : QStringLiteral("go-next"),
                      QVariant::fromValue<QObject*>(nullptr),
                      QVariantList(),
                      QVariantList(),
                      QString(),
                      -1,
                      -1}});
        if (expanded)
            for (const TranscriptEntry& entry : block.entries)
                rows.append(cardRow(entry, phase, true, outputs, state->turnDiffs));
        appendChanges(block);
    }
    // What left the rows leaves the view's memory: its overrides and its unfolded outputs.
    m_outputs = std::move(outputs);
    m_groupOverrides = std::move(overrides);
    std::erase_if(m_fullTextEntries, [&](const QString& id) { return !m_outputs.contains(id); });
    std::erase_if(m_answerParts,
                  [&](const auto& paged) { return !m_outputs.contains(paged.first); });

    // An answer's delta changes its blocks, not the rows: the page's content changed all the same.
    const bool changed = std::exchange(m_blocksChanged, false) || rows != m_rows.records();
    m_rows.setRecords(rows);
    // A card's blocks go once no row shows them.
    std::erase_if(m_markdownCards,
                  [&](const auto& card) { return !m_outputs.contains(card.first); });
    std::erase_if(m_changesCards, [&](const auto& card) {
        return std::none_of(state->turnDiffs.begin(), state->turnDiffs.end(),
                            [&](const TurnDiff& diff) { return diff.turnID == card.first; });
    });
    return changed;
}

} // namespace nimbrel
