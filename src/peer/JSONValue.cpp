#include "JSONValue.h"

#include <QStringView>

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <unordered_map>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace nimbrel {

namespace detail {

// One heap block per string, array or object: this header, then the payload.
struct alignas(16) JSONNode {
    std::atomic<std::uint32_t> refs;
    std::uint32_t asciiOnly; // strings: every byte below 0x80; objects: every key so
    std::size_t size;        // strings: bytes; arrays: items; objects: members
};
static_assert(sizeof(JSONNode) == 16);

namespace {

char* stringBytes(JSONNode* node) { return reinterpret_cast<char*>(node + 1); }
JSONValue* arrayItems(JSONNode* node) { return reinterpret_cast<JSONValue*>(node + 1); }
JSONMember* objectMembers(JSONNode* node) { return reinterpret_cast<JSONMember*>(node + 1); }

JSONNode* allocateNode(std::size_t payloadBytes, std::size_t size)
{
    void* memory = ::operator new(sizeof(JSONNode) + payloadBytes);
    auto* node = static_cast<JSONNode*>(memory);
    new (&node->refs) std::atomic<std::uint32_t>(1);
    node->asciiOnly = 0;
    node->size = size;
    return node;
}

} // namespace
} // namespace detail

using detail::JSONNode;

namespace {

constexpr std::size_t maximumDepth = 512;

bool isAscii(std::string_view bytes)
{
    std::size_t i = 0;
    for (; i + 8 <= bytes.size(); i += 8) {
        std::uint64_t word;
        std::memcpy(&word, bytes.data() + i, 8);
        if (word & 0x8080808080808080ULL)
            return false;
    }
    for (; i < bytes.size(); ++i)
        if (static_cast<unsigned char>(bytes[i]) >= 0x80)
            return false;
    return true;
}

// Text in canonical composition (NFC), as UTF-8: texts are equal when these are.
std::string canonicalText(std::string_view utf8)
{
    return QString::fromUtf8(utf8.data(), static_cast<qsizetype>(utf8.size()))
        .normalized(QString::NormalizationForm_C)
        .toStdString();
}

// Length of the well-formed UTF-8 sequence at p (first byte >= 0x80), or 0.
std::size_t utf8SequenceLength(const unsigned char* p, const unsigned char* end)
{
    const unsigned char c = p[0];
    const std::size_t available = static_cast<std::size_t>(end - p);
    auto continuation = [&](std::size_t i, unsigned char low = 0x80, unsigned char high = 0xBF) {
        return i < available && p[i] >= low && p[i] <= high;
    };
    if (c >= 0xC2 && c <= 0xDF)
        return continuation(1) ? 2 : 0;
    if (c == 0xE0)
        return continuation(1, 0xA0) && continuation(2) ? 3 : 0;
    if ((c >= 0xE1 && c <= 0xEC) || c == 0xEE || c == 0xEF)
        return continuation(1) && continuation(2) ? 3 : 0;
    if (c == 0xED)
        return continuation(1, 0x80, 0x9F) && continuation(2) ? 3 : 0;
    if (c == 0xF0)
        return continuation(1, 0x90) && continuation(2) && continuation(3) ? 4 : 0;
    if (c >= 0xF1 && c <= 0xF3)
        return continuation(1) && continuation(2) && continuation(3) ? 4 : 0;
    if (c == 0xF4)
        return continuation(1, 0x80, 0x8F) && continuation(2) && continuation(3) ? 4 : 0;
    return 0;
}

bool isValidUtf8(std::string_view bytes)
{
    auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
    auto* end = p + bytes.size();
    while (p < end) {
        if (*p < 0x80) {
            ++p;
            continue;
        }
        const std::size_t length = utf8SequenceLength(p, end);
        if (length == 0)
            return false;
        p += length;
    }
    return true;
}

constexpr std::uint64_t repeated(unsigned char byte) { return 0x0101010101010101ULL * byte; }
constexpr std::uint64_t highBits = repeated(0x80);

// True when some byte of word is zero (exact for existence).
constexpr std::uint64_t zeroBytes(std::uint64_t word) { return (word - repeated(1)) & ~word & highBits; }

// True when a byte of word ends a plain run inside a string: '"', '\\', a control character,
// or (when stopAtHighBytes) a byte of a multi-byte sequence.
inline bool wordNeedsAttention(std::uint64_t word, bool stopAtHighBytes)
{
    const std::uint64_t quote = zeroBytes(word ^ repeated('"'));
    const std::uint64_t backslash = zeroBytes(word ^ repeated('\\'));
    const std::uint64_t control = (word - repeated(0x20)) & ~word & highBits;
    const std::uint64_t high = stopAtHighBytes ? (word & highBits) : 0;
    return (quote | backslash | control | high) != 0;
}

// Skips the bytes of a string that need no attention: returns the first byte at or after p that is
// '"', '\\', a control character or (when stopAtHighBytes) a byte of a multi-byte sequence, or a
// position within 16 bytes of end from which the caller goes on byte by byte.
inline const char* skipPlainBytes(const char* p, const char* end, bool stopAtHighBytes)
{
#if defined(__SSE2__)
    const __m128i quote = _mm_set1_epi8('"');
    const __m128i backslash = _mm_set1_epi8('\\');
    const __m128i space = _mm_set1_epi8(0x20);
    const __m128i controlLimit = _mm_set1_epi8(0x1F);
    while (end - p >= 16) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        // Signed, bytes from 0x80 up are negative: one compare finds control and high bytes.
        const __m128i low = stopAtHighBytes ? _mm_cmplt_epi8(bytes, space)
                                            : _mm_cmpeq_epi8(_mm_max_epu8(bytes, controlLimit), controlLimit);
        const __m128i special = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(bytes, quote), _mm_cmpeq_epi8(bytes, backslash)), low);
        const int mask = _mm_movemask_epi8(special);
        if (mask != 0)
            return p + __builtin_ctz(static_cast<unsigned>(mask));
        p += 16;
    }
