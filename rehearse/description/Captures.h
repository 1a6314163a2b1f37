// The machine of a rehearsal as the command line names it: a description, a folder that _capture_machine.cmd wrote on a
// real machine, or exports of the registry alone. Whatever it is becomes one description, so that every command takes
// it. Host side, one thread.
#pragma once

#include "rehearse/description/Description.h"
#include "rehearse/host/Options.h"

namespace rehearse {

// A folder is read by its machine.toml. Without one its exports and hives are taken, in the order of their names, with
// connected.txt, properties.txt and the INI file, where they are there. A folder and exports get all stories, unless
// machine.toml names some, and a title by their name. Throws InputError with file, line and column.
TomlTable ReadMachine(const Options& options);

} // namespace rehearse
