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

} // namespace

// Answering once, repeat deliveries and refusals are shown through the controller; what is left is
// how engine ids compare.
TEST(PendingUserInputRequests, EngineIdsCompareAsJSONValues)
{
    PendingUserInputRequests pending;
    const auto first = pending.add(5, questionParams);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->request.id, first->request.id.toUpper());
    EXPECT_EQ(pending.add(5.0, questionParams)->request.id, first->request.id);
    EXPECT_NE(pending.add("5", questionParams)->request.id, first->request.id);
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
