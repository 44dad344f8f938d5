#pragma once

#include <QString>
#include <QStringView>

#include <vector>

namespace nimbrel {

// A unified diff (as `git diff` writes it) split into files, each with its hunks and counts.

struct DiffLine {
    enum class Kind { Context, Added, Removed, Note };
    Kind kind = Kind::Context;
    QString text; // without its leading marker
    friend bool operator==(const DiffLine&, const DiffLine&) = default;
};

struct DiffHunk {
    QString header; // the "@@ -1,3 +1,4 @@ …" line
    std::vector<DiffLine> lines;
    friend bool operator==(const DiffHunk&, const DiffHunk&) = default;
};

struct DiffFile {
    enum class Change { Modified, Added, Deleted, Renamed, Binary };
    QString path;    // the new path, or the old one for a deleted file
    QString oldPath; // where it differs from path
    Change change = Change::Modified;
    int added = 0;
    int removed = 0;
    std::vector<DiffHunk> hunks;
    friend bool operator==(const DiffFile&, const DiffFile&) = default;
};

// Lines outside any file or hunk are passed over; a hunk ends where its header's counts say.
std::vector<DiffFile> parseUnifiedDiff(QStringView diff);

} // namespace nimbrel
