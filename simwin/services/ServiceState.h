// The room's own state: the services, their processes, queues of controls and handles. Used by the room's sources only.
#pragma once

#include "simwin/kernel/Text.h"
#include "simwin/services/Services.h"

#include <deque>
#include <map>
#include <memory>

namespace machine {

// A control on its way. `waiter` is the thread that waits for the handler's result, by its id: it may end meanwhile.
struct PendingControl {
    simwin::DWORD control = 0, eventType = 0;
    std::vector<simwin::BYTE> data;
    ControlReturned returned;
    simwin::DWORD waiter = 0;
};

// One run of a service: from the start of its process to the end of that process.
struct ServiceRun {
    Process* process = nullptr;         // null once it has ended
    simwin::DWORD dispatcherThread = 0; // 0 before the process has connected
    bool connected = false;
    simwin::LPHANDLER_FUNCTION_EX handler = nullptr;
    void* handlerContext = nullptr;
    std::uint64_t statusHandle = 0;
    simwin::SERVICE_STATUS status{};
    bool stopReported = false;
    std::deque<std::unique_ptr<PendingControl>> queue; // the front one is with the handler when `handling`
    bool handling = false;
    std::vector<simwin::DWORD> startWaiters; // threads in StartServiceA
};

struct Service {
    ServiceDefinition definition;
    std::string description;
    bool markedForDelete = false;
    int openHandles = 0;
    std::unique_ptr<ServiceRun> run; // null while it does not run
};

struct ServicesState {
    std::map<std::string, std::unique_ptr<Service>, NoCaseLess> services;
    // Runs whose service has reported its stop, while their processes still live; the newest last.
    std::vector<std::unique_ptr<ServiceRun>> endingRuns;
    std::vector<ServiceReport> reports;
    std::uint64_t nextStatusHandle = 0x10000;
};

bool HasServices(); // false while the machine is taken down
ServicesState& TheServices();
Service* FindService(std::string_view name);
// The run of a process, one that has stopped included; null if the manager did not start the process.
ServiceRun* RunOfProcess(const Process* process, Service** service = nullptr);
// Wakes a thread that waits inside an operation of this room, if it still lives.
void AnswerThread(simwin::DWORD threadId, simwin::DWORD result);
// Hands a control to the run's dispatcher.
void QueueControl(ServiceRun& run, std::unique_ptr<PendingControl> control);
// Makes a waiting dispatcher check its queue and the state.
void WakeDispatcher(const ServiceRun& run);
// Starts the service's process. Returns: 0 or the error.
simwin::DWORD StartServiceRun(Service& service);
// Deletes a service that was marked, once nothing refers to it any more.
void DeleteIfUnused(Service& service);
void NoteServiceReport(const Service& service, const simwin::SERVICE_STATUS& status);

} // namespace machine
