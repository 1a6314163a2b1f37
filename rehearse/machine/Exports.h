// The files under `registry`, exports of the registry editor and hives, on their way into the machine's registry, and
// the one under `properties`, which adds what no export has.
#pragma once

#include "rehearse/description/Description.h"

namespace rehearse {

// Reads all of them before anything is applied. What is left out, and which control set is used, becomes a note of the
// report. Throws InputError with file, line and column for a broken export, with the library's reason for a hive.
void ImportExports(const TomlTable& description);

// While one exists, what ImportExports has read is kept: the next machine from the same files is filled without reading
// them again, and has the same exports when a file changes meanwhile. For several runs of one machine in a row.
class KeptExports {
public:
    KeptExports();
    ~KeptExports();
    KeptExports(const KeptExports&) = delete;
    KeptExports& operator=(const KeptExports&) = delete;
};

} // namespace rehearse
