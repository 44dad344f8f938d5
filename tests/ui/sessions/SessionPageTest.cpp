#include "support/ScriptedWorkspace.h"
#include "ui/sessions/BridgeWorkspaceViewModel.h"
#include "ui/sessions/SessionPresentation.h"
#include "ui/sessions/transcript/TranscriptPresentation.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

using namespace nimbrel;
using namespace nimbrel::test;

namespace {

using Phase = TurnControlState::Phase;

// An engine page of items, newest first, numbered from..down to; more names the cursor of the next.
JSONValue itemsPage(int from, int down, const char* more)
{
    std::vector<JSONValue> items;
    for (int number = from; number >= down; --number)
        items.push_back(JSONValue::object(
            {{"item", JSONValue::object({{"type", "agentMessage"},
                                         {"id", "item-" + std::to_string(number)},
                                         {"text", "message " + std::to_string(number)}})}}));
    return JSONValue::object({{"data", JSONValue::array(std::move(items))},
                              {"nextCursor", more ? JSONValue(more) : JSONValue()}});
}

class SessionPageTest : public ScriptedWorkspace {
protected:
    SessionPageTest()
        : page(workspace, scheduler, defaults)
        , session(*page.sessionView())
    {
        workspace.rememberThread({"thr_1", "Fix the build", "", "", "cli", "idle", 0, {}, {}});
        workspace.openThread("thr_1");
    }

    // The ids of the cards on the page, oldest first.
    QStringList shownEntries()
    {
        QStringList ids;
        RecordListModel* rows = session.transcriptView()->rows();
        for (int row = 0; row < rows->rowCount(); ++row)
            if (rows->value(row, "rowType") == "card")
                ids.append(rows->value(row, "entryID").toString());
        return ids;
    }
    void setPhase(Phase phase, std::optional<QString> turnID = std::nullopt)
    {
        workspace.changeSession("thr_1", [&](CodexSessionState& state) {
            state.turnControl.phase = phase;
            state.turnControl.turnID = turnID;
        });
    }
    void appendToLast(const QString& text)
    {
        workspace.changeSession(
            "thr_1", [&](CodexSessionState& state) { state.transcript.back().text += text; });
    }

    BridgeWorkspaceViewModel page;
    MacSessionViewModel& session;
};

} // namespace

TEST(TranscriptPaging, PagesCountFromTheNewestEnd)
{
    EXPECT_EQ(transcriptPage(45, 0), (TranscriptPage{25, 45}));
    EXPECT_EQ(transcriptPage(45, 20), (TranscriptPage{5, 25}));
    EXPECT_EQ(transcriptPage(45, 40), (TranscriptPage{0, 5}));
    EXPECT_EQ(transcriptPage(45, 60), (TranscriptPage{0, 0}));
    EXPECT_EQ(transcriptPage(10, -5), (TranscriptPage{0, 10}));
    EXPECT_TRUE(showsEarlierOutput(45, 20, false));
    EXPECT_FALSE(showsEarlierOutput(45, 40, false));
    EXPECT_TRUE(showsEarlierOutput(45, 40, true));
}

TEST(SessionDots, WorkQuestionsAndStatusColourRowsAndTabs)
{
    CodexThread thread{"t", "T", "", "", "cli", "systemError", 0, {}, {}};
    EXPECT_EQ(threadDotTint(thread, Phase::Running), "green");
    EXPECT_EQ(threadDotTint(thread, Phase::Idle), "red");
    thread.status = "SystemError";
    EXPECT_EQ(threadDotTint(thread, Phase::Idle), "mutedCyan");
    thread.status = "active";
    EXPECT_EQ(threadDotTint(thread, Phase::Idle), "green");

    CodexSessionState state;
    state.turnControl.phase = Phase::Running;
    EXPECT_EQ(tabDotTint(state), "green");
    state.userInputPrompts.push_back({});
    EXPECT_EQ(tabDotTint(state), "orange");
    EXPECT_EQ(threadFolderText(""), "Home folder");
    EXPECT_EQ(threadFolderText("/srv/app"), "/srv/app");
    EXPECT_EQ(headerFolderText(""), QDir::homePath());
}