#endif
    while (end - p >= 8) {
        std::uint64_t word;
        std::memcpy(&word, p, 8);
        if (wordNeedsAttention(word, stopAtHighBytes))
            break;
        p += 8;
    }
    return p;
}

void appendUtf8(std::string& out, std::uint32_t codePoint)
{
    if (codePoint < 0x80) {
        out.push_back(static_cast<char>(codePoint));
    } else if (codePoint < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (codePoint >> 6)));
        out.push_back(static_cast<char>(0x80 | (codePoint & 0x3F)));
    } else if (codePoint < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (codePoint >> 12)));
        out.push_back(static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (codePoint & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (codePoint >> 18)));
        out.push_back(static_cast<char>(0x80 | ((codePoint >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (codePoint & 0x3F)));
    }
}

} // namespace

// Iterative recursive-descent parser: nesting is kept on explicit stacks, never the call stack.
class JSONParser {
public:
    explicit JSONParser(std::string_view text)
        : m_begin(text.data()), m_cursor(text.data()), m_end(text.data() + text.size())
    {
    }

    Result<JSONValue, JSONError> run()
    {
        if (!parseDocument())
            return JSONError{m_error};
        return std::move(m_values.back());
    }

private:
    struct Frame {
        bool isObject;
        std::size_t firstValue;
        bool asciiKeys = true; // objects: no key read so far held a byte above 0x7F
    };

    bool fail(const char* what)
    {
        m_error = QLatin1String(what) + QStringLiteral(" at byte ") + QString::number(m_cursor - m_begin);
        return false;
    }
    bool failAt(const char* what, const char* where)
    {
        m_cursor = where;
        return fail(what);
    }

    void skipWhitespace()
    {
        while (m_cursor < m_end
               && (*m_cursor == ' ' || *m_cursor == '\n' || *m_cursor == '\r' || *m_cursor == '\t'))
            ++m_cursor;
    }

    bool expectKey()
    {
        skipWhitespace();
        if (m_cursor >= m_end)
            return fail("Unexpected end of input");
        if (*m_cursor != '"')
            return fail("Expected a member name");
        ++m_cursor;
        bool ascii = true;
        if (!parseString(&ascii))
            return false;
        m_frames.back().asciiKeys = m_frames.back().asciiKeys && ascii;
        skipWhitespace();
        if (m_cursor >= m_end)
            return fail("Unexpected end of input");
        if (*m_cursor != ':')
            return fail("Expected ':'");
        ++m_cursor;
        return true;
    }

