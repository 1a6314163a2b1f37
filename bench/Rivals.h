// Other people's code for the same work, on the same texts. In a file of its own, since their headers conflict with the
// product's.
#pragma once

#include <cstddef>

namespace bench {

// Each reads the whole settings text, which ends with a zero. Returns: the values, or the sections, that it met.
std::size_t ParseWithInih(const char* text);
std::size_t ParseWithGlib(const char* text, std::size_t length);

// The same match as WildcardMatch: ignoring case, a backslash is a character.
bool MatchWithFnmatch(const char* text, const char* pattern);

} // namespace bench
