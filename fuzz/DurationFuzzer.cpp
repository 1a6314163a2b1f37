// Durations as an administrator may write them.
#include "fuzz/Stage.h"

#include "config/Durations.h"

namespace fuzz {

constexpr std::size_t LongestDuration = 63;

static bool IsLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

void Prepare() {
}

void TryInput(std::string_view input) {
    const std::string text = TextOf(input);
    const DWORD milliseconds = ParseDuration(text.c_str());
    Require(text.size() <= LongestDuration || milliseconds == 0, "what is too long is no duration");
    if (text.size() >= LongestDuration) {
        return;
    }
    bool hasLetter = false;
    for (const char c : text) {
        hasLetter = hasLetter || IsLetter(c);
    }
    // A letter after the first one means nothing; one after a plain number is its unit.
    const DWORD inSeconds = ParseDuration((text + "s").c_str());
    Require(hasLetter ? inSeconds == milliseconds : inSeconds == milliseconds * 1000,
            "only the first letter is the unit");
    Require(ParseDuration((text + "H").c_str()) == ParseDuration((text + "h").c_str()), "a unit in either case");
}

} // namespace fuzz
