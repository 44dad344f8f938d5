#include "workspace/UserInputRecords.h"

#include <gtest/gtest.h>

using namespace nimbrel;

namespace {

JSONValue decoded(const char* text)
{
    return JSONValue::decode(text).value();
}

JSONValue params(const char* questions, const char* extra = "")
{
    return decoded((std::string(R"({"threadId":"thr_1","turnId":"turn_1",)") + extra +
                    R"("questions":)" + questions + "}")
                       .c_str());
}

const char* twoQuestions = R"([{"id":"db","header":"","question":"Which database?",
    "options":[{"label":"Postgres","description":"relational"},{"label":"SQLite","description":""}]},
    {"id":"token","header":"Secret","question":"Your token?","isSecret":true}])";

UserInputPrompt promptFor(const char* questions,
                          std::map<QString, UserInputAnswerDraft> drafts = {})
{
    return UserInputPrompt{*parseUserInputRequest("Q1", params(questions)), std::move(drafts),
                           false, std::nullopt};
}

} // namespace

TEST(UserInputRecords, ParsingKeepsWhatTheEngineAsksAndRefusesWhatCannotBeAnswered)
{
    const auto request = parseUserInputRequest("Q1", params(twoQuestions));
    ASSERT_TRUE(request);
    EXPECT_EQ(request->id, "Q1");
    EXPECT_EQ(request->threadID, "thr_1");
    ASSERT_EQ(request->questions.size(), 2u);
    EXPECT_EQ(request->questions[0].options->at(1), (UserInputQuestion::Option{"SQLite", ""}));
    EXPECT_EQ(request->questions[1].isSecret, true);
    EXPECT_TRUE(request->isBlocking);

    // isBlocking: only a boolean false counts as false.
    EXPECT_FALSE(
        parseUserInputRequest("Q", params(twoQuestions, R"("isBlocking":false,)"))->isBlocking);
    EXPECT_TRUE(
        parseUserInputRequest("Q", params(twoQuestions, R"("isBlocking":"false",)"))->isBlocking);
    // Blanks are text; a null options or isSecret is absent; extra keys are ignored.
    EXPECT_TRUE(parseUserInputRequest(
        "Q",
        params(
            R"([{"id":" ","header":"","question":" ","options":null,"isSecret":null,"isOther":true}])")));

    for (
        const char* refused :
        {R"([{"id":"a","header":"","question":"A?"},{"id":"a","header":"","question":"B?"}])", // repeated
                                                                                               // id
         R"([])", R"(null)", R"({"id":"a"})", R"([{"id":"","header":"","question":"A?"}])",
         R"([{"id":"a","header":"","question":""}])",
         R"([{"id":"a","question":"A?"}])", // no header
         R"([{"id":"a","header":null,"question":"A?"}])",
         R"([{"id":"a","header":"","question":"A?","isSecret":"yes"}])",
         R"([{"id":"a","header":"","question":"A?","options":[{"label":"x"}]}])",
         R"([{"id":"a","header":"","question":"A?","options":{}}])",
         R"([{"id":7,"header":"","question":"A?"}])"})
        EXPECT_FALSE(parseUserInputRequest("Q", params(refused))) << refused;
    EXPECT_FALSE(parseUserInputRequest(
        "Q",
        decoded(
            R"({"threadId":"","turnId":"t","questions":[{"id":"a","header":"","question":"A?"}]})")));
    EXPECT_FALSE(parseUserInputRequest(
        "Q", decoded(R"({"threadId":"t","questions":[{"id":"a","header":"","question":"A?"}]})")));
    EXPECT_FALSE(parseUserInputRequest("Q", decoded(R"(["not an object"])")));
}

TEST(UserInputRecords, AResponseNeedsAnAnswerForEveryQuestion)
{
    // No drafts at all: nothing to send.
    EXPECT_FALSE(makeResponse(promptFor(twoQuestions)));
    // An option of the first and a text with blanks around it for the second, sent unchanged.
    const auto response =
        makeResponse(promptFor(twoQuestions, {{"db", {1, false, "ignored"}},
                                              {"token", {std::nullopt, false, "  s3cret \n"}}}));
    ASSERT_TRUE(response);
    EXPECT_EQ(
        *response,
        decoded(
            R"({"answers":{"db":{"answers":["SQLite"]},"token":{"answers":["  s3cret \n"]}}})"));

    // An option out of range; a custom reply that ignores the selected option; blanks only.
    EXPECT_FALSE(makeResponse(
        promptFor(twoQuestions, {{"db", {3, false, {}}}, {"token", {std::nullopt, false, "t"}}})));
    EXPECT_FALSE(makeResponse(promptFor(
        twoQuestions, {{"db", {0, true, " \n\t"}}, {"token", {std::nullopt, false, "t"}}})));
    EXPECT_EQ(makeResponse(promptFor(twoQuestions, {{"db", {0, true, "MySQL"}},
                                                    {"token", {std::nullopt, false, "t"}}})),
              decoded(R"({"answers":{"db":{"answers":["MySQL"]},"token":{"answers":["t"]}}})"));
    // An empty list of options asks for a text.
    const char* emptyOptions = R"([{"id":"a","header":"","question":"A?","options":[]}])";
    EXPECT_FALSE(makeResponse(promptFor(emptyOptions, {{"a", {0, false, {}}}})));
    EXPECT_TRUE(makeResponse(promptFor(emptyOptions, {{"a", {std::nullopt, false, "yes"}}})));
}

TEST(UserInputRecords, OnlyACompleteResponsePassesTheCheck)
{
    const UserInputRequest request = *parseUserInputRequest("Q1", params(twoQuestions));
    EXPECT_TRUE(isCompleteResponse(
        request, decoded(R"({"answers":{"db":{"answers":[" x "]},"token":{"answers":["y"]}}})")));
    for (
        const char* incomplete :
        {R"({"answers":{"db":{"answers":["x"]},"token":{"answers":["y"]},"more":{"answers":["z"]}}})",
         R"({"answers":{"db":{"answers":["x"]}}})",
         R"({"answers":{"db":{"answers":["x","x2"]},"token":{"answers":["y"]}}})",
         R"({"answers":{"db":{"answers":[1]},"token":{"answers":["y"]}}})",
         R"({"answers":{"db":{"answers":[" \n"]},"token":{"answers":["y"]}}})",
         R"({"answers":{"db":["x"],"token":{"answers":["y"]}}})", R"({"answers":[]})", R"({})",
         R"(null)"})
        EXPECT_FALSE(isCompleteResponse(request, decoded(incomplete))) << incomplete;
}

TEST(UserInputRecords, TheAnswersEntryNeverShowsASecret)
{
    const TranscriptEntry entry = answersEntry(promptFor(
        twoQuestions, {{"db", {0, false, {}}}, {"token", {std::nullopt, false, "s3cret"}}}));
    EXPECT_EQ(entry.id, "answer-Q1");
    EXPECT_EQ(entry.kind, TranscriptKind::User);
    EXPECT_EQ(entry.title, "Your answers");
    EXPECT_EQ(entry.text, "Which database?\nPostgres\n\nYour token?\n[Private response sent]");
    EXPECT_FALSE(entry.status);
}
