#include "platform/TextFormatting.h"
#include "support/ScriptedWorkspace.h"
#include "ui/sessions/UserInputRequestViewModel.h"
#include "ui/sessions/transcript/SessionActivityPreference.h"
#include "ui/sessions/transcript/TranscriptViewModel.h"

#include <QAbstractItemModelTester>
#include <QSignalSpy>

#include <gtest/gtest.h>

using namespace nimbrel;
using namespace nimbrel::test;

namespace {

TranscriptEntry entry(const char* id, TranscriptKind kind, const QString& text,
                      std::optional<QString> status = {})
{
    return {id, kind, QStringLiteral("Title"), text, std::move(status), std::nullopt, {}};
}

const QString settledMarker =
    QStringLiteral("\n\n… output shortened to keep this conversation responsive …\n\n");
const QString liveMarker = QStringLiteral("… showing latest live output …\n\n");

// Clusters that a careless cut would split: a flag, a family, a letter with a combining mark, and
// plain letters, whose pairs let the cuts read only a window of the text.
QStringList clustersOf(int count)
{
    const QStringList kinds = {
        QStringLiteral("\U0001F1EB\U0001F1F7"),
        QStringLiteral("\U0001F468\u200D\U0001F469\u200D\U0001F467\u200D\U0001F466"),
        QStringLiteral("e\u0301"), QStringLiteral("a"), QStringLiteral("b")};
    QStringList clusters;
    for (int i = 0; i < count; ++i)
        clusters.append(kinds[(i * 7 / 3) % kinds.size()]);
    return clusters;
}

} // namespace

TEST(TranscriptOutput, ShortensAtTheLimitsOfEachState)
{
    const QString settled4000(4000, QLatin1Char('x'));
    EXPECT_EQ(transcriptOutput(entry("e", TranscriptKind::Command, settled4000), false, false),
              (TranscriptOutput{settled4000, false, true, {}}));
    const QString text4001 = QString(3000, 'h') + QString(1, 'm') + QString(1000, 't');
    EXPECT_EQ(transcriptOutput(entry("e", TranscriptKind::Assistant, text4001), false, false),
              (TranscriptOutput{QString(3000, 'h') + settledMarker + QString(1000, 't'), false,
                                false, "Show complete output"}));
    const QString live2000(2000, 'x');
    EXPECT_EQ(
        transcriptOutput(entry("e", TranscriptKind::Command, live2000), true, false).toggleLabel,
        "");
    const QString live2001 = QStringLiteral("y") + live2000;
    EXPECT_EQ(transcriptOutput(entry("e", TranscriptKind::Command, live2001), true, false).text,
              liveMarker + live2000);
    EXPECT_EQ(transcriptOutput(entry("e", TranscriptKind::Command, live2001), true, true),
              (TranscriptOutput{live2001, false, true, "Collapse output"}));

    EXPECT_EQ(transcriptOutput(entry("r", TranscriptKind::Reasoning, ""), true, false),
              (TranscriptOutput{"Waiting for a thinking summary…", true, false, {}}));
    EXPECT_EQ(transcriptOutput(entry("r", TranscriptKind::Reasoning, ""), false, false).text,
              "No summary text is available for this step.");
    EXPECT_EQ(transcriptOutput(entry("a", TranscriptKind::Assistant, ""), false, false),
              TranscriptOutput{});
}

TEST(TranscriptOutput, AMegabyteIsCutBetweenUserPerceivedCharacters)
{
    const QStringList clusters = clustersOf(200000);
    const QString text = clusters.join(QString());
    ASSERT_GT(text.size(), 500000);
    const QStringList head = clusters.mid(0, 3000), tail = clusters.mid(clusters.size() - 1000);
    EXPECT_EQ(transcriptOutput(entry("e", TranscriptKind::Command, text), false, false).text,
              head.join(QString()) + settledMarker + tail.join(QString()));
    EXPECT_EQ(transcriptOutput(entry("e", TranscriptKind::Command, text), true, false).text,
              liveMarker + clusters.mid(clusters.size() - 2000).join(QString()));
    // Without a pair of plain letters anywhere, the cuts read the whole text and stay right.
    const QString noPlainPairs =
        QString(QStringLiteral("e\u0301\U0001F1EB\U0001F1F7")).repeated(3000);
    EXPECT_EQ(lastCharacters(noPlainPairs, 3),
              QStringLiteral("\U0001F1EB\U0001F1F7e\u0301\U0001F1EB\U0001F1F7"));
    EXPECT_EQ(characterCount(firstCharacters(noPlainPairs, 4001)), 4001);
    EXPECT_FALSE(hasMoreCharactersThan(noPlainPairs, 6000));
}

