#include "simwin/kernel/Text.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

namespace machine {

// The upper half of code page 1252; the five unassigned places map to the control of the same number, as Windows does.
constexpr std::array<char16_t, 32> High1252 = {0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                               0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
                                               0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                               0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

std::string Lower(std::string_view text) {
    std::string result(text);
    for (char& c : result) {
        c = LowerChar(c);
    }
    return result;
}

std::string Upper(std::string_view text) {
    std::string result(text);
    for (char& c : result) {
        if (c >= 'a' && c <= 'z') {
            c = static_cast<char>(c - 32);
        }
    }
    return result;
}

bool EqualNoCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (a[i] != b[i] && LowerChar(a[i]) != LowerChar(b[i])) {
            return false;
        }
    }
    return true;
}

bool StartsWithNoCase(std::string_view text, std::string_view start) {
    return text.size() >= start.size() && EqualNoCase(text.substr(0, start.size()), start);
}

bool EndsWithNoCase(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && EqualNoCase(text.substr(text.size() - end.size()), end);
}

std::size_t FindNoCase(std::string_view text, std::string_view part, std::size_t from) {
    if (part.size() > text.size()) {
        return std::string_view::npos;
    }
    for (std::size_t i = from; i + part.size() <= text.size(); ++i) {
        if (EqualNoCase(text.substr(i, part.size()), part)) {
            return i;
        }
    }
    return std::string_view::npos;
}

bool NoCaseLess::operator()(std::string_view a, std::string_view b) const {
    const std::size_t n = a.size() < b.size() ? a.size() : b.size();
    for (std::size_t i = 0; i < n; ++i) {
        if (a[i] == b[i]) {
            continue;
        }
        const auto x = static_cast<unsigned char>(LowerChar(a[i]));
        const auto y = static_cast<unsigned char>(LowerChar(b[i]));
        if (x != y) {
            return x < y;
        }
    }
    return a.size() < b.size();
}

// As the product compares: characters whose codes differ in the bit of the case alone are alike, `\` and `|` too.
static bool AreAlike(char a, char b) {
    constexpr unsigned char AllButCaseBit = 0xDF;
    return (static_cast<unsigned char>(a ^ b) & AllButCaseBit) == 0;
}

bool MatchesWildcard(std::string_view text, std::string_view pattern) {
    std::size_t t = 0, p = 0, star = std::string_view::npos, restart = 0;
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            restart = t;
        } else if (p < pattern.size() && (pattern[p] == '?' || AreAlike(pattern[p], text[t]))) {
            ++p;
            ++t;
        } else if (star != std::string_view::npos) {
            p = star + 1;
            t = ++restart;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*') {
        ++p;
    }
    return p == pattern.size();
}

char16_t Utf16FromAnsiByte(unsigned char byte) {
    return byte >= 0x80 && byte < 0xA0 ? High1252[byte - 0x80u] : static_cast<char16_t>(byte);
}

std::u16string Utf16FromAnsi(std::string_view text) {
    std::u16string result;
    result.reserve(text.size());
    for (const char c : text) {
        result.push_back(Utf16FromAnsiByte(static_cast<unsigned char>(c)));
    }
    return result;
}

// '?' if the code page has no such character.
static char AnsiOfRare(char16_t c, bool* lossy) {
    const auto* const found = std::find(High1252.begin(), High1252.end(), c);
    if (found != High1252.end()) {
        return static_cast<char>(0x80 + (found - High1252.begin()));
    }
    if (lossy) {
        *lossy = true;
    }
    return '?';
}

static char AnsiOf(char16_t c, bool* lossy) {
    return c < 0x80 || (c >= 0xA0 && c < 0x100) ? static_cast<char>(c) : AnsiOfRare(c, lossy);
}

std::string AnsiFromUtf16(std::u16string_view text, bool* lossy) {
    std::string result(text.size(), '?');
    for (std::size_t at = 0; at < text.size(); ++at) {
        result[at] = AnsiOf(text[at], lossy);
    }
    return result;
}

