// Reads what the registry editor exports: "Windows Registry Editor Version 5.00" (UTF-16 with byte order mark, or
// UTF-8) and "REGEDIT4" (ANSI), with wrapped hex lines, all types of value, and deletions of keys and values. The whole
// file is read before anything is applied, so a broken one changes nothing. A single value that cannot be read is left
// out and noted; only a broken structure is an error. Exports that were appended to one another are one file. Hives are
// read into the same records (Hive.h).
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

// What was left out of a file, and why. line 0: the file has no lines.
struct ExportNote {
    unsigned line = 0, column = 0;
    std::string text; // in the machine's code page
};

struct ExportedValue {
    std::string name;
    unsigned line = 0, column = 0; // where its data is
    bool deleted = false;
    simwin::DWORD type = 0;
    std::vector<std::uint8_t> data; // texts in ANSI
};

struct ExportedKey {
    std::string path; // with the long name of its root
    bool deleted = false;
    std::vector<ExportedValue> values;
};

// By its first line. bytes: as many as are at hand.
bool IsExport(std::string_view bytes);
// The keys in the order of the file; notes are appended. With an error `keys` is not to be used.
std::optional<ExportError> ReadExport(std::string_view bytes, std::vector<ExportedKey>& keys,
                                      std::vector<ExportNote>& notes);
void ApplyExport(const std::vector<ExportedKey>& keys, Registry& registry);

// A text as files of the newer form and hives hold it, UTF-16, into the machine's code page. Other types stay as they
// are. False, and nothing changes, for half a character.
bool TextDataToAnsi(simwin::DWORD type, std::vector<std::uint8_t>& data);
// The note for a value that is left out.
ExportNote NoteOfValue(const ExportedKey& key, const ExportedValue& value, std::string_view why);

} // namespace machine