    bool parseDocument()
    {
        m_values.reserve(64);
        for (;;) {
            // A value begins here.
            skipWhitespace();
            if (m_cursor >= m_end)
                return fail(m_frames.empty() && m_cursor == m_begin ? "Empty input"
                                                                    : "Unexpected end of input");
            const char c = *m_cursor;
            bool closedValue = true;
            if (c == '{' || c == '[') {
                if (m_frames.size() >= maximumDepth)
                    return fail("Nesting deeper than 512 levels");
                ++m_cursor;
                m_frames.push_back(Frame{c == '{', m_values.size(), true});
                skipWhitespace();
                const char closer = c == '{' ? '}' : ']';
                if (m_cursor < m_end && *m_cursor == closer) {
                    ++m_cursor;
                    closeFrame();
                } else if (c == '{') {
                    if (!expectKey())
                        return false;
                    closedValue = false;
                } else {
                    closedValue = false;
                }
            } else if (c == '"') {
                ++m_cursor;
                if (!parseString())
                    return false;
            } else if (c == 't') {
                if (!literal("true", 4))
                    return false;
                m_values.emplace_back(true);
            } else if (c == 'f') {
                if (!literal("false", 5))
                    return false;
                m_values.emplace_back(false);
            } else if (c == 'n') {
                if (!literal("null", 4))
                    return false;
                m_values.emplace_back();
            } else if (c == '-' || (c >= '0' && c <= '9')) {
                if (!parseNumber())
                    return false;
            } else {
                return fail("Unexpected character");
            }
            if (!closedValue)
                continue;

            // After a complete value: separators and closers until the next value begins.
            for (;;) {
                if (m_frames.empty()) {
                    skipWhitespace();
                    if (m_cursor != m_end)
                        return fail("Unexpected text after the value");
                    return true;
                }
                skipWhitespace();
                if (m_cursor >= m_end)
                    return fail("Unexpected end of input");
                const char separator = *m_cursor;
                const Frame& frame = m_frames.back();
                if (separator == ',') {
                    ++m_cursor;
                    if (frame.isObject && !expectKey())
                        return false;
                    break;
                }
                if (separator == (frame.isObject ? '}' : ']')) {
                    ++m_cursor;
                    closeFrame();
                    continue;
                }
                return fail(frame.isObject ? "Expected ',' or '}'" : "Expected ',' or ']'");
            }
        }
    }

    bool literal(const char* word, std::size_t length)
    {
        if (static_cast<std::size_t>(m_end - m_cursor) < length
            || std::memcmp(m_cursor, word, length) != 0)
            return fail("Unexpected character");
        m_cursor += length;
        return true;
    }

    void closeFrame()
    {
        const Frame frame = m_frames.back();
        m_frames.pop_back();
        const std::size_t count = m_values.size() - frame.firstValue;
        JSONValue* source = m_values.data() + frame.firstValue;
        JSONNode* node;
        if (!frame.isObject) {
            node = detail::allocateNode(count * sizeof(JSONValue), count);
            JSONValue* items = detail::arrayItems(node);
            for (std::size_t i = 0; i < count; ++i)
                new (items + i) JSONValue(std::move(source[i]));
        } else {
            const std::size_t pairs = count / 2;
            const std::size_t unique = deduplicateMembers(source, pairs, frame.asciiKeys);
            node = detail::allocateNode(unique * sizeof(JSONMember), unique);
            node->asciiOnly = frame.asciiKeys ? 1 : 0;
            JSONMember* members = detail::objectMembers(node);
            for (std::size_t i = 0; i < unique; ++i)
                new (members + i)
                    JSONMember{std::move(source[2 * i]), std::move(source[2 * i + 1])};
        }
        m_values.resize(frame.firstValue);
        m_values.push_back(JSONValue(frame.isObject ? JSONValue::Kind::Object : JSONValue::Kind::Array, node));
    }

public:
    // Packs key/value pairs so that each key appears once, holding the last value given for it.
    // Keys are the same when their texts are equal; the first spelling stays. allAsciiKeys tells
    // whether every key is ASCII, where byte equality is text equality.
    static std::size_t deduplicateMembers(JSONValue* pairs, std::size_t count, bool allAsciiKeys)
    {
        // Other keys compare in their canonical form, kept beside the pairs as they move.
        std::vector<std::string> canonical;
        if (!allAsciiKeys) {
            canonical.reserve(count);
            for (std::size_t i = 0; i < count; ++i)
                canonical.push_back(canonicalText(*pairs[2 * i].stringView()));
        }
        auto keyOf = [&](std::size_t i) { return allAsciiKeys ? *pairs[2 * i].stringView() : std::string_view(canonical[i]); };
        std::size_t kept = 0;
        auto keep = [&](std::size_t i, std::size_t existing) {
            if (existing != kept) {
                pairs[2 * existing + 1] = std::move(pairs[2 * i + 1]);
                return;
            }
            if (i != kept) {
                pairs[2 * kept] = std::move(pairs[2 * i]);
                pairs[2 * kept + 1] = std::move(pairs[2 * i + 1]);
                if (!allAsciiKeys)
                    canonical[kept] = std::move(canonical[i]);
            }
            ++kept;
        };
        if (count <= 16) {
            for (std::size_t i = 0; i < count; ++i) {
                std::size_t existing = 0;
                while (existing < kept && keyOf(existing) != keyOf(i))
                    ++existing;
                keep(i, existing);
            }
            return kept;
        }
        // Keys are copied: short ones live inside values that move while the members are packed.
        std::unordered_map<std::string, std::size_t> seen;
        seen.reserve(count);
        for (std::size_t i = 0; i < count; ++i) {
            auto [slot, inserted] = seen.emplace(std::string(keyOf(i)), kept);
            keep(i, inserted ? kept : slot->second);
        }
        return kept;
    }

private:
    // asciiOut, where given, learns whether the text is ASCII.
    bool parseString(bool* asciiOut = nullptr)
    {
        const char* runStart = m_cursor;
        bool ascii = true;
        bool escaped = false;
        m_scratch.clear();
        for (;;) {
            m_cursor = skipPlainBytes(m_cursor, m_end, true);
            if (m_cursor >= m_end)
                return fail("Unterminated string");
            const auto c = static_cast<unsigned char>(*m_cursor);
            if (c >= 0x80) {
                // Validated here, as it is met, so no second pass over the text is needed.
                const std::size_t length = utf8SequenceLength(reinterpret_cast<const unsigned char*>(m_cursor),
                                                              reinterpret_cast<const unsigned char*>(m_end));
                if (length == 0)
                    return fail("Invalid UTF-8 in string");
                ascii = false;
                m_cursor += length;
                continue;
            }
            if (c == '"') {
                std::string_view bytes(runStart, static_cast<std::size_t>(m_cursor - runStart));
                if (escaped) {
                    m_scratch.append(bytes);
                    bytes = m_scratch;
                }
                m_values.push_back(JSONValue::makeString(bytes, ascii));
                if (asciiOut)
                    *asciiOut = ascii;
                ++m_cursor;
                return true;
            }
            if (c == '\\') {
                m_scratch.append(runStart, m_cursor);
                escaped = true;
                if (!parseEscape(ascii))
                    return false;
                runStart = m_cursor;
                continue;
            }
            if (c < 0x20)
                return fail("Control character in string");
            ++m_cursor;
        }
    }

