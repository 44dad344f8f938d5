#pragma once

#include "ui/common/RecordListModel.h"
#include "workspace/UnifiedDiff.h"

#include <QColor>

#include <set>

class QTextDocument;

namespace nimbrel {

// How a turn's diff is shown: a card at the end of the turn with its files and counts, each file's
// diff folded until the user opens it, a long one shortened like long output.

inline constexpr int diffLineLimit = 400;
inline constexpr int diffLineHead = 300;
inline constexpr int diffLineTail = 100;
// A line longer than this shows its start and "…".
inline constexpr int diffLineWidthLimit = 1000;

// "2 files changed", "1 file changed".
QString changedFilesText(std::size_t count);
// "+12 −4"
QString lineCountsText(int added, int removed);
// "added", "deleted", "renamed from <old>", "binary", or nothing for a modified file.
QString fileChangeText(const DiffFile& file);

// The lines of an open file's diff as the view shows them: each a map of kind ("hunk", "added",
// "removed", "context" or "notice") and text (with its marker).
struct DiffLines {
    QVariantList lines;
    QString toggleLabel; // empty: the diff is short enough to show whole
    friend bool operator==(const DiffLines&, const DiffLines&) = default;
};
DiffLines diffLines(const DiffFile& file, bool showsFullDiff);

// The lines into document in their colours (added and removed lines on a light shade of theirs),
// replacing what it held.
void writeDiffLines(QTextDocument& document, const QVariantList& lines, const QColor& added,
                    const QColor& removed, const QColor& hunk);

// One turn's card while it is on the page: the files of its newest diff, as rows keyed by path,
// and which files the user opened or unfolded.
class ChangesCard {
public:
    static const QList<QByteArray> roles;

    void show(const QString& diff);
    // Opens a closed file and closes an open one; expand only opens.
    void toggleFile(const QString& path);
    void expandFile(const QString& path);
    void toggleFullDiff(const QString& path);

    RecordListModel* files() { return &m_rows; }
    const std::vector<DiffFile>& parsed() const { return m_files; }
    QString summary() const;

private:
    void refresh();

    QString m_diff;
    std::vector<DiffFile> m_files;
    std::set<QString> m_expanded;
    std::set<QString> m_fullDiffs;
    RecordListModel m_rows{roles};
};

} // namespace nimbrel
