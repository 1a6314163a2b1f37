// The wildcard match against its simplest definition: a table of which prefixes match which.
#include "fuzz/Stage.h"

#include "engine/WildcardMatch.h"

#include <vector>

namespace fuzz {

constexpr std::size_t LongestText = 400; // the table grows with the product of both

static bool IsSameCharacter(char a, char b) {
    return ((a ^ b) & ~0x20) == 0;
}

static bool FitsByTable(const std::string& text, const std::string& pattern) {
    // fits[t]: the first t characters of the text fit the part of the pattern that was taken so far.
    std::vector<char> fits(text.size() + 1);
    fits[0] = 1;
    for (const char p : pattern) {
        std::vector<char> next(text.size() + 1);
        for (std::size_t t = 0; t <= text.size(); ++t) {
            if (p == '*') {
                next[t] = fits[t] || (t > 0 && next[t - 1]);
            } else if (t > 0) {
                next[t] = fits[t - 1] && (p == '?' || IsSameCharacter(text[t - 1], p));
            }
        }
        fits.swap(next);
    }
    return !text.empty() && fits[text.size()];
}

void Prepare() {
}

// A line feed separates text and pattern.
void TryInput(std::string_view input) {
    const std::size_t end = input.find('\n');
    const std::string text = TextOf(input.substr(0, end));
    const std::string pattern = end == std::string_view::npos ? "*" : TextOf(input.substr(end + 1));
    if (text.size() > LongestText || pattern.size() > LongestText) {
        return;
    }
    Require((WildcardMatch(text.c_str(), pattern.c_str()) != 0) == FitsByTable(text, pattern),
            "the match is the table's");
    Require(WildcardMatch(text.c_str(), "*") == (text.empty() ? 0 : 1), "a star fits every text but the empty one");
    Require(WildcardMatch(nullptr, pattern.c_str()) == 0 && WildcardMatch(text.c_str(), nullptr) == 0,
            "null fits nothing");
}

} // namespace fuzz