    bool readHex4(std::uint32_t& out)
    {
        if (m_end - m_cursor < 4)
            return fail("Invalid escape in string");
        out = 0;
        for (int i = 0; i < 4; ++i) {
            const char h = m_cursor[i];
            std::uint32_t digit;
            if (h >= '0' && h <= '9')
                digit = static_cast<std::uint32_t>(h - '0');
            else if (h >= 'a' && h <= 'f')
                digit = static_cast<std::uint32_t>(h - 'a' + 10);
            else if (h >= 'A' && h <= 'F')
                digit = static_cast<std::uint32_t>(h - 'A' + 10);
            else
                return fail("Invalid escape in string");
            out = out * 16 + digit;
        }
        m_cursor += 4;
        return true;
    }

    bool parseEscape(bool& ascii)
    {
        const char* escapeStart = m_cursor;
        ++m_cursor; // the backslash
        if (m_cursor >= m_end)
            return fail("Unterminated string");
        const char e = *m_cursor++;
        switch (e) {
        case '"': m_scratch.push_back('"'); return true;
        case '\\': m_scratch.push_back('\\'); return true;
        case '/': m_scratch.push_back('/'); return true;
        case 'b': m_scratch.push_back('\b'); return true;
        case 'f': m_scratch.push_back('\f'); return true;
        case 'n': m_scratch.push_back('\n'); return true;
        case 'r': m_scratch.push_back('\r'); return true;
        case 't': m_scratch.push_back('\t'); return true;
        case 'u': break;
        default: return failAt("Invalid escape in string", escapeStart);
        }
        std::uint32_t unit = 0;
        if (!readHex4(unit))
            return false;
        if (unit >= 0xDC00 && unit <= 0xDFFF)
            return failAt("Lone surrogate in string", escapeStart);
        if (unit >= 0xD800 && unit <= 0xDBFF) {
            std::uint32_t low = 0;
            if (m_end - m_cursor < 2 || m_cursor[0] != '\\' || m_cursor[1] != 'u')
                return failAt("Lone surrogate in string", escapeStart);
            m_cursor += 2;
            if (!readHex4(low))
                return false;
            if (low < 0xDC00 || low > 0xDFFF)
                return failAt("Lone surrogate in string", escapeStart);
            unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
        }
        if (unit >= 0x80)
            ascii = false;
        appendUtf8(m_scratch, unit);
        return true;
    }

