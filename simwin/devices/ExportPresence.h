// Which devices of the exports are there when the machine starts, and where those are that cannot be.
#pragma once

#include <optional>
#include <string>

namespace machine {

// By the list of connected devices, if there is one; else by what the exports tell themselves: of several devices on
// one socket one is there. Returns what is wrong with the list, "" for nothing.
std::string SettleExportedPresence(const std::optional<std::string>& connected);
// A device whose place nothing tells is known, but it is not there and cannot be plugged in. Once all are linked.
void LeaveOutUnplaced();
// Described devices come first: one of the exports on the same socket gives way.
void YieldSocketsToDescribed();

} // namespace machine
