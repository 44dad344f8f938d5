#include "peer/JSONValue.h"
#include "support/RandomJSON.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

using nimbrel::JSONValue;

namespace {

JSONValue decoded(std::string_view text)
{
    auto result = JSONValue::decode(text);
    EXPECT_TRUE(result.ok()) << text << ": " << qPrintable(result.error().message);
    return result.ok() ? result.value() : JSONValue();
}

std::string encoded(const JSONValue& value) { return *value.encode(); }

} // namespace

TEST(JSONValue, AccessorsNeverConvertAndSubscriptOnlyReadsObjects)
{
    const JSONValue object = decoded(R"({"a":null,"n":3,"s":"3","b":true,"list":[1]})");
    EXPECT_EQ(object["a"], JSONValue());            // stored null is present
    EXPECT_FALSE(object["missing"].has_value());    // missing member is absent
    EXPECT_EQ(*object["n"]->numberValue(), 3.0);
    EXPECT_FALSE(object["n"]->stringValue());
    EXPECT_FALSE(object["s"]->numberValue());
    EXPECT_FALSE(object["b"]->numberValue());
    EXPECT_FALSE(JSONValue(1).boolValue());
    EXPECT_FALSE(object["list"]->find("0"));        // an array has no keys
    EXPECT_FALSE(JSONValue("text")["text"]);
    EXPECT_EQ(object["list"]->arrayValue()->size(), 1u);
    EXPECT_FALSE(object.arrayValue());
    EXPECT_EQ(object.objectValue()->size(), 5u);
}

TEST(JSONValue, TextFormOfEveryCase)
{
    EXPECT_EQ(JSONValue(3.0).textForm(), "3");
    EXPECT_EQ(JSONValue(0.5).textForm(), "0.5");
    EXPECT_EQ(JSONValue(-0.0).textForm(), "0");
    EXPECT_EQ(JSONValue(-2).textForm(), "-2");
    EXPECT_EQ(JSONValue(0.1).textForm(), "0.1");
    EXPECT_EQ(JSONValue(1.0 / 3.0).textForm(), "0.3333333333333333");
    EXPECT_EQ(JSONValue(1e18).textForm(), "1000000000000000000");
    EXPECT_EQ(JSONValue(true).textForm(), "true");
    EXPECT_EQ(JSONValue().textForm(), "null");
    EXPECT_EQ(JSONValue("say \"hi\"").textForm(), "say \"hi\"");
    EXPECT_EQ(JSONValue::array({}).textForm(), "[]");
    EXPECT_EQ(JSONValue::object({}).textForm(), "{}");
    EXPECT_EQ(JSONValue::array({1, "a", nullptr}).textForm(), R"([1,"a",null])");
    // Same text, different values.
    EXPECT_EQ(JSONValue(1).textForm(), JSONValue("1").textForm());
    EXPECT_NE(JSONValue(1), JSONValue("1"));
    // Values that cannot be written never bring the program down.
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(JSONValue(nan).textForm().isEmpty());
    EXPECT_FALSE(JSONValue(1e300).textForm().isEmpty());
    EXPECT_EQ(JSONValue::array({1, nan}).textForm(), "");
    EXPECT_EQ(JSONValue::object({{"x", std::numeric_limits<double>::infinity()}}).textForm(), "");
}

TEST(JSONValue, EncodesCompactIntegersAndShortestDecimals)
{
    EXPECT_EQ(encoded(decoded("12")), "12");
    EXPECT_EQ(encoded(decoded("12.0")), "12");
    EXPECT_EQ(encoded(decoded("-0")), "0");
    EXPECT_EQ(encoded(decoded("1e2")), "100");
    EXPECT_EQ(encoded(decoded("9007199254740991")), "9007199254740991");
    EXPECT_EQ(encoded(decoded("0.1")), "0.1");
    EXPECT_EQ(encoded(decoded("5e-324")), "5e-324");
    EXPECT_EQ(encoded(decoded("1.7976931348623157e308")), "1.7976931348623157e+308");
    EXPECT_EQ(encoded(decoded(R"( { "a" : [ 1 , 2 ] } )")), R"({"a":[1,2]})");
    EXPECT_EQ(encoded(JSONValue("q\"b\\n\n\t\x01\x1f/é😀")), "\"q\\\"b\\\\n\\n\\t\\u0001\\u001f/é😀\"");
    const auto notFinite = JSONValue::array({std::numeric_limits<double>::infinity()}).encode();
    ASSERT_FALSE(notFinite.ok());
    EXPECT_FALSE(notFinite.error().message.isEmpty());
}

TEST(JSONValue, EqualityIsStructuralAndTextIsCanonical)
{
    EXPECT_EQ(decoded(R"({"a":1,"b":[true,null]})"), decoded(R"({"b":[true,null],"a":1.0})"));
    EXPECT_NE(decoded(R"({"a":1})"), decoded(R"({"a":1,"b":2})"));
    EXPECT_NE(decoded(R"({"a":1})"), decoded(R"({"b":1})"));
    EXPECT_NE(decoded("[1,2]"), decoded("[2,1]"));
    EXPECT_NE(JSONValue(true), JSONValue(1));
    EXPECT_NE(JSONValue(), JSONValue(false));
    EXPECT_EQ(JSONValue(), JSONValue(nullptr));
    EXPECT_EQ(JSONValue(0.0), JSONValue(-0.0));
    // "é" precomposed and as e + combining acute are the same text.
    EXPECT_EQ(JSONValue("\xC3\xA9"), JSONValue("e\xCC\x81"));
    EXPECT_EQ(decoded(R"({"caf\u00e9":1})"), decoded(R"({"cafe\u0301":1})"));
    EXPECT_NE(JSONValue("e"), JSONValue("E"));

    // Keys are texts too: found in either spelling, and one key however it is spelled.
    const JSONValue composed = decoded(R"({"caf\u00e9":1,"x":2})");
    ASSERT_TRUE(composed.find("cafe\xCC\x81"));
    EXPECT_EQ(*composed.find("cafe\xCC\x81"), JSONValue(1));
    EXPECT_FALSE(composed.find("cafe"));
    const JSONValue both = decoded(R"({"caf\u00e9":1,"cafe\u0301":2})");
    ASSERT_EQ(both.members().size(), 1u);
    EXPECT_EQ(*both.find("caf\xC3\xA9"), JSONValue(2));
    // The Kelvin sign is K once composed: an ASCII key finds it.
    EXPECT_EQ(*decoded(R"({"\u212a":3})").find("K"), JSONValue(3));
    EXPECT_EQ(JSONValue::object({{"a", 1}, {"b\xCC\x87", 2}, {"\xE1\xB8\x83", 3}}).members().size(), 2u);
}

