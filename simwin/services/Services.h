// The services of the machine as other rooms and the rehearsal see them: registered, started, sent controls, queried
// for their states. Called on the machine's side, in the scheduler's context or inside an operation; none of this
// blocks.
#pragma once

#include "simwin/kernel/Process.h"
#include "simwin/kernel/Room.h"
#include "simwin/services/api.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace machine {

struct ServiceDefinition {
    std::string name, displayName;
    std::string path; // as registered, with quotes if it has them
    simwin::DWORD startType = simwin::SERVICE_AUTO_START;
};

// Registers a service as its setup would have done before the machine started; enters it in the registry. An existing
// one is unchanged.
void DefineService(const ServiceDefinition& definition);

// Takes a registered service away at once, with its key.
void RemoveService(std::string_view name);

// Starts the service's process now, as the manager does at the start of Windows or at a user's wish.
// Returns: 0, or the error that StartServiceA would give.
simwin::DWORD StartServiceByMachine(std::string_view name);

// Makes an existing process the running process of a service, for tests that play the service themselves.
void AdoptServiceProcess(std::string_view name, Process* process);

// What the caller of PostServiceControl learns of a control: the handler's result once it has returned, or
// ERROR_SERVICE_NOT_ACTIVE when the service went before it was handled. Runs on the handler's thread, must not block.
using ControlReturned = std::function<void(simwin::DWORD result)>;

// Queues a control for the running service of this name. Controls are handled one at a time in the order of arrival,
// once the service has registered its handler. data: what the event data of the handler points to, empty for a null
// pointer; it lives until the handler has returned.
// Returns: false when the service has no process; nothing is queued then and `returned` is not called.
bool PostServiceControl(std::string_view service, simwin::DWORD control, simwin::DWORD eventType,
                        const std::vector<simwin::BYTE>& data, ControlReturned returned = {});

// The same, by the handle that a service process registered as the recipient of device notifications.
bool PostServiceControl(simwin::SERVICE_STATUS_HANDLE recipient, simwin::DWORD control, simwin::DWORD eventType,
                        const std::vector<simwin::BYTE>& data, ControlReturned returned = {});

// The process whose service has this status handle; null if there is none or it has ended.
Process* ServiceProcess(simwin::SERVICE_STATUS_HANDLE handle);
// The process of a running service, null without one.
Process* ServiceProcess(std::string_view name);

// A control that Windows sends to every service that accepts it (shutdown, power, session change): queued for those
// whose reported status says so. `returned` is called for each of them. Returns: to how many.
unsigned BroadcastServiceControl(simwin::DWORD control, simwin::DWORD eventType, const std::vector<simwin::BYTE>& data,
                                 const ControlReturned& returned = {});

// The state reported last, SERVICE_STOPPED for one that does not run, 0 for one that is not registered.
simwin::DWORD ServiceState(std::string_view name);

// All reports of services, in order; a process that ended without reporting its stop counts as having
// stopped.
struct ServiceReport {
    std::uint64_t atMs;
    std::string service;
    simwin::DWORD state, checkpoint, waitHint;
};
const std::vector<ServiceReport>& ServiceReports();

// "START_PENDING" and the like; "" for an invalid state.
const char* ServiceStateText(simwin::DWORD state);

RoomPtr MakeServices();

} // namespace machine
