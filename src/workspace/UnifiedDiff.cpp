#include "UnifiedDiff.h"

#include <QRegularExpression>

namespace nimbrel {

namespace {

// A path as the diff's header writes it: "a/" or "b/" dropped, /dev/null read as none.
QString headerPath(QStringView text)
{
    QStringView path = text.trimmed();
    if (const qsizetype tab = path.indexOf(QLatin1Char('\t')); tab >= 0)
        path = path.first(tab);
    if (path == QLatin1String("/dev/null"))
        return {};
    if (path.startsWith(QLatin1String("a/")) || path.startsWith(QLatin1String("b/")))
        path = path.sliced(2);
    return path.toString();
}

struct HunkCounts {
    qint64 oldLines = 0;
    qint64 newLines = 0;
};

std::optional<HunkCounts> hunkCounts(QStringView line)
{
    static const QRegularExpression header(
        QStringLiteral("^@@ -\\d+(?:,(\\d+))? \\+\\d+(?:,(\\d+))? @@"));
    const QRegularExpressionMatch match = header.match(line);
    if (!match.hasMatch())
        return std::nullopt;
    const auto count = [&](int group) {
        return match.capturedView(group).isEmpty() ? 1 : match.capturedView(group).toLongLong();
    };
    return HunkCounts{count(1), count(2)};
}

} // namespace

std::vector<DiffFile> parseUnifiedDiff(QStringView diff)
{
    std::vector<DiffFile> files;
    HunkCounts remaining;
    const auto inHunk = [&] { return remaining.oldLines > 0 || remaining.newLines > 0; };
    const auto file = [&]() -> DiffFile& {
        if (files.empty())
            files.emplace_back();
        return files.back();
    };
    qsizetype start = 0;
    while (start < diff.size()) {
        qsizetype end = diff.indexOf(QLatin1Char('\n'), start);
        if (end < 0)
            end = diff.size();
        QStringView line = diff.sliced(start, end - start);
        if (line.endsWith(QLatin1Char('\r')))
            line.chop(1);
        start = end + 1;

        if (inHunk() && !files.empty() && !files.back().hunks.empty()) {
            DiffHunk& hunk = files.back().hunks.back();
            const QChar marker = line.isEmpty() ? QLatin1Char(' ') : line[0];
            const QString text = line.isEmpty() ? QString() : line.sliced(1).toString();
            if (marker == QLatin1Char('+')) {
                hunk.lines.push_back({DiffLine::Kind::Added, text});
                ++files.back().added;
                --remaining.newLines;
                continue;
            }
            if (marker == QLatin1Char('-')) {
                hunk.lines.push_back({DiffLine::Kind::Removed, text});
                ++files.back().removed;
                --remaining.oldLines;
                continue;
            }
            if (marker == QLatin1Char(' ')) {
                hunk.lines.push_back({DiffLine::Kind::Context, text});
                --remaining.oldLines;
                --remaining.newLines;
                continue;
            }
            if (marker == QLatin1Char('\\')) {
                hunk.lines.push_back({DiffLine::Kind::Note, line.toString()});
                continue;
            }
            remaining = {}; // a short hunk: what follows is read afresh
        }
        // "\ No newline at end of file" right after a hunk's last line belongs to it.
        if (line.startsWith(QLatin1Char('\\')) && !files.empty() && !files.back().hunks.empty()) {
            files.back().hunks.back().lines.push_back({DiffLine::Kind::Note, line.toString()});
            continue;
        }
        if (line.startsWith(QLatin1String("diff --git "))) {
            DiffFile next;
            // "diff --git a/x b/x": the new path is the second half, where the halves match.
            const QStringView paths = line.sliced(11);
            const qsizetype middle = paths.indexOf(QLatin1String(" b/"));
            if (middle >= 0) {
                next.oldPath = headerPath(paths.first(middle));
                next.path = headerPath(paths.sliced(middle + 1));
            }
            files.push_back(std::move(next));
        } else if (line.startsWith(QLatin1String("--- "))) {
            // A diff without git's first line starts its file here.
            if (files.empty() || !files.back().hunks.empty())
                files.emplace_back();
            const QString old = headerPath(line.sliced(4));
            if (old.isEmpty())
                file().change = DiffFile::Change::Added;
            else
                file().oldPath = old;
        } else if (line.startsWith(QLatin1String("+++ "))) {
            const QString path = headerPath(line.sliced(4));
            if (path.isEmpty())
                file().change = DiffFile::Change::Deleted;
            else
                file().path = path;
        } else if (line.startsWith(QLatin1String("new file mode"))) {
            file().change = DiffFile::Change::Added;
        } else if (line.startsWith(QLatin1String("deleted file mode"))) {
            file().change = DiffFile::Change::Deleted;
        } else if (line.startsWith(QLatin1String("rename from "))) {
            file().oldPath = line.sliced(12).toString();
            file().change = DiffFile::Change::Renamed;
        } else if (line.startsWith(QLatin1String("rename to "))) {
            file().path = line.sliced(10).toString();
            file().change = DiffFile::Change::Renamed;
        } else if (line.startsWith(QLatin1String("Binary files ")) ||
                   line.startsWith(QLatin1String("GIT binary patch"))) {
            file().change = DiffFile::Change::Binary;
        } else if (const std::optional<HunkCounts> counts = hunkCounts(line)) {
            file().hunks.push_back({line.toString(), {}});
            remaining = *counts;
        }
    }
    for (DiffFile& each : files) {
        if (each.path.isEmpty())
            each.path = each.oldPath;
        if (each.oldPath == each.path)
            each.oldPath.clear();
    }
    std::erase_if(files, [](const DiffFile& each) { return each.path.isEmpty(); });
    return files;
}

} // namespace nimbrel
