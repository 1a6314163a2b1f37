#include "simwin/services/Services.h"

#include "simwin/kernel/Scheduler.h"
#include "simwin/kernel/Setup.h"
#include "simwin/services/ServiceRegistry.h"
#include "simwin/services/ServiceState.h"

#include <fmt/format.h>

namespace machine {

using namespace simwin;

static ServicesState* g_services;

constexpr const char* StateTexts[] = {"",        "STOPPED",          "START_PENDING", "STOP_PENDING",
                                      "RUNNING", "CONTINUE_PENDING", "PAUSE_PENDING", "PAUSED"};

// Which bit of the accepted controls lets a control through that Windows sends to all services; 0: none is needed.
static constexpr DWORD AcceptBitOf(DWORD control) {
    switch (control) {
    case SERVICE_CONTROL_SHUTDOWN:
        return SERVICE_ACCEPT_SHUTDOWN;
    case SERVICE_CONTROL_HARDWAREPROFILECHANGE:
        return SERVICE_ACCEPT_HARDWAREPROFILECHANGE;
    case SERVICE_CONTROL_POWEREVENT:
        return SERVICE_ACCEPT_POWEREVENT;
    case SERVICE_CONTROL_SESSIONCHANGE:
        return SERVICE_ACCEPT_SESSIONCHANGE;
    default:
        return 0;
    }
}

// The manager's reaction to the end of a service's process: nothing waits any longer, and the state is STOPPED.
static void ForgetRun(ServiceRun& run) {
    run.process = nullptr;
    run.dispatcherThread = 0;
    for (const DWORD waiter : run.startWaiters) {
        AnswerThread(waiter, ERROR_SERVICE_REQUEST_TIMEOUT);
    }
    run.startWaiters.clear();
    while (!run.queue.empty()) {
        const std::unique_ptr<PendingControl> control = std::move(run.queue.front());
        run.queue.pop_front();
        if (control->waiter) {
            AnswerThread(control->waiter, ERROR_SERVICE_NOT_ACTIVE);
        }
        if (control->returned) {
            control->returned(ERROR_SERVICE_NOT_ACTIVE);
        }
    }
    run.handling = false;
}

static void ServiceProcessEnded(Process& process) {
    if (!g_services) {
        return; // the machine is being taken down
    }
    ServicesState& state = TheServices();
    for (auto at = state.endingRuns.begin(); at != state.endingRuns.end(); ++at) {
        if ((*at)->process == &process) {
            ForgetRun(**at);
            state.endingRuns.erase(at);
            return;
        }
    }
    Service* service = nullptr;
    ServiceRun* run = RunOfProcess(&process, &service);
    if (!run || !service) {
        return;
    }
    ForgetRun(*run);
    service->run.reset();
    SERVICE_STATUS stopped{};
    stopped.dwCurrentState = SERVICE_STOPPED;
    NoteServiceReport(*service, stopped);
    DeleteIfUnused(*service);
}

static std::string UnansweredControls() {
    for (const auto& [name, service] : TheServices().services) {
        const ServiceRun* run = service->run.get();
        if (!run) {
            continue;
        }
        if (!run->queue.empty()) {
            return fmt::format("service {}: control {} is not answered", name, run->queue.front()->control);
        }
        const DWORD current = run->status.dwCurrentState;
        if (current == SERVICE_START_PENDING || current == SERVICE_STOP_PENDING || current == 0) {
            return fmt::format("service {} stays in {}", name,
                               current ? ServiceStateText(current) : "START_PENDING, nothing was reported");
        }
    }
    return {};
}

RoomPtr MakeServices() {
    RoomPtr room = MakeRoom(g_services);
    OnProcessEnd(ServiceProcessEnded);
    AddEndCheck(UnansweredControls);
    return room;
}

static ServiceRun* RunOfStatusHandle(std::uint64_t handle) {
    for (const auto& [name, service] : TheServices().services) {
        if (service->run && service->run->statusHandle == handle) {
            return service->run.get();
        }
    }
    for (const auto& run : TheServices().endingRuns) {
        if (run->statusHandle == handle) {
            return run.get();
        }
    }
    return nullptr;
}

bool HasServices() {
    return g_services != nullptr;
}

ServicesState& TheServices() {
    return *g_services;
}

Service* FindService(std::string_view name) {
    const auto found = TheServices().services.find(name);
    return found == TheServices().services.end() ? nullptr : found->second.get();
}

ServiceRun* RunOfProcess(const Process* process, Service** service) {
    for (const auto& [name, candidate] : TheServices().services) {
        if (candidate->run && candidate->run->process == process) {
            if (service) {
                *service = candidate.get();
            }
            return candidate->run.get();
        }
    }
    for (const auto& run : TheServices().endingRuns) {
        if (run->process == process) {
            return run.get();
        }
    }
    return nullptr;
}

void AnswerThread(DWORD threadId, DWORD result) {
    for (Thread* thread : AllThreads()) {
        if (thread->id == threadId && thread->state == ThreadState::Waiting && thread->waitKind == WaitKind::Machine) {
            Wake(thread, result);
        }
    }
}

void QueueControl(ServiceRun& run, std::unique_ptr<PendingControl> control) {
    run.queue.push_back(std::move(control));
    WakeDispatcher(run);
}

void WakeDispatcher(const ServiceRun& run) {
    for (Thread* thread : AllThreads()) {
        if (thread->id == run.dispatcherThread && thread->state == ThreadState::Waiting &&
            thread->waitKind == WaitKind::Dispatcher) {
            Wake(thread, 0);
        }
    }
}

DWORD StartServiceRun(Service& service) {
    if (service.markedForDelete) {
        return ERROR_SERVICE_MARKED_FOR_DELETE;
    }
    if (service.run) {
        return ERROR_SERVICE_ALREADY_RUNNING;
    }
    const std::string commandLine = RegisteredImagePath(service.definition);
    std::string imagePath;
    if (const DWORD error = FindServiceImage(commandLine, &imagePath)) {
        return error;
    }
    ProcessStart start;
    start.imagePath = imagePath;
    start.commandLine = commandLine;
    start.currentDirectory = SystemDirectory();
    start.user = "NT AUTHORITY\\SYSTEM";
    service.run = std::make_unique<ServiceRun>();
    service.run->process = StartProduct(start);
    return 0;
}

void DeleteIfUnused(Service& service) {
    if (!service.markedForDelete || service.openHandles > 0 || service.run) {
        return;
    }
    const std::string name = service.definition.name;
    DeleteServiceKey(name);
    TheServices().services.erase(name);
}

void NoteServiceReport(const Service& service, const SERVICE_STATUS& status) {
    TheServices().reports.push_back(
        {Now(), service.definition.name, status.dwCurrentState, status.dwCheckPoint, status.dwWaitHint});
}

void DefineService(const ServiceDefinition& definition) {
    if (FindService(definition.name)) {
        return;
    }
    auto service = std::make_unique<Service>();
    service->definition = definition;
    WriteServiceKey(definition);
    TheServices().services.emplace(definition.name, std::move(service));
}

void AdoptServiceProcess(std::string_view name, Process* process) {
    Service* service = FindService(name);
    service->run = std::make_unique<ServiceRun>();
    service->run->process = process;
}

void RemoveService(std::string_view name) {
    Service* service = FindService(name);
    if (!service) {
        return;
    }
    service->markedForDelete = true;
    DeleteIfUnused(*service);
}

DWORD StartServiceByMachine(std::string_view name) {
    Service* service = FindService(name);
    return service ? StartServiceRun(*service) : ERROR_SERVICE_DOES_NOT_EXIST;
}

static bool Post(ServiceRun* run, DWORD control, DWORD eventType, const std::vector<BYTE>& data,
                 ControlReturned returned) {
    if (!run || !run->process || run->stopReported) {
        return false;
    }
    auto pending = std::make_unique<PendingControl>();
    pending->control = control;
    pending->eventType = eventType;
    pending->data = data;
    pending->returned = std::move(returned);
    QueueControl(*run, std::move(pending));
    return true;
}

bool PostServiceControl(std::string_view service, DWORD control, DWORD eventType, const std::vector<BYTE>& data,
                        ControlReturned returned) {
    Service* found = FindService(service);
    return Post(found ? found->run.get() : nullptr, control, eventType, data, std::move(returned));
}

bool PostServiceControl(SERVICE_STATUS_HANDLE recipient, DWORD control, DWORD eventType, const std::vector<BYTE>& data,
                        ControlReturned returned) {
    return Post(RunOfStatusHandle(reinterpret_cast<std::uint64_t>(recipient)), control, eventType, data,
                std::move(returned));
}

Process* ServiceProcess(SERVICE_STATUS_HANDLE handle) {
    ServiceRun* run = RunOfStatusHandle(reinterpret_cast<std::uint64_t>(handle));
    return run ? run->process : nullptr;
}

Process* ServiceProcess(std::string_view name) {
    Service* service = FindService(name);
    return service && service->run ? service->run->process : nullptr;
}

unsigned BroadcastServiceControl(DWORD control, DWORD eventType, const std::vector<BYTE>& data,
                                 const ControlReturned& returned) {
    const DWORD needed = AcceptBitOf(control);
    unsigned count = 0;
    for (const auto& [name, service] : TheServices().services) {
        ServiceRun* run = service->run.get();
        if (run && (run->status.dwControlsAccepted & needed) == needed &&
            Post(run, control, eventType, data, returned)) {
            ++count;
        }
    }
    return count;
}

DWORD ServiceState(std::string_view name) {
    const Service* service = FindService(name);
    if (!service) {
        return 0;
    }
    if (!service->run) {
        return SERVICE_STOPPED;
    }
    const DWORD reported = service->run->status.dwCurrentState;
    return reported ? reported : SERVICE_START_PENDING;
}

const std::vector<ServiceReport>& ServiceReports() {
    return TheServices().reports;
}

const char* ServiceStateText(DWORD state) {
    return state < sizeof(StateTexts) / sizeof(StateTexts[0]) ? StateTexts[state] : "";
}

} // namespace machine
