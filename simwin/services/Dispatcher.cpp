#include "simwin/kernel/Call.h"
#include "simwin/services/ServiceState.h"

namespace machine {

// Moves a run aside whose service has stopped while its process still works: the service can be started again.
static void RetireRun(Service& service) {
    TheServices().endingRuns.push_back(std::move(service.run));
    DeleteIfUnused(service);
}

// Runs the handler for the first control of the queue, on the dispatcher's thread. What must outlive the switch is in
// the run, not on this stack.
static void HandleFirstControl(ServiceRun* run) {
    run->handling = true;
    PendingControl* control = run->queue.front().get();
    const simwin::DWORD result =
        run->handler(control->control, control->eventType, control->data.empty() ? nullptr : control->data.data(),
                     run->handlerContext);
    std::unique_ptr<PendingControl> done = std::move(run->queue.front());
    run->queue.pop_front();
    run->handling = false;
    if (done->waiter) {
        AnswerThread(done->waiter, result);
    }
    if (done->returned) {
        done->returned(result);
    }
}

// A run that has reported its stop answers what is left in its queue: nothing handles it any more.
static void RefuseRest(ServiceRun* run) {
    while (!run->queue.empty()) {
        const std::unique_ptr<PendingControl> control = std::move(run->queue.front());
        run->queue.pop_front();
        if (control->waiter) {
            AnswerThread(control->waiter, simwin::ERROR_SERVICE_NOT_ACTIVE);
        }
        if (control->returned) {
            control->returned(simwin::ERROR_SERVICE_NOT_ACTIVE);
        }
    }
}

// Connects the running process; the service's main procedure gets a thread and its name as the one argument.
static void Connect(ServiceRun* run, const simwin::SERVICE_TABLE_ENTRYA* table) {
    run->connected = true;
    run->dispatcherThread = CurrentThread()->id;
    for (const simwin::DWORD waiter : run->startWaiters) {
        AnswerThread(waiter, simwin::NO_ERROR);
    }
    run->startWaiters.clear();
    const simwin::LPSERVICE_MAIN_FUNCTIONA entry = table->lpServiceProc;
    const simwin::LPSTR name = table->lpServiceName;
    ResumeThreadOf(CreateThreadOf(CurrentProcess(), [entry, name]() -> simwin::DWORD {
        simwin::LPSTR arguments[] = {name, nullptr};
        entry(1, arguments);
        return 0;
    }));
}

} // namespace machine

namespace simwin {

BOOL StartServiceCtrlDispatcherA(const SERVICE_TABLE_ENTRYA* table) {
    SIM_CALL("StartServiceCtrlDispatcherA", table ? table->lpServiceName : "", ERROR_FAILED_SERVICE_CONTROLLER_CONNECT);
    if (simCall.error) {
        machine::SetError(simCall.error);
        return FALSE;
    }
    if (table && table->lpServiceName && table[1].lpServiceName) {
        machine::NotModelled("StartServiceCtrlDispatcherA", "more than one service in a process");
    }
    machine::Service* service = nullptr;
    machine::ServiceRun* run = machine::RunOfProcess(machine::CurrentProcess(), &service);
    if (!run || run->connected) {
        machine::SetError(ERROR_FAILED_SERVICE_CONTROLLER_CONNECT);
        return FALSE;
    }
    machine::Connect(run, table);
    while (!run->stopReported) {
        if (run->handler && !run->queue.empty()) {
            machine::HandleFirstControl(run);
            if (machine::IsAsleep()) { // by the control that it has just answered: the next one waits until it wakes
                machine::Yield();
            }
            continue;
        }
        machine::Block(machine::WaitKind::Dispatcher, "a control of the service manager", machine::NoLimit);
    }
    machine::RefuseRest(run);
    return TRUE;
}

SERVICE_STATUS_HANDLE RegisterServiceCtrlHandlerExA(LPCSTR name, LPHANDLER_FUNCTION_EX handler, LPVOID context) {
    SIM_CALL("RegisterServiceCtrlHandlerExA", name, ERROR_SERVICE_DOES_NOT_EXIST, ERROR_NOT_ENOUGH_MEMORY);
    machine::Service* service = nullptr;
    machine::ServiceRun* run = machine::RunOfProcess(machine::CurrentProcess(), &service);
    DWORD error = simCall.error;
    if (!error && (!service || !run->connected || !machine::EqualNoCase(service->definition.name, name))) {
        error = ERROR_SERVICE_DOES_NOT_EXIST;
    }
    if (error) {
        machine::SetError(error);
        return nullptr;
    }
    machine::ServicesState& state = machine::TheServices();
    run->handler = handler;
    run->handlerContext = context;
    run->statusHandle = state.nextStatusHandle;
    state.nextStatusHandle += 0x10;
    machine::WakeDispatcher(*run);
    return reinterpret_cast<SERVICE_STATUS_HANDLE>(run->statusHandle);
}

BOOL SetServiceStatus(SERVICE_STATUS_HANDLE handle, SERVICE_STATUS* status) {
    SIM_CALL("SetServiceStatus", machine::ServiceStateText(status ? status->dwCurrentState : 0), ERROR_INVALID_HANDLE,
             ERROR_INVALID_DATA);
    machine::Service* service = nullptr;
    machine::ServiceRun* run = machine::RunOfProcess(machine::CurrentProcess(), &service);
    DWORD error = simCall.error;
    if (!error && (!run || run->statusHandle != reinterpret_cast<std::uint64_t>(handle))) {
        error = ERROR_INVALID_HANDLE;
    }
    if (!error && run->stopReported) {
        error = ERROR_SERVICE_NOT_ACTIVE;
    }
    if (!error && (!status || status->dwCurrentState < SERVICE_STOPPED || status->dwCurrentState > SERVICE_PAUSED)) {
        error = ERROR_INVALID_DATA;
    }
    if (error) {
        machine::SetError(error);
        return FALSE;
    }
    run->status = *status;
    machine::NoteServiceReport(*service, *status);
    if (status->dwCurrentState != SERVICE_STOPPED) {
        return TRUE;
    }
    run->stopReported = true;
    machine::WakeDispatcher(*run);
    machine::RetireRun(*service);
    return TRUE;
}

} // namespace simwin
