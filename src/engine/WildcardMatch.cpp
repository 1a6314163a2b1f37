#include "engine/WildcardMatch.h"

constexpr unsigned char AllButCaseBit = 0xDF;

// The end of the pattern fits nothing: compared as a character it would differ from a blank in the case bit alone, and
// the walk would run past the end of the pattern.
static bool FitsOne(char text, char pattern) {
    const auto difference = static_cast<unsigned char>(text ^ pattern);
    return pattern != 0 && ((difference & AllButCaseBit) == 0 || pattern == '?');
}

// The first place from here on at which a run after a `*` can begin; the end of the text if there is none.
static const char* SkipToFit(const char* text, char pattern) {
    if (pattern == '?' || pattern == '*') {
        return text;
    }
    while (*text != 0 && (static_cast<unsigned char>(*text ^ pattern) & AllButCaseBit) != 0) {
        ++text;
    }
    return text;
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
            text = SkipToFit(text, *pattern);
            restartText = text + 1;
        } else if (FitsOne(*text, *pattern)) {
            ++text;
            ++pattern;
        } else {
            // Only the last `*` is retried: whatever an earlier one could match, this one can match as well.
            pattern = restartPattern;
            text = SkipToFit(restartText, *pattern);
            restartText = text + 1;
        }
    }
    while (*pattern == '*') {
        ++pattern;
    }
    return *pattern == 0;
}
