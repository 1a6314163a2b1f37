// Reads a description with all that it includes into one table, by the table of keys. Host side, one thread.
#pragma once

#include "rehearse/description/Description.h"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace rehearse {

// The folders in which the files of a machine must be; none: anywhere. A machine that somebody else wrote down could
// have its reader's own files put into the report, a share asked for with the reader's password, or a pipe waited for.
using Folders = std::vector<std::string>;

// Whether a file lies in the folder or further below. real: its RealPath; "" is nowhere.
bool IsBelow(const std::string& folder, const std::string& real);

// Throws InputError at `at` if the file is a pipe or, with its links, in none of the folders.
void CheckIsInside(const Folders& folders, const std::string& file, const Position& at);

// file: host path, as messages show it. Throws InputError at the first thing that is wrong: a syntax error,
// an unknown key, a value of another type, a text that is not allowed, a missing required key, a circular include.
TomlTable ReadDescription(const std::string& file, const Folders& within = {});

// What is read of one file at the most, so that a wrong one is refused before it takes all memory. Texts: descriptions,
// configurations (the product reads less than 1 MiB), lists. Exports and hives: SYSTEM alone can have some 100 MiB.
constexpr std::size_t MostTextBytes = std::size_t{16} << 20;
constexpr std::size_t MostExportBytes = std::size_t{2} << 30;

// The bytes of a file of the host. Throws InputError at `at` if it cannot be read or has more bytes than `most`.
std::string ReadHostFile(const std::string& file, const Position& at, std::size_t most = MostTextBytes);

// From now on the watcher sees each file that is read, with its bytes, or null if it cannot be read.
void WatchHostFiles(std::function<void(const std::string& file, const std::string* bytes)> watcher);

} // namespace rehearse
