#include "rehearse/watch/Patterns.h"

#include "simwin/kernel/Text.h"

#include <algorithm>
#include <vector>

namespace rehearse {

constexpr unsigned char AllButCaseBit = 0xDF;

static bool AreAlike(char a, char b) {
    return (static_cast<unsigned char>(a ^ b) & AllButCaseBit) == 0;
}

// Goes through `text` with all places of `pattern` that can be reached at the same time. isOne: whether a pattern's
// character can match a character of the text; isRun: whether a `*` can.
template<typename IsOne>
static bool Walk(std::string_view text, std::string_view pattern, IsOne isOne) {
    std::vector<bool> now(pattern.size() + 1), next;
    const auto closeStars = [&](std::vector<bool>& places) { // a `*` may match nothing
        for (std::size_t k = 0; k < pattern.size(); ++k) {
            if (places[k] && pattern[k] == '*') {
                places[k + 1] = true;
            }
        }
    };
    now[0] = true;
    closeStars(now);
    for (const char c : text) {
        next.assign(pattern.size() + 1, false);
        for (std::size_t k = 0; k < pattern.size(); ++k) {
            if (!now[k]) {
                continue;
            }
            if (pattern[k] == '*') {
                next[k] = true;
            } else if (isOne(c, pattern[k])) {
                next[k + 1] = true;
            }
        }
        now.swap(next);
        closeStars(now);
    }
    return now[pattern.size()];
}

bool FitsPattern(std::string_view text, std::string_view pattern) {
    return !text.empty() && machine::MatchesWildcard(text, pattern);
}

// The narrower pattern is walked as a text: its `?` is one character that may be any, its `*` a run of any.
bool IsPatternWithin(std::string_view pattern, std::string_view wider) {
    return Walk(pattern, wider, [](char c, char of) {
        if (c == '*') {
            return false; // only a `*` matches a run
        }
        return of == '?' || (c != '?' && AreAlike(c, of));
    });
}

std::size_t Likeness(std::string_view text, std::string_view pattern) {
    if (text.empty()) {
        return 0;
    }
    const std::size_t most = std::min(text.size(), pattern.size());
    std::size_t start = 0, end = 0;
    while (start < most && AreAlike(text[start], pattern[start])) {
        ++start;
    }
    while (start + end < most && AreAlike(text[text.size() - 1 - end], pattern[pattern.size() - 1 - end])) {
        ++end;
    }
    return 1 + start + end;
}

} // namespace rehearse