TEST(TranscriptOutput, OnlyWorkInProgressDuringATurnStreams)
{
    const TranscriptEntry stored =
        entry("c", TranscriptKind::Command, "make", QStringLiteral("inProgress"));
    EXPECT_FALSE(entryIsStreaming(stored, TurnControlState::Phase::Idle));
    EXPECT_TRUE(entryIsStreaming(stored, TurnControlState::Phase::Running));
    EXPECT_FALSE(
        entryIsStreaming(entry("c", TranscriptKind::Command, "make", QStringLiteral("completed")),
                         TurnControlState::Phase::Running));
    EXPECT_FALSE(entryIsStreaming(entry("c", TranscriptKind::Command, "make"),
                                  TurnControlState::Phase::Running));
}

class TranscriptViewModelTest : public ScriptedWorkspace {
protected:
    TranscriptViewModelTest()
    {
        workspace.changeSession("s", [](CodexSessionState& session) {
            session.transcript = {entry("u1", TranscriptKind::User, "Fix the build"),
                                  entry("c1", TranscriptKind::Command, "make"),
                                  entry("r1", TranscriptKind::Reasoning, "Looking"),
                                  entry("a1", TranscriptKind::Assistant, "Done")};
        });
    }
    QStringList rowKeys()
    {
        QStringList keys;
        for (const ListRecord& row : view.rows()->records())
            keys.append(row.key);
        return keys;
    }
    void append(const TranscriptEntry& added)
    {
        workspace.changeSession(
            "s", [&](CodexSessionState& session) { session.transcript.push_back(added); });
    }

    SessionActivityPreference preference{defaults};
    TranscriptViewModel view{workspace, preference, "s"};
    QAbstractItemModelTester tester{view.rows(),
                                    QAbstractItemModelTester::FailureReportingMode::Fatal};
};

TEST_F(TranscriptViewModelTest, GroupsFoldByThemselvesUntilTheGlobalControlOverrulesThem)
{
    EXPECT_EQ(rowKeys(), QStringList({"card:u1", "header:c1", "card:c1", "card:r1", "card:a1"}));
    EXPECT_EQ(view.rows()->value(1, "updatesText"), "2 updates");
    EXPECT_EQ(view.rows()->value(1, "accessibilityID"), "processing-c1");

    view.toggleGroup("c1");
    EXPECT_EQ(rowKeys(), QStringList({"card:u1", "header:c1", "card:a1"}));
    EXPECT_EQ(view.rows()->value(1, "accessibilityValue"), "Collapsed");
    // A collapsed group stays collapsed as its block grows.
    workspace.changeSession("s", [](CodexSessionState& session) {
        session.transcript.insert(session.transcript.begin() + 3,
                                  entry("c2", TranscriptKind::Command, "ls"));
    });
    EXPECT_EQ(rowKeys(), QStringList({"card:u1", "header:c1", "card:a1"}));
    EXPECT_EQ(view.rows()->value(1, "updatesText"), "3 updates");

    preference.toggle();
    preference.toggle();
    EXPECT_EQ(rowKeys().size(), 6) << "the global control clears every group's own choice";
    EXPECT_EQ(defaults.value(SessionActivityPreference::key), true);

    preference.setExpanded(false);
    append(entry("c3", TranscriptKind::Command, "ls"));
    EXPECT_EQ(rowKeys(), QStringList({"card:u1", "header:c1", "card:a1", "header:c3"}));
    EXPECT_EQ(preference.buttonText(), "Expand activity");
}

TEST_F(TranscriptViewModelTest, ALiveDeltaChangesOnlyItsCardAndTheStripFollowsThePhase)
{
    QSignalSpy changed(view.rows(), &QAbstractItemModel::dataChanged);
    QSignalSpy inserted(view.rows(), &QAbstractItemModel::rowsInserted);
    workspace.changeSession("s", [](CodexSessionState& session) {
        session.transcript.back().text += QStringLiteral(" and tested");
        session.turnControl.phase = TurnControlState::Phase::Running;
    });
    // An answer's delta changes its blocks (see below), none of the page's rows.
    EXPECT_EQ(changed.size(), 0);
    EXPECT_EQ(inserted.size(), 0);
    EXPECT_TRUE(view.showsActivityStrip());
    EXPECT_EQ(view.activityStripText(), "Codex is working…");
    workspace.changeSession("s", [](CodexSessionState& session) {
        session.activityText = QStringLiteral("Running tests");
        session.turnControl.phase = TurnControlState::Phase::Stopping;
    });
    EXPECT_EQ(view.activityStripText(), "Stopping Codex…");

    // A long output unfolds on request, and folds again.
    append(entry("c9", TranscriptKind::Command, QString(5000, 'x')));
    const int last = view.rows()->rowCount() - 1;
    EXPECT_EQ(view.rows()->value(last, "toggleLabel"), "Show complete output");
    view.toggleFullText("c9");
    EXPECT_EQ(view.rows()->value(last, "text").toString().size(), 5000);
    EXPECT_EQ(view.rows()->value(last, "toggleLabel"), "Collapse output");
}