TEST_F(SessionPageTest, PagesOfTwentyAndEarlierOutputFromTheEngine)
{
    ASSERT_TRUE(session.present());
    EXPECT_EQ(session.stateKind(), "loading");
    engine.last("thread/items/list").completion(itemsPage(45, 36, "35"));
    EXPECT_EQ(shownEntries().size(), 10);
    EXPECT_TRUE(session.showsEarlier());

    // Ten in memory and more on the engine: the press asks at once, and the page moves onto the
    // eight that arrive and the two oldest before them.
    session.showEarlier();
    EXPECT_EQ(engine.count("thread/items/list"), 2);
    EXPECT_FALSE(session.earlierEnabled());
    EXPECT_EQ(session.earlierText(), "Loading earlier output…");
    engine.last("thread/items/list").completion(itemsPage(35, 28, "27"));
    EXPECT_EQ(session.pageOffset(), 8);
    EXPECT_EQ(shownEntries().first(), "item-28");
    EXPECT_EQ(shownEntries().last(), "item-37");

    session.followLive();
    session.showEarlier();
    engine.last("thread/items/list").completion(itemsPage(27, 1, nullptr));
    ASSERT_EQ(session.pageOffset(), 27);
    session.followLive();
    EXPECT_EQ(shownEntries().first(), "item-26");
    session.showEarlier();
    EXPECT_EQ(shownEntries().first(), "item-6");
    session.showEarlier();
    EXPECT_EQ(shownEntries(), (QStringList{"item-1", "item-2", "item-3", "item-4", "item-5"}));
    EXPECT_FALSE(session.showsEarlier());
    session.showNewer();
    session.showNewer();
    EXPECT_EQ(session.pageOffset(), 0);
    EXPECT_FALSE(session.showsNewer());
}

TEST_F(SessionPageTest, FollowsLiveOutputUntilTheUserScrollsAway)
{
    engine.last("thread/items/list").completion(itemsPage(45, 1, nullptr));
    QSignalSpy scrolls(&session, &MacSessionViewModel::scrollRequested);
    const auto scrolledToBottom = [&] {
        const bool scrolled = !scrolls.isEmpty() && scrolls.last().at(0) == "bottom";
        scrolls.clear();
        return scrolled;
    };
    setPhase(Phase::Running, "turn-1");
    EXPECT_TRUE(scrolledToBottom());
    appendToLast("x");
    EXPECT_TRUE(scrolledToBottom());

    session.userMoved(-9);
    EXPECT_TRUE(session.followsLiveOutput());
    session.userMoved(-10);
    EXPECT_TRUE(session.showsFollowLive());
    appendToLast("y");
    EXPECT_FALSE(scrolledToBottom());
    // The next turn that starts on the newest page follows again by itself.
    setPhase(Phase::Idle);
    setPhase(Phase::Running, "turn-2");
    EXPECT_TRUE(scrolledToBottom());
    EXPECT_FALSE(session.showsFollowLive());

    // Reading an older page, new output and a new turn leave the scroll position alone.
    session.showEarlier();
    scrolls.clear();
    setPhase(Phase::Idle);
    setPhase(Phase::Running, "turn-3");
    appendToLast("z");
    EXPECT_TRUE(scrolls.isEmpty());
    EXPECT_EQ(session.pageOffset(), 20);

    // A question brings the newest page back.
    UserInputRequest request{"q-1", "thr_1", "turn-2", {}, false};
    request.questions.push_back({"q", "", "Which one?", std::nullopt, std::nullopt});
    workspace.addUserInputPrompt(request);
    EXPECT_EQ(session.pageOffset(), 0);
    EXPECT_TRUE(session.followsLiveOutput());
    EXPECT_TRUE(scrolledToBottom());
    EXPECT_EQ(session.questions().size(), 1);
}

