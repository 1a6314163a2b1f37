// The program's compiled resources and the version information of files. They are part of the
// program that carries the machine, so pointers into them are always valid.
#pragma once

#include "simwin/kernel/Room.h"
#include "simwin/kernel/types.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace machine {

struct Resource {
    std::string type, name; // a number is written "#400"; names in capitals
    simwin::WORD language = 0;
    std::span<const std::uint8_t> data;
};

// All resources of the program, in the order of the file. Stops the run if they are broken.
const std::vector<Resource>& ProgramResources();
// Null if there is none. `type` and `name` as above; a text without '#' is compared without regard to case.
const Resource* FindProgramResource(std::string_view type, std::string_view name);
// "#5" for a number passed as MAKEINTRESOURCE, else the text.
std::string ResourceId(simwin::LPCSTR id);

RoomPtr MakeModules();   // how often each process has loaded which library
RoomPtr MakeResources(); // the resources, once they were read

} // namespace machine
