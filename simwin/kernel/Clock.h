// Dates of the virtual clock, for the rooms: FILETIME values and their parts. The machine's local time is UTC.
#pragma once

#include "simwin/kernel/types.h"

#include <cstdint>

namespace machine {

// A FILETIME (100 ns since 1601) as one number.
std::uint64_t FileTimeNow();
std::uint64_t FileTimeOf(std::uint64_t atMs); // of a moment of virtual time
simwin::SYSTEMTIME SystemTimeOf(std::uint64_t fileTime);

} // namespace machine
