#include "engine/WildcardMatch.h"

static constexpr unsigned char AllButCaseBit = 0xDF;

// The end of the pattern fits nothing: compared as a character it would differ from a blank in the case bit alone, and
// the walk would run on behind the pattern.
static bool FitsOne(char text, char pattern) {
    const auto difference = static_cast<unsigned char>(text ^ pattern);
    return pattern != 0 && ((difference & AllButCaseBit) == 0 || pattern == '?');
}

LONG WildcardMatch(const char* text, const char* pattern) {
    if (text == nullptr || *text == 0 || pattern == nullptr) {
        return 0;
    }
    for (; *text != 0 && *pattern != '*'; ++text, ++pattern) {
        if (!FitsOne(*text, *pattern)) {
            return 0;
        }
    }
    const char* restartText = nullptr;
    const char* restartPattern = nullptr;
    while (*text != 0) {
        if (*pattern == '*') {
            ++pattern;
            if (*pattern == 0) {
                return 1;
            }
            restartPattern = pattern;
            restartText = text + 1;
        } else if (FitsOne(*text, *pattern)) {
            ++text;
            ++pattern;
        } else {
            // Only the last `*` is tried anew: whatever an earlier one could take, this one can take as well.
            pattern = restartPattern;
            text = restartText++;
        }
    }
    while (*pattern == '*') {
        ++pattern;
    }
    return *pattern == 0;
}
