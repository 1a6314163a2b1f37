// Texts: copying, comparing in the order of words, letters, searching, numbers. Code page 1252.
#include "simwin/texts/api.h"

#include "simwin/kernel/Call.h"
#include "simwin/texts/api.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace machine {

using Byte = unsigned char;

namespace {
// Letters whose other case is not 32 code points away.
struct LetterPair {
    Byte capital, small;
};
} // namespace
constexpr LetterPair OddPairs[] = {{0x8A, 0x9A}, {0x8C, 0x9C}, {0x8E, 0x9E}, {0x9F, 0xFF}};

static constexpr bool IsCapital(Byte c) {
    return (c >= 'A' && c <= 'Z') || (c >= 0xC0 && c <= 0xDE && c != 0xD7);
}
static Byte ToSmall(Byte c) {
    if (IsCapital(c)) {
        return static_cast<Byte>(c + 32);
    }
    for (const LetterPair& pair : OddPairs) {
        if (c == pair.capital) {
            return pair.small;
        }
    }
    return c;
}

// The order of words: marks, then digits, then letters.
constexpr std::string_view MarkOrder = "\t\n\v\f\r !\"#$%&()*,./:;?@[\\]^_`{|}~+<=>";
// The letters below the accents, from 0xC0 on, in small form. A blank stands for a character that is not a letter.
constexpr std::string_view BaseLetters = "aaaaaaaceeeeiiiidnooooo ouuuuyts";
constexpr unsigned DigitWeight = 512, LetterWeight = 1024;

static bool IsPassedOver(Byte c) {
    return c == '-' || c == '\'' || c == 0xAD;
}

// The weight of a character among words; 0 for what does not count (hyphens, apostrophes, controls).
static unsigned WordWeight(Byte c) {
    if (IsPassedOver(c)) {
        return 0;
    }
    if (c >= '0' && c <= '9') {
        return DigitWeight + c;
    }
    const Byte small = ToSmall(c);
    if (small >= 'a' && small <= 'z') {
        return LetterWeight + small;
    }
    if (small == 0xFF) {
        return LetterWeight + 'y';
    }
    if (small == 0x9A || small == 0x9E) {
        return LetterWeight + (small == 0x9A ? 's' : 'z');
    }
    if (c >= 0xC0 && BaseLetters[(c - 0xC0u) % 32] != ' ') {
        return LetterWeight + static_cast<Byte>(BaseLetters[(c - 0xC0u) % 32]);
    }
    const std::size_t mark = MarkOrder.find(static_cast<char>(c));
    if (mark != std::string_view::npos) {
        return static_cast<unsigned>(mark) + 1;
    }
    return c < 0x80 ? 0 : c + 1u;
}

static int Sign(bool less) {
    return less ? -1 : 1;
}

// Words first, then accents, then case, then hyphens and apostrophes: what comes later decides only among equals.
static int CompareWords(const char* a, const char* b, bool ignoreCase) {
    if (!a || !b) {
        return a == b ? 0 : Sign(!a);
    }
    int accents = 0, letterCase = 0, hyphens = 0;
    for (std::size_t i = 0, k = 0;;) {
        std::size_t passedA = 0, passedB = 0;
        while (a[i] && WordWeight(static_cast<Byte>(a[i])) == 0) {
            passedA += IsPassedOver(static_cast<Byte>(a[i++])) ? 1 : 0;
        }
        while (b[k] && WordWeight(static_cast<Byte>(b[k])) == 0) {
            passedB += IsPassedOver(static_cast<Byte>(b[k++])) ? 1 : 0;
        }
        if (!hyphens && passedA != passedB) {
            hyphens = Sign(passedA < passedB);
        } else if (!hyphens && passedA && a[i - 1] != b[k - 1]) {
            hyphens = Sign(a[i - 1] == '\''); // an apostrophe comes before a hyphen
        }
        if (!a[i] || !b[k]) {
            if (a[i] || b[k]) {
                return Sign(!a[i]);
            }
            return accents ? accents : letterCase && !ignoreCase ? letterCase : hyphens;
        }
        const auto x = static_cast<Byte>(a[i++]), y = static_cast<Byte>(b[k++]);
        if (x == y) {
            continue;
        }
        const unsigned weightX = WordWeight(x), weightY = WordWeight(y);
        if (weightX != weightY) {
            return Sign(weightX < weightY);
        }
        const Byte smallX = ToSmall(x), smallY = ToSmall(y);
        if (!accents && smallX != smallY) {
            accents = Sign(smallX < smallY);
        } else if (!letterCase && smallX == smallY) {
            letterCase = Sign(x == smallX); // small letters first
        }
    }
}

