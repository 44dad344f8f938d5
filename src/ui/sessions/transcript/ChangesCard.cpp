#include "ChangesCard.h"

#include "ui/sessions/transcript/TranscriptPresentation.h"

#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
#include <QVariantMap>

namespace nimbrel {

namespace {

QVariantMap lineValue(const QString& kind, const QString& text)
{
    return {{QStringLiteral("kind"), kind}, {QStringLiteral("text"), text}};
}

QVariantMap lineValue(const DiffLine& line)
{
    QString text = line.text.size() > diffLineWidthLimit
                       ? line.text.first(diffLineWidthLimit) + QStringLiteral("…")
                       : line.text;
    switch (line.kind) {
    case DiffLine::Kind::Added:
        return lineValue(QStringLiteral("added"), QLatin1Char('+') + text);
    case DiffLine::Kind::Removed:
        return lineValue(QStringLiteral("removed"), QLatin1Char('-') + text);
    case DiffLine::Kind::Note:
        return lineValue(QStringLiteral("notice"), text);
    case DiffLine::Kind::Context:
        break;
    }
    return lineValue(QStringLiteral("context"), QLatin1Char(' ') + text);
}

} // namespace

const QList<QByteArray> ChangesCard::roles = {
    "path",     "changeText", "countsText", "addedText",   "removedText",
    "expanded", "chevron",    "lines",      "toggleLabel", "accessibilityID"};

QString changedFilesText(std::size_t count)
{
    return count == 1 ? QStringLiteral("1 file changed")
                      : QString::number(count) + QStringLiteral(" files changed");
}

QString lineCountsText(int added, int removed)
{
    return QStringLiteral("+%1 −%2").arg(added).arg(removed);
}

QString fileChangeText(const DiffFile& file)
{
    switch (file.change) {
    case DiffFile::Change::Added:
        return QStringLiteral("added");
    case DiffFile::Change::Deleted:
        return QStringLiteral("deleted");
    case DiffFile::Change::Renamed:
        return QStringLiteral("renamed from ") + file.oldPath;
    case DiffFile::Change::Binary:
        return QStringLiteral("binary");
    case DiffFile::Change::Modified:
        break;
    }
    return {};
}

DiffLines diffLines(const DiffFile& file, bool showsFullDiff)
{
    std::vector<QVariantMap> all;
    for (const DiffHunk& hunk : file.hunks) {
        all.push_back(lineValue(QStringLiteral("hunk"), hunk.header));
        for (const DiffLine& line : hunk.lines)
            all.push_back(lineValue(line));
    }
    DiffLines shown;
    const bool long_ = all.size() > static_cast<std::size_t>(diffLineLimit);
    if (long_)
        shown.toggleLabel =
            showsFullDiff ? QStringLiteral("Collapse diff") : QStringLiteral("Show complete diff");
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (long_ && !showsFullDiff && i >= static_cast<std::size_t>(diffLineHead) &&
            i < all.size() - diffLineTail) {
            if (i == static_cast<std::size_t>(diffLineHead))
                shown.lines.append(lineValue(QStringLiteral("notice"), shortenedOutputNotice()));
            continue;
        }
        shown.lines.append(all[i]);
    }
    return shown;
}

void writeDiffLines(QTextDocument& document, const QVariantList& lines, const QColor& added,
                    const QColor& removed, const QColor& hunk)
{
    document.clear();
    QTextCursor cursor(&document);
    bool first = true;
    for (const QVariant& value : lines) {
        const QVariantMap line = value.toMap();
        const QString kind = line.value(QStringLiteral("kind")).toString();
        QTextBlockFormat block;
        QTextCharFormat characters;
        // The line's colour, and a lighter shade of it behind its characters.
        if (kind == QLatin1String("added") || kind == QLatin1String("removed")) {
            const QColor colour = kind == QLatin1String("added") ? added : removed;
            QColor shade = colour;
            shade.setAlpha(0x2e);
            characters.setForeground(colour);
            characters.setBackground(shade);
        } else if (kind == QLatin1String("hunk"))
            characters.setForeground(hunk);
        else if (kind == QLatin1String("notice"))
            characters.setFontItalic(true);
        if (first)
            cursor.setBlockFormat(block);
        else
            cursor.insertBlock(block);
        first = false;
        cursor.insertText(line.value(QStringLiteral("text")).toString(), characters);
    }
}

void ChangesCard::show(const QString& diff)
{
    // The session's own copy comes back on every refresh: the same text is known without reading
    // it.
    const bool same =
        (diff.constData() == m_diff.constData() && diff.size() == m_diff.size()) || diff == m_diff;
    if (same && !m_files.empty())
        return;
    m_diff = diff;
    m_files = parseUnifiedDiff(diff);
    refresh();
}

void ChangesCard::toggleFile(const QString& path)
{
    if (!m_expanded.erase(path))
        m_expanded.insert(path);
    refresh();
}

void ChangesCard::expandFile(const QString& path)
{
    m_expanded.insert(path);
    refresh();
}

void ChangesCard::toggleFullDiff(const QString& path)
{
    if (!m_fullDiffs.erase(path))
        m_fullDiffs.insert(path);
    refresh();
}

QString ChangesCard::summary() const
{
    int added = 0, removed = 0;
    for (const DiffFile& file : m_files) {
        added += file.added;
        removed += file.removed;
    }
    return changedFilesText(m_files.size()) + QStringLiteral("  ") + lineCountsText(added, removed);
}

void ChangesCard::refresh()
{
    QList<ListRecord> rows;
    for (std::size_t index = 0; index < m_files.size(); ++index) {
        const DiffFile& file = m_files[index];
        const bool expanded = m_expanded.contains(file.path);
        const DiffLines lines =
            expanded ? diffLines(file, m_fullDiffs.contains(file.path)) : DiffLines();
        rows.append(
            {QStringLiteral("file:") + file.path,
             {file.path, fileChangeText(file), lineCountsText(file.added, file.removed),
              QStringLiteral("+%1").arg(file.added), QStringLiteral("−%1").arg(file.removed),
              expanded, expanded ? QStringLiteral("go-down") : QStringLiteral("go-next"),
              lines.lines, lines.toggleLabel,
              QStringLiteral("changes-file-") + QString::number(index)}});
    }
    m_rows.setRecords(rows);
}

} // namespace nimbrel