TEST_F(SessionPageTest, ComposerSendsOrSteersInThePhasesThatTakeAMessage)
{
    engine.last("thread/items/list").completion(itemsPage(2, 1, nullptr));
    session.setDraft(" \n\t ");
    for (Phase phase : {Phase::Idle, Phase::Starting, Phase::Running, Phase::Stopping}) {
        setPhase(phase, "turn-1");
        EXPECT_FALSE(session.sendEnabled());
    }
    session.setDraft("Run the tests");
    setPhase(Phase::Idle);
    EXPECT_TRUE(session.sendEnabled());
    EXPECT_EQ(session.placeholder(), "Message Codex…");
    setPhase(Phase::Running);
    EXPECT_FALSE(session.sendEnabled());
    setPhase(Phase::Starting, "turn-1");
    EXPECT_FALSE(session.sendEnabled());
    setPhase(Phase::Stopping, "turn-1");
    EXPECT_EQ(session.phaseText(), "Stopping…");
    EXPECT_FALSE(session.stopEnabled());

    setPhase(Phase::Running, "turn-1");
    EXPECT_EQ(session.placeholder(), "Steer the active turn…");
    EXPECT_EQ(session.sendSymbol(), "mail-forward-symbolic");
    EXPECT_TRUE(session.sendEnabled());
    // The message stays in the composer until Codex takes it; once refused it is still there.
    session.send();
    EXPECT_EQ(engine.count("turn/steer"), 1);
    EXPECT_EQ(session.draft(), "Run the tests");
    EXPECT_FALSE(session.sendEnabled());
    engine.last("turn/steer")
        .completion(AppServerError::server(AppServerClient::tooLargeText(20 << 20)));
    EXPECT_EQ(session.draft(), "Run the tests");
    EXPECT_EQ(workspace.errorMessage().value_or(""), AppServerClient::tooLargeText(20 << 20));
    session.send();
    session.setDraft("Run the tests, then lint");
    engine.last("turn/steer").completion(JSONValue::object({}));
    EXPECT_EQ(session.draft(), "Run the tests, then lint") << "written after sending, kept";
    session.send();
    engine.last("turn/steer").completion(JSONValue::object({}));
    EXPECT_EQ(session.draft(), "");

    // The tab cannot close while the turn runs.
    const RecordListModel* tabs = page.tabs();
    EXPECT_EQ(tabs->value(tabs->rowOf("thr_1"), "closeEnabled"), false);
    page.closeTab("thr_1");
    EXPECT_EQ(workspace.openThreadIDs(), QStringList{"thr_1"});
    setPhase(Phase::Idle);
    page.closeTab("thr_1");
    EXPECT_FALSE(session.present());
}

TEST_F(SessionPageTest, AThreadUpdatedAMomentAgoReadsAsPastHoweverLongAgoTheClockTicked)
{
    scheduler.advance(60); // the clock's tick is due, and has not run
    workspace.refreshThreads();
    engine.answerList(JSONValue::object(
        {{"data", JSONValue::array({JSONValue::object({{"id", "thr_x"},
                                                       {"preview", "Tidy the docs"},
                                                       {"updatedAt", scheduler.date() - 5}})})}}));
    ASSERT_EQ(page.threadRows()->rowCount(), 1);
    EXPECT_EQ(page.threadRows()->value(0, "updated"), "5 seconds ago");
}

TEST_F(SessionPageTest, ATabOutlivesItsThreadInTheList)
{
    workspace.refreshThreads();
    engine.answerList(
        JSONValue::decode(R"({"data":[{"id":"thr_x","preview":"Tidy the docs","cwd":""}]})")
            .value());
    ASSERT_EQ(page.threadRows()->rowCount(), 1);
    EXPECT_EQ(page.threadRows()->value(0, "folder"), "Home folder");
    page.openRow("thr_x");
    EXPECT_EQ(session.title(), "Tidy the docs");

    workspace.refreshThreads();
    engine.answerList(JSONValue::decode(R"({"data":[]})").value());
    EXPECT_EQ(page.threadRows()->rowCount(), 0);
    EXPECT_EQ(workspace.openThreadIDs(), (QStringList{"thr_1", "thr_x"}));
    EXPECT_EQ(session.title(), "Tidy the docs");
    EXPECT_EQ(page.tabs()->value(page.selectedTab(), "threadID"), "thr_x");
}