TEST(JSONValue, DecodesEveryValidShape)
{
    EXPECT_EQ(decoded("true"), JSONValue(true));
    EXPECT_EQ(decoded(" 7 "), JSONValue(7));
    EXPECT_EQ(decoded("null"), JSONValue());
    EXPECT_EQ(decoded("-1.5e3"), JSONValue(-1500.0));
    EXPECT_EQ(decoded("1E+2"), JSONValue(100));
    EXPECT_EQ(decoded("123456789012345678901234567890"), JSONValue(1.2345678901234568e29));
    EXPECT_EQ(decoded("1e-400"), JSONValue(0));   // too small to hold rounds to zero
    EXPECT_EQ(decoded(R"("\u00e9\ud83d\ude00\"\\\/\b\f\n\r\t")"), JSONValue("é😀\"\\/\b\f\n\r\t"));
    EXPECT_EQ(decoded(R"("a\u0000b")").stringView()->size(), 3u);
    EXPECT_EQ(decoded(R"([[],{},[{"a":[]}]])").textForm(), R"([[],{},[{"a":[]}]])");
    // A repeated key keeps the last value, in small and in large objects.
    EXPECT_EQ(decoded(R"({"a":1,"b":2,"a":3})"), decoded(R"({"b":2,"a":3})"));
    std::string large = "{";
    for (int i = 0; i < 40; ++i)
        large += "\"k" + std::to_string(i % 20) + "\":" + std::to_string(i) + ",";
    large.back() = '}';
    const JSONValue big = decoded(large);
    EXPECT_EQ(big.objectValue()->size(), 20u);
    EXPECT_EQ(*big["k5"], JSONValue(25));
    // 512 levels are allowed.
    EXPECT_TRUE(JSONValue::decode(std::string(512, '[') + std::string(512, ']')).ok());
}

TEST(JSONValue, RefusesEveryMalformedInputWithAShortText)
{
    const std::vector<std::string> malformed = {
        "", " ", "[1,]", R"({"a":1,})", "[1 2]", "// c\n1", "/* c */ 1", "01", "-01", "00",
        "NaN", "Infinity", "-Infinity", "+1", ".5", "1.", "1e", "1e+", "-", "0x10", "1e400", "-1e400",
        "tru", "nul", "True", "'a'", R"("abc)", R"("\x")", R"("\u12")", R"("\uZZZZ")",
        R"("\ud800")", R"("\udc00")", R"("\ud800\u0041")", R"("\ud800x")", "\"a\nb\"", "\"\t\"",
        "\"\x01\"", "\"\xC0\x80\"", "\"\xED\xA0\x80\"", "\"\xF5\x80\x80\x80\"", "\"\xE2\x82\"",
        "\"\xFF\"", "\"\x80\"", "1 2", "[] []", "{} x", "{\"a\"}", "{\"a\" 1}", "{1:2}", "[",
        "{", "]", "}", ",", "\xEF\xBB\xBF{}", std::string("[1]\0", 4),
        std::string(513, '[') + std::string(513, ']'), std::string(100000, '['),
        std::string(100000, '{'), "[" + std::string(100000, '"'),
    };
    for (const std::string& text : malformed) {
        auto result = JSONValue::decode(text);
        EXPECT_FALSE(result.ok()) << "accepted: " << text.substr(0, 40);
        if (!result.ok()) {
            EXPECT_FALSE(result.error().message.isEmpty());
            EXPECT_LT(result.error().message.size(), 80);
        }
    }
    EXPECT_EQ(JSONValue::decode(std::string(513, '[')).error().message, "Nesting deeper than 512 levels at byte 512");
}

TEST(JSONValue, RandomDocumentsRoundTrip)
{
    nimbrel::test::RandomJSON random(20261122);
    for (int i = 0; i < 3000; ++i) {
        const JSONValue original = random.value();
        const std::string text = encoded(original);
        auto back = JSONValue::decode(text);
        ASSERT_TRUE(back.ok()) << text << ": " << qPrintable(back.error().message);
        ASSERT_EQ(back.value(), original) << text;
        ASSERT_EQ(encoded(back.value()), text);
    }
}

TEST(JSONValue, CopiesAreIndependentAndShareNothingVisible)
{
    JSONValue first = decoded(R"({"a":[1,2,3]})");
    JSONValue second = first;
    first = JSONValue("replaced");
    EXPECT_EQ(second.textForm(), R"({"a":[1,2,3]})");
    JSONValue moved = std::move(second);
    EXPECT_EQ(moved.textForm(), R"({"a":[1,2,3]})");
    // Invalid UTF-8 given in code is repaired rather than written out as invalid JSON.
    const std::string repaired = encoded(JSONValue(std::string_view("a\xFF")));
    EXPECT_TRUE(JSONValue::decode(repaired).ok());
}