    bool parseNumber()
    {
        const char* start = m_cursor;
        const char* p = m_cursor;
        const bool negative = *p == '-';
        if (negative)
            ++p;
        if (p >= m_end)
            return failAt("Invalid number", start);
        std::uint64_t mantissa = 0;
        int integerDigits = 0;
        bool integerIsZero = false;
        if (*p == '0') {
            integerIsZero = true;
            ++p;
            if (p < m_end && *p >= '0' && *p <= '9')
                return failAt("Invalid number", start);
        } else if (*p >= '1' && *p <= '9') {
            while (p < m_end && *p >= '0' && *p <= '9') {
                if (integerDigits < 19)
                    mantissa = mantissa * 10 + static_cast<std::uint64_t>(*p - '0');
                ++integerDigits;
                ++p;
            }
        } else {
            return failAt("Invalid number", start);
        }
        bool whole = true;
        int leadingFractionZeros = 0;
        bool fractionStarted = false;
        if (p < m_end && *p == '.') {
            whole = false;
            ++p;
            const char* digits = p;
            while (p < m_end && *p >= '0' && *p <= '9') {
                if (!fractionStarted && *p == '0')
                    ++leadingFractionZeros;
                else
                    fractionStarted = true;
                ++p;
            }
            if (p == digits)
                return failAt("Invalid number", start);
        }
        long exponent = 0;
        if (p < m_end && (*p == 'e' || *p == 'E')) {
            whole = false;
            ++p;
            bool negativeExponent = false;
            if (p < m_end && (*p == '+' || *p == '-')) {
                negativeExponent = *p == '-';
                ++p;
            }
            const char* digits = p;
            while (p < m_end && *p >= '0' && *p <= '9') {
                if (exponent < 100000)
                    exponent = exponent * 10 + (*p - '0');
                ++p;
            }
            if (p == digits)
                return failAt("Invalid number", start);
            if (negativeExponent)
                exponent = -exponent;
        }
        m_cursor = p;
        if (whole && integerDigits <= 15) {
            const double magnitude = static_cast<double>(mantissa);
            m_values.emplace_back(negative ? -magnitude : magnitude);
            return true;
        }
        double value = 0;
        const auto [end, error] = std::from_chars(start, p, value);
        if (error == std::errc::result_out_of_range) {
            // Too small to hold rounds to zero; too large to hold is refused.
            const long magnitude =
                (integerIsZero ? -static_cast<long>(leadingFractionZeros) : integerDigits) + exponent;
            if (magnitude > 0)
                return failAt("Number out of range", start);
            value = negative ? -0.0 : 0.0;
        } else if (error != std::errc() || end != p || !std::isfinite(value)) {
            return failAt("Number out of range", start);
        }
        m_values.emplace_back(value);
        return true;
    }

    const char* m_begin;
    const char* m_cursor;
    const char* m_end;
    std::vector<JSONValue> m_values;
    std::vector<Frame> m_frames;
    std::string m_scratch;
    QString m_error;
};

JSONValue JSONValue::makeString(std::string_view bytes, bool asciiOnly)
{
    if (bytes.size() <= inlineCapacity) {
        JSONValue value;
        value.m_kind = Kind::String;
        value.m_inlineLength = static_cast<std::uint8_t>(bytes.size());
        if (!bytes.empty())
            std::memcpy(value.m_bytes, bytes.data(), bytes.size());
        return value;
    }
    JSONNode* node = detail::allocateNode(bytes.size() + 1, bytes.size());
    char* data = detail::stringBytes(node);
    if (!bytes.empty())
        std::memcpy(data, bytes.data(), bytes.size());
    data[bytes.size()] = '\0';
    node->asciiOnly = asciiOnly ? 1 : 0;
    return JSONValue(Kind::String, node);
}

JSONValue::JSONValue(std::string_view utf8) : JSONValue()
{
    if (isValidUtf8(utf8)) {
        *this = makeString(utf8, isAscii(utf8));
    } else {
        const QByteArray repaired = QString::fromUtf8(utf8.data(), static_cast<qsizetype>(utf8.size())).toUtf8();
        *this = makeString(std::string_view(repaired.constData(), static_cast<std::size_t>(repaired.size())), false);
    }
}

JSONValue::JSONValue(const QString& text) : JSONValue()
{
    const QByteArray bytes = text.toUtf8();
    const std::string_view view(bytes.constData(), static_cast<std::size_t>(bytes.size()));
    *this = makeString(view, isAscii(view));
}

JSONValue JSONValue::array(std::vector<JSONValue> items)
{
    JSONNode* node = detail::allocateNode(items.size() * sizeof(JSONValue), items.size());
    JSONValue* target = detail::arrayItems(node);
    for (std::size_t i = 0; i < items.size(); ++i)
        new (target + i) JSONValue(std::move(items[i]));
    return JSONValue(Kind::Array, node);
}

