#include "bridge/PendingUserInputRequests.h"

#include <gtest/gtest.h>

using namespace nimbrel;

namespace {

JSONValue decoded(const char* text)
{
    return JSONValue::decode(text).value();
}

const JSONValue questionParams = decoded(
    R"({"threadId":"thr_1","turnId":"turn_1","questions":[{"id":"q","header":"","question":"Name?"}]})");
const JSONValue answer = decoded(R"({"answers":{"q":{"answers":["Ada"]}}})");

} // namespace

TEST(PendingUserInputRequests, OneEntryPerEngineIdAnsweredOnceAtATime)
{
    PendingUserInputRequests pending;
    const auto first = pending.add(5, questionParams);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->request.id.size(), 36);
    EXPECT_EQ(first->request.id, first->request.id.toUpper());
    EXPECT_EQ(pending.add(5, questionParams)->request.id, first->request.id);   // delivered again
    EXPECT_NE(pending.add("5", questionParams)->request.id, first->request.id); // another id
    EXPECT_FALSE(pending.add(6, decoded(R"({"threadId":"thr_1"})")));
    EXPECT_EQ(pending.requests.size(), 2u);
    EXPECT_EQ(PendingUserInputRequests::questionEvent(*first),
              (BridgeMessage{1, BridgeMessageKind::Event, first->request.id,
                             "sarvane/userInputRequest", questionParams}));

    const QString id = first->request.id;
    EXPECT_FALSE(pending.beginAnswer(id, decoded(R"({"answers":{}})")));
    EXPECT_FALSE(pending.beginAnswer("unknown", answer));
    ASSERT_TRUE(pending.beginAnswer(id, answer));
    EXPECT_FALSE(pending.beginAnswer(id, answer)); // while the first answer is written
    pending.endAnswer(id);
    EXPECT_TRUE(pending.beginAnswer(id, answer));
    EXPECT_TRUE(pending.remove(id));
    EXPECT_FALSE(pending.remove(id));
    EXPECT_EQ(pending.requests.size(), 1u);
}

TEST(PendingUserInputRequests, OnlyTheEngineEndingThisQuestionClosesIt)
{
    PendingUserInputRequests pending;
    const auto entry = *pending.add(5, questionParams);
    const auto closes = [&](const char* method, const char* params) {
        return closesQuestion(entry, method, decoded(params));
    };

    EXPECT_TRUE(closes("serverRequest/resolved", R"({"threadId":"thr_1","requestId":5})"));
    EXPECT_FALSE(closes("serverRequest/resolved", R"({"threadId":"thr_1","requestId":"5"})"));
    EXPECT_FALSE(closes("serverRequest/resolved", R"({"threadId":"thr_2","requestId":5})"));
    EXPECT_FALSE(closes("serverRequest/resolved", R"({"requestId":5})"));

    EXPECT_TRUE(closes("turn/completed", R"({"threadId":"thr_1"})"));
    EXPECT_TRUE(closes("turn/completed", R"({"threadId":"thr_1","turn":{"id":"turn_1"}})"));
    EXPECT_TRUE(closes("turn/completed", R"({"threadId":"thr_1","turn":{"id":7}})"));
    EXPECT_FALSE(closes("turn/completed", R"({"threadId":"thr_1","turn":{"id":"turn_0"}})"));
    EXPECT_FALSE(closes("turn/completed", R"({"threadId":"thr_2"})"));

    EXPECT_TRUE(closes("turn/started", R"({"threadId":"thr_1","turn":{"id":"turn_2"}})"));
    EXPECT_FALSE(closes("turn/started", R"({"threadId":"thr_1","turn":{"id":"turn_1"}})"));
    EXPECT_FALSE(closes("turn/started", R"({"threadId":"thr_1","turn":"turn_2"})"));
    EXPECT_FALSE(closes("turn/started", R"({"threadId":"thr_2","turn":{"id":"turn_2"}})"));

    EXPECT_FALSE(closes("item/completed", R"({"threadId":"thr_1","turn":{"id":"turn_2"}})"));
    EXPECT_FALSE(closes("turn/completed", R"({})"));
    EXPECT_FALSE(closes("turn/completed", R"([])"));
}
