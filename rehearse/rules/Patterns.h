// Wildcards of criteria: `*` any run, `?` one character, two characters alike that differ in the bit of the case alone.
// Texts and patterns in the machine's code page. Pure.
#pragma once

#include <string_view>

namespace rehearse {

// Whether the whole text fits. An empty text fits no pattern.
bool FitsPattern(std::string_view text, std::string_view pattern);

// Whether every text that fits `pattern` also fits `wider`. A yes is certain; some that hold are not seen.
bool IsPatternWithin(std::string_view pattern, std::string_view wider);

} // namespace rehearse