TEST_F(TranscriptViewModelTest, AnswersShowAsMarkdownBlocksThatChangeOneByOne)
{
    const int answer = view.rows()->rowOf("card:a1");
    EXPECT_EQ(view.rows()->value(view.rows()->rowOf("card:c1"), "blocks").value<QObject*>(),
              nullptr);
    auto* blocks =
        qobject_cast<RecordListModel*>(view.rows()->value(answer, "blocks").value<QObject*>());
    ASSERT_NE(blocks, nullptr);
    QAbstractItemModelTester blockTester{blocks,
                                         QAbstractItemModelTester::FailureReportingMode::Fatal};
    workspace.changeSession("s", [](CodexSessionState& session) {
        session.turnControl.phase = TurnControlState::Phase::Running;
        session.transcript.back().status = QStringLiteral("running");
        session.transcript.back().text = QStringLiteral("# Done\n\n- built\n- tested\n\nAll");
    });
    EXPECT_EQ(blocks->rowCount(), 4);
    EXPECT_EQ(blocks->value(0, "blockType"), "heading");
    EXPECT_EQ(blocks->value(1, "marker"), "•");
    EXPECT_EQ(blocks->value(3, "plainText"), "All");
    // Nesting however deep is drawn at most six levels in.
    workspace.changeSession("s", [](CodexSessionState& session) {
        session.transcript.back().text = QString(500, '>') + QStringLiteral(" deep");
    });
    EXPECT_EQ(blocks->value(0, "quoteDepth"), 6);
    workspace.changeSession("s", [](CodexSessionState& session) {
        session.transcript.back().text = QStringLiteral("# Done\n\n- built\n- tested\n\nAll");
    });

    // A delta touches only the block it grew.
    QSignalSpy changed(blocks, &QAbstractItemModel::dataChanged);
    QSignalSpy reset(blocks, &QAbstractItemModel::modelReset);
    QSignalSpy inserted(blocks, &QAbstractItemModel::rowsInserted);
    workspace.changeSession(
        "s", [](CodexSessionState& session) { session.transcript.back().text += " green."; });
    ASSERT_EQ(changed.size(), 1);
    EXPECT_EQ(changed.front().at(0).toModelIndex().row(), 3);
    EXPECT_EQ(blocks->value(3, "plainText"), "All green.");
    EXPECT_EQ(reset.size() + inserted.size(), 0);

    // Past the live limit, the newest blocks show after a notice.
    workspace.changeSession("s", [](CodexSessionState& session) {
        for (int i = 0; i < 100; ++i)
            session.transcript.back().text +=
                QStringLiteral("\n\nParagraph %1 of the answer.").arg(i);
    });
    EXPECT_EQ(blocks->value(0, "blockType"), "notice");
    EXPECT_EQ(blocks->value(0, "plainText"), "… showing latest live output …");
    EXPECT_EQ(blocks->value(blocks->rowCount() - 1, "plainText"), "Paragraph 99 of the answer.");
    EXPECT_LT(blocks->rowCount(), 80);
}

TEST(MarkdownParts, CutWhereABlockBeginsElseAtALineASpaceOrTheBudget)
{
    const struct {
        QString text;
        qsizetype budget;
        QStringList parts;
    } cases[] = {
        {"short", 10, {"short"}},
        {"one\n\ntwo\n\nthree four", 12, {"one\n\ntwo\n\n", "three four"}},
        {"```\na\n\nb\n```\n\nafter the fence", 16, {"```\na\n\nb\n```\n\n", "after the fence"}},
        {"line one\nline two\nline three", 20, {"line one\nline two\n", "line three"}},
        {"words without breaks", 10, {"words ", "without ", "breaks"}},
        {QStringLiteral("ab\U0001F600cd"), 3, {"ab", QStringLiteral("\U0001F600c"), "d"}},
    };
    for (const auto& [text, budget, parts] : cases) {
        const std::vector<qsizetype> starts = markdownParts(text, budget);
        QStringList cut;
        for (std::size_t i = 0; i < starts.size(); ++i)
            cut.append(text.sliced(
                starts[i], (i + 1 < starts.size() ? starts[i + 1] : text.size()) - starts[i]));
        EXPECT_EQ(cut, parts) << text.toStdString();
    }
}

