// What was concluded about a device's place or presence where the input does not say; for people who check how their
// machine was understood. Filled while the tree is built.
#pragma once

#include "simwin/devices/tree/DeviceTree.h"
#include "simwin/kernel/Room.h"

#include <string>
#include <string_view>

namespace machine {

void NoteGuess(const DeviceNode& node, std::string_view what);
std::string GuessOf(const DeviceNode& node); // all of a node, "" if nothing was guessed

RoomPtr MakeGuesses();

} // namespace machine
