// Wildcards of criteria: `*` any run, `?` one character, characters that differ only in the case bit are equal.
// Texts and patterns in the machine's code page. Pure.
#pragma once

#include <cstddef>
#include <string_view>

namespace rehearse {

// Whether the whole text fits. An empty text fits no pattern.
bool FitsPattern(std::string_view text, std::string_view pattern);

// Whether every text that fits `pattern` also fits `wider`. True is certain; some true cases are missed.
bool IsPatternWithin(std::string_view pattern, std::string_view wider);

// How far a text agrees with a pattern from its two ends: of two that do not fit, the one that agrees more was probably
// meant. 0 for an empty text, at least 1 for any other.
std::size_t Likeness(std::string_view text, std::string_view pattern);

} // namespace rehearse