JSONValue JSONValue::array(std::initializer_list<JSONValue> items)
{
    return array(std::vector<JSONValue>(items));
}

JSONValue JSONValue::object(std::vector<std::pair<std::string, JSONValue>> members)
{
    std::vector<JSONValue> pairs;
    pairs.reserve(members.size() * 2);
    for (auto& [key, value] : members) {
        pairs.emplace_back(std::string_view(key));
        pairs.push_back(std::move(value));
    }
    bool allAsciiKeys = true;
    for (std::size_t i = 0; i < members.size() && allAsciiKeys; ++i)
        allAsciiKeys = pairs[2 * i].isAsciiText();
    const std::size_t unique = JSONParser::deduplicateMembers(pairs.data(), members.size(), allAsciiKeys);
    JSONNode* node = detail::allocateNode(unique * sizeof(JSONMember), unique);
    node->asciiOnly = allAsciiKeys ? 1 : 0;
    JSONMember* target = detail::objectMembers(node);
    for (std::size_t i = 0; i < unique; ++i)
        new (target + i) JSONMember{std::move(pairs[2 * i]), std::move(pairs[2 * i + 1])};
    return JSONValue(Kind::Object, node);
}

JSONValue JSONValue::object(std::initializer_list<std::pair<std::string_view, JSONValue>> members)
{
    std::vector<std::pair<std::string, JSONValue>> copy;
    copy.reserve(members.size());
    for (const auto& [key, value] : members)
        copy.emplace_back(std::string(key), value);
    return object(std::move(copy));
}

JSONValue::JSONValue(const JSONValue& other) noexcept : m_inlineLength(other.m_inlineLength), m_kind(other.m_kind)
{
    std::memcpy(m_bytes, other.m_bytes, sizeof m_bytes);
    if (hasNode())
        node()->refs.fetch_add(1, std::memory_order_relaxed);
}

JSONValue::JSONValue(JSONValue&& other) noexcept : m_inlineLength(other.m_inlineLength), m_kind(other.m_kind)
{
    std::memcpy(m_bytes, other.m_bytes, sizeof m_bytes);
    other.m_kind = Kind::Null;
    other.m_inlineLength = 0;
}

JSONValue& JSONValue::operator=(const JSONValue& other) noexcept
{
    if (this != &other) {
        JSONValue copy(other);
        *this = std::move(copy);
    }
    return *this;
}

JSONValue& JSONValue::operator=(JSONValue&& other) noexcept
{
    if (this != &other) {
        this->~JSONValue();
        std::memcpy(m_bytes, other.m_bytes, sizeof m_bytes);
        m_inlineLength = other.m_inlineLength;
        m_kind = other.m_kind;
        other.m_kind = Kind::Null;
        other.m_inlineLength = 0;
    }
    return *this;
}

JSONValue::~JSONValue()
{
    if (!hasNode())
        return;
    JSONNode* node = this->node();
    if (node->refs.fetch_sub(1, std::memory_order_acq_rel) != 1)
        return;
    if (m_kind == Kind::Array) {
        JSONValue* items = detail::arrayItems(node);
        for (std::size_t i = 0; i < node->size; ++i)
            items[i].~JSONValue();
    } else if (m_kind == Kind::Object) {
        JSONMember* members = detail::objectMembers(node);
        for (std::size_t i = 0; i < node->size; ++i)
            members[i].~JSONMember();
    }
    node->refs.~atomic();
    ::operator delete(node);
}

const JSONValue* JSONValue::find(std::string_view key) const
{
    if (m_kind != Kind::Object)
        return nullptr;
    const JSONNode* object = node();
    const JSONMember* members = detail::objectMembers(const_cast<JSONNode*>(object));
    for (std::size_t i = 0; i < object->size; ++i)
        if (members[i].name() == key)
            return &members[i].value;
    // Bytes differ, texts may not: only where a key on either side is not ASCII.
    const bool asciiKey = isAscii(key);
    if (asciiKey && object->asciiOnly)
        return nullptr;
    const std::string wanted = asciiKey ? std::string(key) : canonicalText(key);
    for (std::size_t i = 0; i < object->size; ++i) {
        const bool asciiName = members[i].key.isAsciiText();
        if (asciiName && asciiKey)
            continue; // compared above
        if (asciiName ? members[i].name() == wanted : canonicalText(members[i].name()) == wanted)
            return &members[i].value;
    }
    return nullptr;
}

bool JSONValue::isAsciiText() const { return hasNode() ? node()->asciiOnly != 0 : isAscii(*stringView()); }

std::optional<JSONValue> JSONValue::operator[](std::string_view key) const
{
    if (const JSONValue* found = find(key))
        return *found;
    return std::nullopt;
}

