// Manners of the command line: suggestions for what is misspelled, and outputs that overwrite nothing.
#pragma once

#include "rehearse/description/Description.h"
#include "rehearse/host/Options.h"

#include <string>
#include <string_view>
#include <vector>

namespace rehearse {

// The name nearest to an unknown word, by the fewest changes of a letter; "" if none is near.
std::string NearestName(std::string_view word, const std::vector<std::string>& names);

// "; did you mean 'x'?" for the one of the names that is nearest, "" if none is near.
std::string DidYouMean(std::string_view word, const std::vector<std::string>& names);
// The same for a file that is not there, by the names beside it.
std::string DidYouMeanFile(const std::string& file);

// Throws InputError for an output that is one of the inputs, or the same file as another output. description: null
// before it is read.
void CheckOutputs(const Options& options, const TomlTable* description);

} // namespace rehearse
