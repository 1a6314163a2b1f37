// The files under `registry`, exports of the registry editor and hives, on their way into the machine's registry, and
// the one under `properties`, which adds what no export has.
#pragma once

#include "rehearse/description/Description.h"

namespace rehearse {

// Reads all of them before anything is applied. What is left out, and which control set is used, becomes a note of the
// report. Throws InputError with file, line and column for a broken export, with the library's reason for a hive.
void ImportExports(const TomlTable& description);

} // namespace rehearse