std::optional<bool> JSONValue::boolValue() const
{
    if (m_kind != Kind::Bool)
        return std::nullopt;
    return m_bytes[0] != 0;
}

std::optional<double> JSONValue::numberValue() const
{
    if (m_kind != Kind::Number)
        return std::nullopt;
    return number();
}

std::optional<std::string_view> JSONValue::stringView() const
{
    if (m_kind != Kind::String)
        return std::nullopt;
    if (!hasNode())
        return std::string_view(m_bytes, m_inlineLength);
    return std::string_view(detail::stringBytes(node()), node()->size);
}

std::optional<QString> JSONValue::stringValue() const
{
    if (m_kind != Kind::String)
        return std::nullopt;
    const std::string_view bytes = *stringView();
    return QString::fromUtf8(bytes.data(), static_cast<qsizetype>(bytes.size()));
}

std::optional<std::span<const JSONValue>> JSONValue::arrayValue() const
{
    if (m_kind != Kind::Array)
        return std::nullopt;
    return std::span<const JSONValue>(detail::arrayItems(node()), node()->size);
}

std::optional<std::span<const JSONMember>> JSONValue::objectValue() const
{
    if (m_kind != Kind::Object)
        return std::nullopt;
    return std::span<const JSONMember>(detail::objectMembers(node()), node()->size);
}

std::span<const JSONValue> JSONValue::items() const
{
    if (m_kind != Kind::Array)
        return {};
    return {detail::arrayItems(node()), node()->size};
}

std::span<const JSONMember> JSONValue::members() const
{
    if (m_kind != Kind::Object)
        return {};
    return {detail::objectMembers(node()), node()->size};
}

// ---- writing

namespace {

void appendNumber(std::string& out, double value)
{
    char buffer[32];
    std::to_chars_result written;
    if (std::trunc(value) == value && std::fabs(value) < 9007199254740992.0)
        written = std::to_chars(buffer, buffer + sizeof buffer, static_cast<long long>(value));
    else
        written = std::to_chars(buffer, buffer + sizeof buffer, value);
    out.append(buffer, written.ptr);
}

} // namespace

namespace {

// How each byte below 0x20, '"' and '\\' is written; other bytes stand as they are.
struct EscapeTable {
    char text[128][6];
    unsigned char length[128];
    constexpr EscapeTable() : text{}, length{}
    {
        const char* hex = "0123456789abcdef";
        for (int c = 0; c < 0x20; ++c) {
            text[c][0] = '\\';
            text[c][1] = 'u';
            text[c][2] = '0';
            text[c][3] = '0';
            text[c][4] = hex[c >> 4];
            text[c][5] = hex[c & 0xF];
            length[c] = 6;
        }
        const char shortForms[][2] = {{'\n', 'n'}, {'\r', 'r'}, {'\t', 't'}, {'\b', 'b'}, {'\f', 'f'}, {'"', '"'}, {'\\', '\\'}};
        for (const auto& form : shortForms) {
            const auto c = static_cast<unsigned char>(form[0]);
            text[c][0] = '\\';
            text[c][1] = form[1];
            length[c] = 2;
        }
    }
};
constexpr EscapeTable escapes;

void appendEscapedString(std::string& out, std::string_view text)
{
    out.push_back('"');
    const char* p = text.data();
    const char* end = p + text.size();
    const char* runStart = p;
    while (p < end) {
        p = skipPlainBytes(p, end, false);
        if (p >= end)
            break;
        const auto c = static_cast<unsigned char>(*p);
        if (c >= 0x80 || escapes.length[c] == 0) {
            ++p;
            continue;
        }
        out.append(runStart, static_cast<std::size_t>(p - runStart));
        out.append(escapes.text[c], escapes.length[c]);
        runStart = ++p;
    }
    out.append(runStart, static_cast<std::size_t>(end - runStart));
    out.push_back('"');
}

bool appendValue(std::string& out, const JSONValue& value)
{
    switch (value.kind()) {
    case JSONValue::Kind::Null: out.append("null"); return true;
    case JSONValue::Kind::Bool: out.append(*value.boolValue() ? "true" : "false"); return true;
    case JSONValue::Kind::Number: {
        const double number = *value.numberValue();
        if (!std::isfinite(number))
            return false;
        appendNumber(out, number);
        return true;
    }
    case JSONValue::Kind::String: appendEscapedString(out, *value.stringView()); return true;
    case JSONValue::Kind::Array: {
        out.push_back('[');
        bool first = true;
        for (const JSONValue& item : value.items()) {
            if (!first)
                out.push_back(',');
            first = false;
            if (!appendValue(out, item))
                return false;
        }
        out.push_back(']');
        return true;
    }
    case JSONValue::Kind::Object: {
        out.push_back('{');
        bool first = true;
        for (const JSONMember& member : value.members()) {
            if (!first)
                out.push_back(',');
            first = false;
            appendEscapedString(out, member.name());
            out.push_back(':');
            if (!appendValue(out, member.value))
                return false;
        }
        out.push_back('}');
        return true;
    }
    }
    return false;
}

// Bytes the compact form will take, not counting escapes: one cheap walk over the nodes lets the
// writer reserve its buffer once instead of regrowing (and refaulting) it many times.
std::size_t estimatedSize(const JSONValue& value)
{
    switch (value.kind()) {
    case JSONValue::Kind::Null:
    case JSONValue::Kind::Bool: return 5;
    case JSONValue::Kind::Number: return 12;
    case JSONValue::Kind::String: return value.stringView()->size() + 2;
    case JSONValue::Kind::Array: {
        std::size_t size = 2;
        for (const JSONValue& item : value.items())
            size += estimatedSize(item) + 1;
        return size;
    }
    case JSONValue::Kind::Object: {
        std::size_t size = 2;
        for (const JSONMember& member : value.members())
            size += member.name().size() + 4 + estimatedSize(member.value);
        return size;
    }
    }
    return 0;
}

} // namespace