TEST_F(TranscriptViewModelTest, ALongAnswerShowsAPartAtATimeAndALongLiveTailShowsPlain)
{
    // A megabyte in one paragraph, then in many: a part of at most the budget shows either way.
    const QString sentence = QStringLiteral("The build passes after the header changed. ");
    for (const QString& text : {sentence.repeated(24000), (sentence + "\n\n").repeated(23000)}) {
        workspace.changeSession(
            "s", [&](CodexSessionState& session) { session.transcript.back().text = text; });
        const int answer = view.rows()->rowOf("card:a1");
        auto* blocks =
            qobject_cast<RecordListModel*>(view.rows()->value(answer, "blocks").value<QObject*>());
        ASSERT_NE(blocks, nullptr);
        qsizetype shown = 0;
        for (int row = 0; row < blocks->rowCount(); ++row)
            shown += blocks->value(row, "plainText").toString().size();
        EXPECT_LE(shown, markdownPartBudget);
        EXPECT_GT(shown, markdownPartBudget / 2);
        EXPECT_EQ(view.rows()->value(answer, "text"), QString());
        EXPECT_EQ(view.rows()->value(answer, "toggleLabel"), "Show complete answer");
        EXPECT_TRUE(
            view.rows()->value(answer, "partText").toString().startsWith("Showing the first "))
            << view.rows()->value(answer, "partText").toString().toStdString();
    }
    // The complete answer, part by part, from the second.
    const int answer = view.rows()->rowOf("card:a1");
    view.toggleFullText("a1");
    EXPECT_EQ(view.rows()->value(answer, "partText"), "Part 2 of 173");
    EXPECT_EQ(view.rows()->value(answer, "previousPart"), 0);
    EXPECT_EQ(view.rows()->value(answer, "nextPart"), 2);
    EXPECT_EQ(view.rows()->value(answer, "toggleLabel"), "Collapse answer");
    view.showAnswerPart("a1", 172);
    EXPECT_EQ(view.rows()->value(answer, "partText"), "Part 173 of 173");
    EXPECT_EQ(view.rows()->value(answer, "nextPart"), -1);
    view.toggleFullText("a1");
    EXPECT_EQ(view.rows()->value(answer, "toggleLabel"), "Show complete answer");

    // Streaming, a block too long to read again on each delta shows its newest characters plain.
    workspace.changeSession("s", [&](CodexSessionState& session) {
        session.turnControl.phase = TurnControlState::Phase::Running;
        session.transcript.back().status = QStringLiteral("running");
        session.transcript.back().text = QStringLiteral("*a").repeated(40000);
    });
    auto* blocks =
        qobject_cast<RecordListModel*>(view.rows()->value(answer, "blocks").value<QObject*>());
    ASSERT_EQ(blocks->rowCount(), 2);
    EXPECT_EQ(blocks->value(0, "blockType"), "notice");
    EXPECT_EQ(blocks->value(1, "plainText"), QStringLiteral("*a").repeated(1000));
    EXPECT_EQ(view.rows()->value(answer, "toggleLabel"), QString());
}

