// Lines of the report about the machine itself: how it was made from exports and description, and what is unknown. In
// the order of creation, each text once. Host side and scheduler's context.
#pragma once

#include "simwin/kernel/Room.h"

#include <cstdint>
#include <string>
#include <vector>

namespace machine {

struct MachineNote {
    std::uint64_t atMs = 0;
    std::string text; // UTF-8
};

void AddNote(std::string utf8);
const std::vector<MachineNote>& AllNotes();

RoomPtr MakeNotes();

} // namespace machine
