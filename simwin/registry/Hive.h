// Reads a registry hive, the file in which Windows keeps SYSTEM, into the records of an export.
#pragma once

#include "simwin/registry/RegistryExport.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace machine {

// By its first letters.
inline bool IsHive(std::string_view bytes) {
    return bytes.starts_with("regf");
}

// file: on the host. The keys are placed below HKEY_LOCAL_MACHINE\SYSTEM; the database of drivers that come with
// Windows is skipped. Returns: why it cannot be read, in the words of the library; nothing if it can. Values that
// cannot be read are noted. With an error `keys` is not to be used.
std::optional<std::string> ReadHive(const std::string& file, std::vector<ExportedKey>& keys,
                                    std::vector<ExportNote>& notes);

} // namespace machine
