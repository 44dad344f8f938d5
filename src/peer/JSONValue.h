#pragma once

#include "platform/Result.h"

#include <QString>

#include <atomic>
#include <cstring>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace nimbrel {

class JSONValue;
struct JSONMember;

// Why a text is not JSON, or why a value cannot be written as JSON.
struct JSONError {
    QString message;
    friend bool operator==(const JSONError&, const JSONError&) = default;
};

namespace detail {
struct JSONNode;
}

// The one dynamic JSON value: bool, number (64-bit float), string, array, object or null.
// Values are immutable once built; copies share their payload and are cheap.
class JSONValue {
public:
    enum class Kind : std::uint8_t { Bool, Number, String, Array, Object, Null };

    JSONValue() noexcept : m_bytes{}, m_inlineLength(0), m_kind(Kind::Null) {}
    JSONValue(std::nullptr_t) noexcept : JSONValue() {}
    JSONValue(bool value) noexcept : JSONValue() { m_kind = Kind::Bool; m_bytes[0] = value ? 1 : 0; }
    JSONValue(double value) noexcept : JSONValue()
    {
        m_kind = Kind::Number;
        std::memcpy(m_bytes, &value, sizeof value);
    }
    JSONValue(int value) noexcept : JSONValue(static_cast<double>(value)) {}
    JSONValue(unsigned value) noexcept : JSONValue(static_cast<double>(value)) {}
    JSONValue(long value) noexcept : JSONValue(static_cast<double>(value)) {}
    JSONValue(long long value) noexcept : JSONValue(static_cast<double>(value)) {}
    JSONValue(std::string_view utf8);
    JSONValue(const char* utf8) : JSONValue(std::string_view(utf8)) {}
    JSONValue(const std::string& utf8) : JSONValue(std::string_view(utf8)) {}
    JSONValue(const QString& text);

    static JSONValue array(std::vector<JSONValue> items);
    static JSONValue array(std::initializer_list<JSONValue> items);
    // Members with a repeated key keep the last value.
    static JSONValue object(std::vector<std::pair<std::string, JSONValue>> members);
    static JSONValue object(std::initializer_list<std::pair<std::string_view, JSONValue>> members);

    JSONValue(const JSONValue& other) noexcept;
    JSONValue(JSONValue&& other) noexcept;
    JSONValue& operator=(const JSONValue& other) noexcept;
    JSONValue& operator=(JSONValue&& other) noexcept;
    ~JSONValue();

    Kind kind() const { return m_kind; }
    bool isNull() const { return m_kind == Kind::Null; }
    bool isBool() const { return m_kind == Kind::Bool; }
    bool isNumber() const { return m_kind == Kind::Number; }
    bool isString() const { return m_kind == Kind::String; }
    bool isArray() const { return m_kind == Kind::Array; }
    bool isObject() const { return m_kind == Kind::Object; }

    // The member under key, when this is an object holding it. A stored null is present.
    std::optional<JSONValue> operator[](std::string_view key) const;
    const JSONValue* find(std::string_view key) const;
    bool contains(std::string_view key) const { return find(key) != nullptr; }

    // Accessors never convert between cases.
    std::optional<bool> boolValue() const;
    std::optional<double> numberValue() const;
    std::optional<QString> stringValue() const;
    std::optional<std::string_view> stringView() const; // UTF-8, valid while this value lives
    std::optional<std::span<const JSONValue>> arrayValue() const;
    std::optional<std::span<const JSONMember>> objectValue() const;
    // For iteration: the items or members, empty for any other case.
    std::span<const JSONValue> items() const;
    std::span<const JSONMember> members() const;

    // Any value as text: scalars without quotes, arrays and objects as compact JSON.
    QString textForm() const;
    std::string textFormUtf8() const;

    static Result<JSONValue, JSONError> decode(std::string_view utf8);
    Result<std::string, JSONError> encode() const;
    // Appends the compact form to out; false (with out unchanged) where a number is not finite.
    bool encodeTo(std::string& out) const;

    friend bool operator==(const JSONValue& a, const JSONValue& b);

private:
    friend class JSONParser;
    friend bool sameText(const JSONValue& a, const JSONValue& b);
    static JSONValue makeString(std::string_view bytes, bool asciiOnly);
    // A string: whether every byte is ASCII, where byte equality is text equality.
    bool isAsciiText() const;
    explicit JSONValue(Kind kind, detail::JSONNode* node) noexcept : JSONValue()
    {
        m_kind = kind;
        m_inlineLength = heapString;
        std::memcpy(m_bytes, &node, sizeof node);
    }
    bool hasNode() const { return m_inlineLength == heapString; }
    detail::JSONNode* node() const
    {
        detail::JSONNode* pointer;
        std::memcpy(&pointer, m_bytes, sizeof pointer);
        return pointer;
    }
    double number() const
    {
        double value;
        std::memcpy(&value, m_bytes, sizeof value);
        return value;
    }

    // Strings of up to 14 bytes live in the value itself; everything else that has a payload lives
    // in a shared node whose pointer takes the first 8 bytes.
    static constexpr std::size_t inlineCapacity = 14;
    static constexpr std::uint8_t heapString = 0xFF;

    alignas(8) char m_bytes[inlineCapacity];
    std::uint8_t m_inlineLength; // inline strings: their length; values held in a node: heapString
    Kind m_kind;
};
static_assert(sizeof(JSONValue) == 16);

struct JSONMember {
    JSONValue key; // always a string
    JSONValue value;
    std::string_view name() const { return *key.stringView(); }
};

} // namespace nimbrel