std::u16string Utf16FromUtf8(std::string_view text) {
    std::u16string result;
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        const int more = lead < 0x80 ? 0 : lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC0 ? 1 : -1;
        if (more < 0 || i + static_cast<std::size_t>(more) >= text.size()) {
            result.push_back(lead < 0x80 ? static_cast<char16_t>(lead) : u'\xFFFD');
            ++i;
            continue;
        }
        char32_t code = more == 0 ? lead : more == 1 ? lead & 0x1Fu : more == 2 ? lead & 0x0Fu : lead & 0x07u;
        for (int k = 1; k <= more; ++k) {
            code = code << 6 | (static_cast<unsigned char>(text[i + static_cast<std::size_t>(k)]) & 0x3Fu);
        }
        i += static_cast<std::size_t>(more) + 1;
        if (code >= 0x10000) {
            code -= 0x10000;
            result.push_back(static_cast<char16_t>(0xD800 + (code >> 10)));
            result.push_back(static_cast<char16_t>(0xDC00 + (code & 0x3FF)));
        } else {
            result.push_back(static_cast<char16_t>(code));
        }
    }
    return result;
}

std::string Utf8FromAnsi(std::string_view text) {
    std::string result;
    for (const char c : text) {
        const char16_t code = Utf16FromAnsiByte(static_cast<unsigned char>(c));
        if (code < 0x80) {
            result.push_back(static_cast<char>(code));
        } else if (code < 0x800) {
            result.push_back(static_cast<char>(0xC0 | code >> 6));
            result.push_back(static_cast<char>(0x80 | (code & 0x3F)));
        } else {
            result.push_back(static_cast<char>(0xE0 | code >> 12));
            result.push_back(static_cast<char>(0x80 | (code >> 6 & 0x3F)));
            result.push_back(static_cast<char>(0x80 | (code & 0x3F)));
        }
    }
    return result;
}

std::string AnsiFromUtf8(std::string_view text) {
    return AnsiFromUtf16(Utf16FromUtf8(text));
}

std::string AnsiFromUtf16Bytes(std::string_view bytes) {
    // An export is read through here, half a million characters at once: no copy of it in between.
    constexpr std::size_t AtOnce = 4;
    constexpr std::uint64_t NotAscii = 0xFF80FF80FF80FF80;
    std::string result(bytes.size() / 2, '?');
    for (std::size_t i = 0; i < result.size();) {
        std::uint64_t four = NotAscii;
        if (result.size() - i >= AtOnce) {
            std::memcpy(&four, bytes.data() + 2 * i, sizeof four);
        }
        if (!(four & NotAscii)) { // nearly all of an export
            for (const std::size_t end = i + AtOnce; i < end; ++i, four >>= 16) {
                result[i] = static_cast<char>(four);
            }
            continue;
        }
        const auto low = static_cast<unsigned char>(bytes[2 * i]), high = static_cast<unsigned char>(bytes[2 * i + 1]);
        result[i++] = AnsiOf(static_cast<char16_t>(low | high << 8), nullptr);
    }
    return result;
}

bool IsUnmarkedUtf16(std::string_view bytes) {
    constexpr std::size_t Sample = 512;
    const std::size_t pairs = std::min(bytes.size(), Sample) / 2;
    std::size_t zeros = 0;
    for (std::size_t i = 0; i < pairs; ++i) {
        zeros += bytes[2 * i] != 0 && bytes[2 * i + 1] == 0;
    }
    return pairs > 0 && zeros * 10 >= pairs * 9;
}

std::optional<std::string> AnsiFromFile(std::string_view bytes) {
    std::string text;
    std::string swapped(bytes.starts_with("\xFE\xFF") ? bytes.substr(2) : std::string_view());
    for (std::size_t i = 0; i + 1 < swapped.size(); i += 2) {
        std::swap(swapped[i], swapped[i + 1]);
    }
    if (!swapped.empty()) {
        text = AnsiFromUtf16Bytes(swapped);
    } else if (bytes.starts_with("\xFF\xFE")) {
        text = AnsiFromUtf16Bytes(bytes.substr(2));
    } else if (IsUnmarkedUtf16(bytes)) {
        text = AnsiFromUtf16Bytes(bytes);
    } else if (bytes.starts_with("\xEF\xBB\xBF")) {
        text = AnsiFromUtf8(bytes.substr(3));
    } else {
        text = bytes;
    }
    if (text.find('\0') != std::string::npos) {
        return std::nullopt;
    }
    return text;
}

std::vector<std::string> Split(std::string_view text, char at) {
    std::vector<std::string> parts;
    std::size_t from = 0;
    for (;;) {
        const std::size_t to = text.find(at, from);
        parts.emplace_back(text.substr(from, to == std::string_view::npos ? to : to - from));
        if (to == std::string_view::npos) {
            return parts;
        }
        from = to + 1;
    }
}

} // namespace machine