static char* Unconst(const char* text) {
    return const_cast<char*>(text);
}

static bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

template<typename Fold>
static char* FindPart(const char* text, const char* part, Fold fold) {
    if (!text || !part || !*part) {
        return nullptr;
    }
    for (; *text; ++text) {
        std::size_t i = 0;
        while (part[i] && fold(static_cast<Byte>(text[i])) == fold(static_cast<Byte>(part[i]))) {
            ++i;
        }
        if (!part[i]) {
            return Unconst(text);
        }
    }
    return nullptr;
}

} // namespace machine

namespace simwin {

using namespace machine;

int lstrlenA(LPCSTR text) {
    SIM_CALL("lstrlenA", "");
    return text ? static_cast<int>(std::strlen(text)) : 0;
}

int lstrcmpA(LPCSTR a, LPCSTR b) {
    SIM_CALL("lstrcmpA", "");
    return CompareWords(a, b, false);
}

int lstrcmpiA(LPCSTR a, LPCSTR b) {
    SIM_CALL("lstrcmpiA", "");
    return CompareWords(a, b, true);
}

LPSTR CharLowerA(LPSTR text) {
    SIM_CALL("CharLowerA", "");
    if (reinterpret_cast<ULONG_PTR>(text) < 0x10000) {
        NotModelled("CharLowerA", "a single character");
    }
    for (char* at = text; *at; ++at) {
        *at = static_cast<char>(ToSmall(static_cast<Byte>(*at)));
    }
    return text;
}

LPSTR StrStrA(LPCSTR text, LPCSTR part) {
    SIM_CALL("StrStrA", "");
    return FindPart(text, part, [](Byte c) { return c; });
}

LPSTR StrStrIA(LPCSTR text, LPCSTR part) {
    SIM_CALL("StrStrIA", "");
    return FindPart(text, part, ToSmall);
}

LPSTR StrChrA(LPCSTR text, WORD character) {
    SIM_CALL("StrChrA", "");
    for (; text && *text; ++text) {
        if (*text == static_cast<char>(character)) {
            return Unconst(text);
        }
    }
    return nullptr;
}

LPSTR StrRChrA(LPCSTR text, LPCSTR end, WORD character) {
    SIM_CALL("StrRChrA", "");
    if (!text) {
        return nullptr;
    }
    const char* found = nullptr;
    for (; end ? text < end : *text != 0; ++text) {
        if (*text == static_cast<char>(character)) {
            found = text;
        }
    }
    return Unconst(found);
}

int StrToIntA(LPCSTR text) {
    SIM_CALL("StrToIntA", "");
    if (!text) {
        return 0;
    }
    const bool negative = *text == '-';
    DWORD number = 0;
    for (const char* at = text + (negative ? 1 : 0); IsDigit(*at); ++at) {
        number = number * 10 + static_cast<DWORD>(*at - '0');
    }
    return static_cast<int>(negative ? 0 - number : number);
}

BOOL StrTrimA(LPSTR text, LPCSTR characters) {
    SIM_CALL("StrTrimA", "");
    if (!text || !*text) {
        return FALSE;
    }
    const std::string_view set = characters ? characters : "", whole = text;
    const std::size_t first = whole.find_first_not_of(set);
    const std::size_t last = whole.find_last_not_of(set);
    const std::size_t length = first == std::string_view::npos ? 0 : last + 1 - first;
    if (length == whole.size()) {
        return FALSE;
    }
    if (length) {
        std::memmove(text, text + first, length);
    }
    text[length] = 0;
    return TRUE;
}

} // namespace simwin