// A thousand entries stream in while the window shows the session: it holds no more than its
// bound, and scrolling back reads the rest from the engine, every entry once and in order.
TEST_F(SessionPageTest, ScrollingBackThroughAThousandLiveEntriesShowsEachOnceInOrder)
{
    const TranscriptBound bound{100, 1 << 20};
    const int live = 1000;
    workspace.setTranscriptBound(bound);
    // The engine holds item-1 to item-<holds> and answers every page asked for.
    int holds = 0;
    std::size_t answered = 0;
    const auto answerPages = [&] {
        while (answered < engine.calls.size()) {
            const RequesterDouble::Call call = engine.calls[answered++];
            if (call.method != "thread/items/list")
                continue;
            const JSONValue* cursor = call.params.find("cursor");
            const int from = cursor ? std::stoi(std::string(*cursor->stringView())) : holds;
            const int down = std::max(from - 19, 1);
            const std::string more = std::to_string(down - 1);
            call.completion(itemsPage(from, down, down > 1 ? more.c_str() : nullptr));
        }
    };
    answerPages();
    workspace.handleNotification(
        "turn/started",
        JSONValue::decode(R"({"threadId":"thr_1","turn":{"id":"turn-1"}})").value());
    for (holds = 1; holds <= live; ++holds) {
        workspace.handleNotification(
            "item/completed",
            JSONValue::object(
                {{"threadId", "thr_1"},
                 {"item", JSONValue::object({{"type", "agentMessage"},
                                             {"id", "item-" + std::to_string(holds)},
                                             {"text", "message " + std::to_string(holds)}})}}));
        ASSERT_LE(workspace.session("thr_1")->transcript.size(), bound.entries);
    }
    holds = live;
    workspace.handleNotification(
        "turn/completed",
        JSONValue::decode(R"({"threadId":"thr_1","turn":{"id":"turn-1","status":"completed"}})")
            .value());
    answerPages();

    const auto number = [](const QString& id) { return id.mid(5).toInt(); };
    QStringList page = shownEntries();
    ASSERT_EQ(page.last(), QStringLiteral("item-%1").arg(live));
    int oldestShown = number(page.first());
    int presses = 0;
    while (session.showsEarlier() && presses++ < 2000) {
        session.showEarlier();
        answerPages();
        page = shownEntries();
        ASSERT_FALSE(page.isEmpty());
        // In order within the page, and each page reaches back to the one before without a gap.
        for (qsizetype index = 1; index < page.size(); ++index)
            ASSERT_EQ(number(page[index]), number(page[index - 1]) + 1)
                << page.join(' ').toStdString();
        ASSERT_LT(number(page.first()), oldestShown);
        ASSERT_GE(number(page.last()), oldestShown - 1);
        oldestShown = number(page.first());
    }
    EXPECT_EQ(oldestShown, 1);
    // Held once each, in order.
    const std::vector<TranscriptEntry>& held = workspace.session("thr_1")->transcript;
    ASSERT_EQ(held.size(), static_cast<std::size_t>(live));
    for (std::size_t index = 0; index < held.size(); ++index)
        ASSERT_EQ(number(held[index].id), static_cast<int>(index) + 1);

    // Back on the newest page, the session keeps no more than its bound again.
    session.followLive();
    EXPECT_LE(workspace.session("thr_1")->transcript.size(), bound.entries);
    EXPECT_EQ(shownEntries().last(), QStringLiteral("item-%1").arg(live));
}
