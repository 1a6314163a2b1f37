// What happens to devices from outside: plugged in, pulled out, a problem, the power. Everything that takes time runs
// on the machine's clock. Called in the scheduler's context.
#pragma once

#include "simwin/devices/tree/DeviceTree.h"

#include <cstdint>
#include <string_view>

namespace machine {

// An unknown id is added from the catalogue.
inline constexpr std::uint64_t DefaultOffMs = 200;
void PlugDevice(std::string_view id);   // with all that hangs below it
void UnplugDevice(std::string_view id); // from the bottom up, 1 ms apart
void ReplugDevice(std::string_view id, std::uint64_t offMs = DefaultOffMs);
void MoveDevice(std::string_view id, std::string_view hubId, unsigned hubPort, std::uint64_t offMs = DefaultOffMs);
struct ProblemEvent {
    simwin::DWORD number = 0; // 0: it ends
    bool quiet = false;       // the interfaces stay as they are
    bool sticky = false;      // later starts do not clear it
};
void SetDeviceProblem(std::string_view id, const ProblemEvent& event);
void BroadcastTreeChanges(unsigned count); // how many at once, to services too
// From now on nothing fails, refuses or is held open: described faults, vetoes and refusals end, programs let go of
// ports, problems end and what they stopped starts, hubs obey.
void CalmDown();
// All devices that would hang on a bus are taken away and come back: a resume with devices = "replug".
void ReplugAllDevices(std::uint64_t offMs = DefaultOffMs);

// The power goes: no device runs or is there, no one is notified, and what was in progress is over. What is out for a
// moment is back by the next start.
void PowerOffDevices();
// The next start: numbers, names and drivers from the beginning, each plugged device by what the registry says.
// Problems that a fresh start cures are gone.
void StartDevicesAnew();

} // namespace machine
