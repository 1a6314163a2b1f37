// Reads a description with all that it includes into one record, by the table of keys. Host side, one thread.
#pragma once

#include "rehearse/Description.h"

#include <string>

namespace rehearse {

// file: host path, as it shall stand in messages. Throws InputError at the first thing that is wrong: a syntax error,
// an unknown key, a value of another type, a text that is none of the allowed, a missing needed key, an include that
// goes in a circle.
Record ReadDescription(const std::string& file);

// A file of the host as it stands. Throws InputError at `at` if it cannot be read.
std::string ReadHostFile(const std::string& file, const Position& at);

} // namespace rehearse
