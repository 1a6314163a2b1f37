// Which devices of the exports are present when the machine starts, and the place of those that cannot be.
#pragma once

#include <optional>
#include <string>

namespace machine {

// By the list of connected devices, if there is one; else by the exports themselves: of several devices on one socket
// one is present. Returns: what is wrong with the list, "" for nothing.
std::string SettleExportedPresence(const std::optional<std::string>& connected);
// A device whose place is unknown stays known, but is absent and cannot be plugged in. Called once all are linked.
void LeaveOutUnplaced();
// Described devices come first: one of the exports on the same socket gives way.
void YieldSocketsToDescribed();

} // namespace machine
