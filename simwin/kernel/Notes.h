// Lines that the report says about the machine itself: how it was made of exports and description, and what it cannot
// tell. In the order of their making, each text once. Host side and scheduler's context.
#pragma once

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

} // namespace machine