bool JSONValue::encodeTo(std::string& out) const
{
    const std::size_t before = out.size();
    if (m_kind == Kind::Array || m_kind == Kind::Object) {
        const std::size_t estimate = estimatedSize(*this);
        out.reserve(before + estimate + estimate / 16);
    }
    if (appendValue(out, *this))
        return true;
    out.resize(before);
    return false;
}

Result<std::string, JSONError> JSONValue::encode() const
{
    std::string out;
    if (!encodeTo(out))
        return JSONError{QStringLiteral("A number that is not finite cannot be written as JSON")};
    return out;
}

std::string JSONValue::textFormUtf8() const
{
    switch (m_kind) {
    case Kind::Null: return "null";
    case Kind::Bool: return m_bytes[0] ? "true" : "false";
    case Kind::Number: {
        const double number = this->number();
        if (std::trunc(number) == number && std::fabs(number) < 9223372036854775808.0) {
            char buffer[24];
            const auto written =
                std::to_chars(buffer, buffer + sizeof buffer, static_cast<long long>(number));
            return std::string(buffer, written.ptr);
        }
        char buffer[32];
        const auto written = std::to_chars(buffer, buffer + sizeof buffer, number);
        return std::string(buffer, written.ptr);
    }
    case Kind::String: return std::string(*stringView());
    case Kind::Array:
    case Kind::Object: {
        std::string out;
        if (!encodeTo(out))
            return {};
        return out;
    }
    }
    return {};
}

QString JSONValue::textForm() const { return QString::fromStdString(textFormUtf8()); }

Result<JSONValue, JSONError> JSONValue::decode(std::string_view utf8) { return JSONParser(utf8).run(); }

// ---- equality

// Texts are equal when their bytes are, or when both, canonically composed, are.
bool sameText(const JSONValue& a, const JSONValue& b)
{
    const std::string_view x = *a.stringView();
    const std::string_view y = *b.stringView();
    if (x == y)
        return true;
    if (a.isAsciiText() && b.isAsciiText())
        return false;
    return canonicalText(x) == canonicalText(y);
}

bool operator==(const JSONValue& a, const JSONValue& b)
{
    if (a.m_kind != b.m_kind)
        return false;
    if (a.hasNode() && b.hasNode() && a.node() == b.node())
        return true;
    switch (a.m_kind) {
    case JSONValue::Kind::Null: return true;
    case JSONValue::Kind::Bool: return a.m_bytes[0] == b.m_bytes[0];
    case JSONValue::Kind::Number: return a.number() == b.number();
    case JSONValue::Kind::String: return sameText(a, b);
    case JSONValue::Kind::Array: {
        const auto left = a.items();
        const auto right = b.items();
        if (left.size() != right.size())
            return false;
        for (std::size_t i = 0; i < left.size(); ++i)
            if (!(left[i] == right[i]))
                return false;
        return true;
    }
    case JSONValue::Kind::Object: {
        const auto left = a.members();
        const auto right = b.members();
        if (left.size() != right.size())
            return false;
        for (const JSONMember& member : left) {
            const JSONValue* other = b.find(member.name());
            if (!other || !(member.value == *other))
                return false;
        }
        return true;
    }
    }
    return false;
}

} // namespace nimbrel
