#include "workspace/UnifiedDiff.h"

#include <gtest/gtest.h>

using namespace nimbrel;

namespace {

using Kind = DiffLine::Kind;
using Change = DiffFile::Change;

struct Expected {
    QString path;
    QString oldPath;
    Change change;
    int added;
    int removed;
    std::size_t hunks;
};

void expectFiles(const QString& diff, const std::vector<Expected>& expected)
{
    const std::vector<DiffFile> files = parseUnifiedDiff(diff);
    ASSERT_EQ(files.size(), expected.size()) << diff.toStdString();
    for (std::size_t i = 0; i < files.size(); ++i) {
        EXPECT_EQ(files[i].path, expected[i].path) << i;
        EXPECT_EQ(files[i].oldPath, expected[i].oldPath) << i;
        EXPECT_EQ(files[i].change, expected[i].change) << i;
        EXPECT_EQ(files[i].added, expected[i].added) << i;
        EXPECT_EQ(files[i].removed, expected[i].removed) << i;
        EXPECT_EQ(files[i].hunks.size(), expected[i].hunks) << i;
    }
}

} // namespace

TEST(UnifiedDiff, FilesOfEveryKindWithTheirCounts)
{
    expectFiles("diff --git a/hello.txt b/hello.txt\nnew file mode 100644\nindex 0000000..3b18e51\n"
                "--- /dev/null\n+++ b/hello.txt\n@@ -0,0 +1 @@\n+hello world\n",
                {{"hello.txt", "", Change::Added, 1, 0, 1}});
    expectFiles("diff --git a/old.txt b/old.txt\ndeleted file mode 100644\n--- a/old.txt\n"
                "+++ /dev/null\n@@ -1,2 +0,0 @@\n-one\n-two\n",
                {{"old.txt", "", Change::Deleted, 0, 2, 1}});
    expectFiles("diff --git a/a.c b/b.c\nsimilarity index 90%\nrename from a.c\nrename to b.c\n"
                "--- a/a.c\n+++ b/b.c\n@@ -1 +1 @@\n-x\n+y\n",
                {{"b.c", "a.c", Change::Renamed, 1, 1, 1}});
    expectFiles("diff --git a/logo.png b/logo.png\nindex 1..2 100644\n"
                "Binary files a/logo.png and b/logo.png differ\n",
                {{"logo.png", "", Change::Binary, 0, 0, 0}});
    // Without git's first line; two hunks.
    expectFiles("--- a/Makefile\n+++ b/Makefile\n@@ -1,3 +1,3 @@\n all:\n-CFLAGS=-O0\n+CFLAGS=-O2\n"
                " end\n@@ -10 +10,2 @@\n x\n+y\n",
                {{"Makefile", "", Change::Modified, 2, 1, 2}});
}

// Lines that look like headers inside a hunk are its lines: the header's counts say where it ends.
TEST(UnifiedDiff, HunksEndWhereTheirCountsSay)
{
    const std::vector<DiffFile> files =
        parseUnifiedDiff(u"diff --git a/n.md b/n.md\n--- a/n.md\n+++ b/n.md\n@@ -1,3 +1,3 @@\n"
                         "--- a rule\n+++ a plus\n \n\\ No newline at end of file\n"
                         "diff --git a/m.md b/m.md\n--- a/m.md\n+++ b/m.md\n@@ -1 +1 @@\n-a\n+b\n");
    ASSERT_EQ(files.size(), 2u);
    const std::vector<DiffLine> lines{{Kind::Removed, "-- a rule"},
                                      {Kind::Added, "++ a plus"},
                                      {Kind::Context, ""},
                                      {Kind::Note, "\\ No newline at end of file"}};
    ASSERT_EQ(files[0].hunks.size(), 1u);
    EXPECT_EQ(files[0].hunks[0].lines, lines);
    EXPECT_EQ(files[0].hunks[0].header, "@@ -1,3 +1,3 @@");
    EXPECT_EQ(files[1].path, "m.md");
}

TEST(UnifiedDiff, NonsenseGivesNoFiles)
{
    for (const char* text : {"", "hello\nworld\n", "@@ -1 +1 @@\n+x\n", "diff --git\n", "+++ \n"})
        EXPECT_TRUE(parseUnifiedDiff(QString::fromLatin1(text)).empty()) << text;
}