TEST_F(TranscriptViewModelTest, ATurnsChangesFollowItsEntriesAndFileChangesLinkToThem)
{
    const char* diff = "diff --git a/src/a.c b/src/a.c\n--- a/src/a.c\n+++ b/src/a.c\n"
                       "@@ -1 +1,2 @@\n-x\n+y\n+z\n";
    workspace.changeSession("s", [&](CodexSessionState& session) {
        session.transcript.insert(session.transcript.begin() + 2,
                                  entry("f1", TranscriptKind::FileChange, "/work/src/a.c\n+y"));
        session.turnDiffs = {{"T1", diff, QString("c1")}, {"T2", diff, std::nullopt}};
    });
    // T1 after its group (c1, f1, r1), T2 after the newest entry while its turn runs.
    EXPECT_EQ(rowKeys(), QStringList({"card:u1", "header:c1", "card:c1", "card:f1", "card:r1",
                                      "changes:T1", "card:a1", "changes:T2"}));
    const int changes = view.rows()->rowOf("changes:T1");
    EXPECT_EQ(view.rows()->value(changes, "text"), "1 file changed  +2 −1");
    auto* files =
        qobject_cast<RecordListModel*>(view.rows()->value(changes, "blocks").value<QObject*>());
    ASSERT_NE(files, nullptr);
    EXPECT_EQ(files->value(0, "path"), "src/a.c");
    EXPECT_FALSE(files->value(0, "expanded").toBool());

    // The file change links to the newest turn that changed its file; following it opens the file.
    const QVariantList links = view.rows()->value(view.rows()->rowOf("card:f1"), "links").toList();
    ASSERT_EQ(links.size(), 1);
    EXPECT_EQ(links[0].toMap()["turnID"], "T2");
    EXPECT_EQ(links[0].toMap()["path"], "src/a.c");
    QSignalSpy revealed(&view, &TranscriptViewModel::revealRequested);
    view.revealChange("T2", "src/a.c");
    ASSERT_EQ(revealed.size(), 1);
    EXPECT_EQ(revealed.front().front(), "changes-file-0-T2");
    auto* newest = qobject_cast<RecordListModel*>(
        view.rows()->value(view.rows()->rowOf("changes:T2"), "blocks").value<QObject*>());
    EXPECT_TRUE(newest->value(0, "expanded").toBool());
    EXPECT_EQ(newest->value(0, "lines").toList().size(), 4);
}

TEST_F(TranscriptViewModelTest, OnlyLinksToTheWebOrMailOpenAndOnlyWhenAsked)
{
    QStringList opened;
    view.markdown()->setOpener([&](const QUrl& url) {
        opened.append(url.toString());
        return true;
    });
    for (const char* refused : {"javascript:alert(1)", "file:///etc/passwd", "data:text/html,x",
                                "vbscript:x", "https://"})
        EXPECT_FALSE(view.markdown()->openLink(QString::fromLatin1(refused))) << refused;
    EXPECT_TRUE(view.markdown()->openLink("https://example.com/a?b=1"));
    EXPECT_TRUE(view.markdown()->openLink("mailto:ada@example.com"));
    EXPECT_EQ(opened, QStringList({"https://example.com/a?b=1", "mailto:ada@example.com"}));
}

class QuestionCardTest : public ScriptedWorkspace {
protected:
    QuestionCardTest()
    {
        UserInputRequest request{"q-1", "s", "t", {}, false};
        request.questions.push_back(
            {"db", "Storage", "Which database?",
             std::vector<UserInputQuestion::Option>{{"Postgres", "Server"}, {"SQLite", ""}},
             std::nullopt});
        request.questions.push_back({"key", "", "API key?", std::nullopt, true});
        workspace.addUserInputPrompt(request);
    }
    QVariantList rows(int question) { return card.questions()->value(question, "rows").toList(); }

    UserInputRequestViewModel card{workspace, "s", "q-1"};
};

TEST_F(QuestionCardTest, RowsAreOneRadioGroupThatKeepsTheOtherChoice)
{
    EXPECT_EQ(card.title(), "A question for you");
    ASSERT_EQ(rows(0).size(), 3);
    EXPECT_EQ(rows(0).at(2).toMap().value("label"), "Write a response…");
    EXPECT_EQ(rows(0).at(1).toMap().value("accessibilityID"), "question-db-option-1");
    EXPECT_FALSE(card.questions()->value(0, "showsField").toBool());
    EXPECT_TRUE(card.questions()->value(1, "showsField").toBool());
    EXPECT_TRUE(card.questions()->value(1, "isSecret").toBool());
    EXPECT_TRUE(rows(1).isEmpty());

    card.choose("db", 1);
    EXPECT_TRUE(rows(0).at(1).toMap().value("selected").toBool());
    EXPECT_FALSE(card.canSend()) << "the second question has no answer yet";
    card.choose("db", -1);
    EXPECT_TRUE(card.questions()->value(0, "showsField").toBool());
    card.setText("db", "Both");
    card.choose("db", 1); // the option comes back, and the written text stays in the draft
    EXPECT_TRUE(rows(0).at(1).toMap().value("selected").toBool());
    EXPECT_EQ(card.questions()->value(0, "text"), "Both");
    card.setText("key", "sk-1");
    EXPECT_TRUE(card.canSend());
    EXPECT_EQ(card.sendText(), "Send answer");
    EXPECT_EQ(card.submitID(), "question-submit-q-1");
}
