// Reads what the registry editor exports: "Windows Registry Editor Version 5.00" (UTF-16 with byte order mark, or
// UTF-8) and "REGEDIT4" (ANSI), with wrapped hex lines, all types of value, and deletions of keys and values. The whole
// file is read before anything is applied, so a broken one changes nothing.
#pragma once

#include "simwin/registry/Registry.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace machine {

struct ExportError {
    unsigned line = 0, column = 0; // from 1
    std::string text;
};

struct ExportedValue {
    std::string name;
    bool deleted = false;
    simwin::DWORD type = 0;
    std::vector<std::uint8_t> data; // texts in ANSI
};

struct ExportedKey {
    std::string path; // with the long name of its root
    bool deleted = false;
    std::vector<ExportedValue> values;
};

// The keys in the order of the file. With an error `keys` is not to be used.
std::optional<ExportError> ReadExport(std::string_view bytes, std::vector<ExportedKey>& keys);
void ApplyExport(const std::vector<ExportedKey>& keys, Registry& registry);

// Both at once.
std::optional<ExportError> ImportExport(std::string_view bytes, Registry& registry);

} // namespace machine
