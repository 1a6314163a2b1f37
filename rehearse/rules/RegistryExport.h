// A configuration that is kept in the registry, from its export, in the form of the file: the rules are the same, and
// each line of the export becomes the same line of the file. Pure.
#pragma once

#include <string>

namespace rehearse {

bool IsRegistryExport(const std::string& bytes);

// file: for the error. Columns are those of the made line. Throws InputError if the configuration's key is not in it.
std::string IniOfExport(const std::string& file, const std::string& bytes);

} // namespace rehearse
