#include "engine/AppServerLineBuffer.h"

#include <gtest/gtest.h>

using nimbrel::AppServerLineBuffer;

namespace {

std::vector<std::string> feed(AppServerLineBuffer& buffer, const std::vector<std::string>& chunks)
{
    std::vector<std::string> lines;
    for (const std::string& chunk : chunks)
        for (std::string& line : buffer.append(chunk))
            lines.push_back(std::move(line));
    return lines;
}

} // namespace

TEST(AppServerLineBuffer, SplitAtEveryBytePositionGivesTheSameLines)
{
    const std::string stream = "{\"a\":1}\n\n\r\n{\"b\":\"x\\ny\"}\n\xC3\xA9\nlast";
    const std::vector<std::string> expected = {"{\"a\":1}", "\r", "{\"b\":\"x\\ny\"}", "\xC3\xA9"};
    for (std::size_t cut = 0; cut <= stream.size(); ++cut) {
        for (std::size_t second = cut; second <= stream.size(); ++second) {
            AppServerLineBuffer buffer;
            const auto lines = feed(buffer, {stream.substr(0, cut), stream.substr(cut, second - cut),
                                             stream.substr(second)});
            ASSERT_EQ(lines, expected) << "cut at " << cut << " and " << second;
            ASSERT_EQ(buffer.partialLine(), "last");
        }
    }
}

TEST(AppServerLineBuffer, ChunkWithoutDelimiterWaitsForTheNext)
{
    AppServerLineBuffer buffer;
    EXPECT_TRUE(buffer.append("{\"partial\":").empty());
    EXPECT_TRUE(buffer.append("true}").empty());
    EXPECT_EQ(buffer.append("\n"), std::vector<std::string>{"{\"partial\":true}"});
    EXPECT_TRUE(buffer.append("\n\n\n").empty());
    buffer.append("lost");
    buffer.clear();
    EXPECT_EQ(buffer.append("x\n"), std::vector<std::string>{"x"});
}

TEST(AppServerLineBuffer, HundredMegabyteLineInSmallChunksIsJoined)
{
    // Quadratic joining would copy terabytes here and run into the test's time limit.
    AppServerLineBuffer buffer;
    const std::string chunk(64 * 1024, 'x');
    const std::size_t chunks = (100u * 1024 * 1024) / chunk.size();
    for (std::size_t i = 0; i < chunks; ++i)
        ASSERT_TRUE(buffer.append(chunk).empty());
    const auto lines = buffer.append("\nnext");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].size(), chunks * chunk.size());
    EXPECT_EQ(buffer.partialLine(), "next");
}
