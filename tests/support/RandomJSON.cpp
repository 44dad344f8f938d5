#include "RandomJSON.h"

#include <cmath>
#include <cstring>

namespace nimbrel::test {

JSONValue RandomJSON::value(int depth)
{
    std::uniform_int_distribution<int> kind(0, depth >= maximumDepth ? 3 : 5);
    switch (kind(random)) {
    case 0:
        return JSONValue();
    case 1:
        return JSONValue(random() % 2 == 0);
    case 2:
        switch (random() % 4) {
        case 0:
            return JSONValue(
                static_cast<double>(static_cast<std::int64_t>(random() % 2000001) - 1000000));
        case 1:
            return JSONValue(std::ldexp(static_cast<double>(random() % 1000000),
                                        -static_cast<int>(random() % 60)));
        case 2: {
            const std::uint64_t bits = random();
            double number;
            std::memcpy(&number, &bits, sizeof number);
            return std::isfinite(number) ? JSONValue(number) : JSONValue(0.25);
        }
        default:
            return JSONValue(static_cast<double>(random()) * ((random() % 2) ? 1 : -1));
        }
    case 3: {
        if (longStringBytes && random() % 16 == 0)
            return JSONValue(std::string(longStringBytes, 'x') + "🇳🇴e\xCC\x81");
        static const char* const pieces[] = {"a",    "Z", " ", "\"",        "\\",           "\n",
                                             "\x01", "é", "😀", "e\xCC\x81", "\xE2\x80\xA8", "/",
                                             "|",    "🇳🇴"};
        std::string text;
        const auto length = random() % 12;
        for (std::uint64_t i = 0; i < length; ++i)
            text += pieces[random() % std::size(pieces)];
        if (random() % 4 == 0 && !keys.empty())
            text = keys[random() % keys.size()];
        return JSONValue(text);
    }
    case 4: {
        std::vector<JSONValue> items;
        const auto length = random() % 6;
        for (std::uint64_t i = 0; i < length; ++i)
            items.push_back(value(depth + 1));
        return JSONValue::array(std::move(items));
    }
    default: {
        std::vector<std::pair<std::string, JSONValue>> members;
        const auto length = random() % 8;
        for (std::uint64_t i = 0; i < length; ++i)
            members.emplace_back(keys[random() % keys.size()], value(depth + 1));
        return JSONValue::object(std::move(members));
    }
    }
}

} // namespace nimbrel::test
