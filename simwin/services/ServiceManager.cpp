#include "simwin/kernel/Call.h"
#include "simwin/registry/Security.h"
#include "simwin/services/ServiceRegistry.h"
#include "simwin/services/ServiceState.h"

namespace machine {

// Rights that everybody gets; all others need an administrator.
constexpr simwin::DWORD PublicManagerRights = 0x20015;
constexpr simwin::DWORD DemandStart = 3, DuplicateName = 1078, UserDefinedControl = 0x0100;
constexpr simwin::DWORD FirstOwnControl = 128, LastOwnControl = 255; // what they mean is the service's own matter
constexpr simwin::DWORD PublicServiceRights = 0x2018D;
constexpr GenericMapping ManagerMapping = {0x20014, 0x20022, 0x20009, simwin::SC_MANAGER_ALL_ACCESS};
constexpr GenericMapping ServiceMapping = {0x2008D, 0x20002, 0x20170, simwin::SERVICE_ALL_ACCESS};

namespace {
struct ManagerHandle : Object {
    ManagerHandle() : Object(ObjectKind::ServiceManager) {}
};

// An open handle to a service; holds the service by name, since it may be deleted when the last one closes.
struct ServiceHandle : Object {
    explicit ServiceHandle(Service& opened) : Object(ObjectKind::Service), service(&opened) { ++service->openHandles; }
    void LastHandleClosed() override {
        if (!HasServices()) {
            return;
        }
        --service->openHandles;
        DeleteIfUnused(*service);
        service = nullptr;
    }
    Service* service;
};
} // namespace

static bool MayOpen(simwin::DWORD access, simwin::DWORD publicRights) {
    return CurrentProcess()->administrator || (access & ~publicRights) == 0;
}

static simwin::SC_HANDLE OpenHandle(Object* object, simwin::DWORD access) {
    return static_cast<simwin::SC_HANDLE>(CurrentProcess()->handles.Open(object, access));
}

// The service behind a handle. *error: 6, or 5 when the handle lacks the right; unchanged on success.
static Service* ServiceFor(simwin::SC_HANDLE handle, simwin::DWORD right, simwin::DWORD* error) {
    ServiceHandle* found = FromHandle<ServiceHandle>(handle, ObjectKind::Service);
    if (!found) {
        *error = simwin::ERROR_INVALID_HANDLE;
        return nullptr;
    }
    if ((CurrentProcess()->handles.Entry(handle)->access & right) != right) {
        *error = simwin::ERROR_ACCESS_DENIED;
        return nullptr;
    }
    return found->service;
}

static void FillStatus(const Service& service, simwin::SERVICE_STATUS* status) {
    *status = {};
    if (service.run) {
        *status = service.run->status;
    }
    status->dwServiceType = simwin::SERVICE_WIN32_OWN_PROCESS;
    if (status->dwCurrentState == simwin::SERVICE_RUNNING) {
        status->dwWaitHint = 0; // whatever was reported
    }
    if (status->dwCurrentState == 0) {
        status->dwCurrentState = service.run ? simwin::SERVICE_START_PENDING : simwin::SERVICE_STOPPED;
    }
}

// Whether a program may send the control to the service in its present state. Returns: 0 or the error.
static simwin::DWORD RefuseControl(const Service& service, simwin::DWORD control) {
    if (!service.run) {
        return simwin::ERROR_SERVICE_NOT_ACTIVE;
    }
    const simwin::SERVICE_STATUS& status = service.run->status;
    if (control == simwin::SERVICE_CONTROL_INTERROGATE) {
        return 0;
    }
    if (status.dwCurrentState != simwin::SERVICE_RUNNING && status.dwCurrentState != simwin::SERVICE_PAUSED) {
        return simwin::ERROR_SERVICE_CANNOT_ACCEPT_CTRL;
    }
    if (control >= FirstOwnControl) {
        return 0;
    }
    const simwin::DWORD needed =
        control == simwin::SERVICE_CONTROL_STOP ? simwin::SERVICE_ACCEPT_STOP : simwin::SERVICE_ACCEPT_PAUSE_CONTINUE;
    return status.dwControlsAccepted & needed ? 0 : simwin::ERROR_INVALID_SERVICE_CONTROL;
}

template<typename Result>
static Result Fail(simwin::DWORD error, Result result) {
    SetError(error);
    return result;
}

} // namespace machine

namespace simwin {

using machine::Fail;

SC_HANDLE OpenSCManagerA(LPCSTR machineName, LPCSTR database, DWORD access) {
    SIM_CALL("OpenSCManagerA", machineName, ERROR_ACCESS_DENIED);
    if (machineName || database) {
        machine::NotModelled("OpenSCManagerA", "another machine or database");
    }
    if (simCall.error) {
        return Fail<SC_HANDLE>(simCall.error, nullptr);
    }
    access = machine::MapGeneric(access, machine::ManagerMapping);
    if (!machine::MayOpen(access, machine::PublicManagerRights)) {
        return Fail<SC_HANDLE>(ERROR_ACCESS_DENIED, nullptr);
    }
    machine::SetError(ERROR_SUCCESS);
    return machine::OpenHandle(new machine::ManagerHandle, access);
}

SC_HANDLE OpenServiceA(SC_HANDLE manager, LPCSTR name, DWORD access) {
    SIM_CALL("OpenServiceA", name, ERROR_ACCESS_DENIED, ERROR_SERVICE_DOES_NOT_EXIST);
    if (simCall.error) {
        return Fail<SC_HANDLE>(simCall.error, nullptr);
    }
    if (!machine::FromHandle<machine::ManagerHandle>(manager, machine::ObjectKind::ServiceManager)) {
        return Fail<SC_HANDLE>(ERROR_INVALID_HANDLE, nullptr);
    }
    if (!name) {
        return Fail<SC_HANDLE>(ERROR_INVALID_PARAMETER, nullptr);
    }
    machine::Service* service = machine::FindService(name);
    if (!service) {
        return Fail<SC_HANDLE>(ERROR_SERVICE_DOES_NOT_EXIST, nullptr);
    }
    access = machine::MapGeneric(access, machine::ServiceMapping);
    if (!machine::MayOpen(access, machine::PublicServiceRights)) {
        return Fail<SC_HANDLE>(ERROR_ACCESS_DENIED, nullptr);
    }
    return machine::OpenHandle(new machine::ServiceHandle(*service), access);
}

// In addition to the declared errors: 87 for an invalid name or start type, 1078 for a display name that another
// service has as one of its names. displayName null: the name.
SC_HANDLE CreateServiceA(SC_HANDLE manager, LPCSTR name, LPCSTR displayName, DWORD access, DWORD type, DWORD startType,
                         DWORD errorControl, LPCSTR path, LPCSTR group, LPDWORD tagId, LPCSTR dependencies,
                         LPCSTR account, LPCSTR password) {
    SIM_CALL("CreateServiceA", name, ERROR_ACCESS_DENIED, ERROR_SERVICE_EXISTS, ERROR_SERVICE_MARKED_FOR_DELETE);
    if (type != SERVICE_WIN32_OWN_PROCESS || errorControl != SERVICE_ERROR_NORMAL || group || tagId || dependencies ||
        account || password) {
        machine::NotModelled("CreateServiceA", "anything but a plain service of LocalSystem");
    }
    if (simCall.error) {
        return Fail<SC_HANDLE>(simCall.error, nullptr);
    }
    if (!machine::FromHandle<machine::ManagerHandle>(manager, machine::ObjectKind::ServiceManager)) {
        return Fail<SC_HANDLE>(ERROR_INVALID_HANDLE, nullptr);
    }
    if (!name || !path || (startType != SERVICE_AUTO_START && startType != machine::DemandStart)) {
        return Fail<SC_HANDLE>(ERROR_INVALID_PARAMETER, nullptr);
    }
    if (!(machine::CurrentProcess()->handles.Entry(manager)->access & SC_MANAGER_CREATE_SERVICE)) {
        return Fail<SC_HANDLE>(ERROR_ACCESS_DENIED, nullptr);
    }
    if (const machine::Service* taken = machine::FindService(name)) {
        return Fail<SC_HANDLE>(taken->markedForDelete ? ERROR_SERVICE_MARKED_FOR_DELETE : ERROR_SERVICE_EXISTS,
                               nullptr);
    }
    if (machine::IsDisplayNameTaken(displayName ? displayName : name, name)) {
        return Fail<SC_HANDLE>(machine::DuplicateName, nullptr);
    }
    machine::DefineService({name, displayName ? displayName : name, path, startType});
    return machine::OpenHandle(new machine::ServiceHandle(*machine::FindService(name)),
                               machine::MapGeneric(access, machine::ServiceMapping));
}

BOOL DeleteService(SC_HANDLE handle) {
    SIM_CALL("DeleteService", "", ERROR_ACCESS_DENIED, ERROR_SERVICE_MARKED_FOR_DELETE);
    DWORD error = simCall.error;
    machine::Service* service = error ? nullptr : machine::ServiceFor(handle, DELETE, &error);
    if (service && service->markedForDelete) {
        error = ERROR_SERVICE_MARKED_FOR_DELETE;
    }
    if (error || !service) {
        return Fail(error, FALSE);
    }
    service->markedForDelete = true;
    return TRUE;
}

BOOL CloseServiceHandle(SC_HANDLE handle) {
    SIM_CALL("CloseServiceHandle", "");
    machine::HandleTable& handles = machine::CurrentProcess()->handles;
    if (!handles.Find(handle, machine::ObjectKind::ServiceManager) &&
        !handles.Find(handle, machine::ObjectKind::Service)) {
        return Fail(ERROR_INVALID_HANDLE, FALSE);
    }
    handles.Close(handle);
    return TRUE;
}

BOOL ChangeServiceConfig2A(SC_HANDLE handle, DWORD level, LPVOID info) {
    SIM_CALL("ChangeServiceConfig2A", "", ERROR_ACCESS_DENIED, ERROR_SERVICE_MARKED_FOR_DELETE);
    if (level != SERVICE_CONFIG_DESCRIPTION) {
        machine::NotModelled("ChangeServiceConfig2A", "a level other than the description");
    }
    DWORD error = simCall.error;
    machine::Service* service = error ? nullptr : machine::ServiceFor(handle, SERVICE_CHANGE_CONFIG, &error);
    if (service && service->markedForDelete) {
        error = ERROR_SERVICE_MARKED_FOR_DELETE;
    }
    if (error || !service) {
        return Fail(error, FALSE);
    }
    machine::WriteServiceDescription(service->definition.name, static_cast<SERVICE_DESCRIPTIONA*>(info)->lpDescription);
    return TRUE;
}

BOOL QueryServiceStatus(SC_HANDLE handle, SERVICE_STATUS* status) {
    SIM_CALL("QueryServiceStatus", "", ERROR_ACCESS_DENIED, ERROR_INVALID_HANDLE);
    DWORD error = simCall.error;
    const machine::Service* service = error ? nullptr : machine::ServiceFor(handle, SERVICE_QUERY_STATUS, &error);
    if (error) {
        return Fail(error, FALSE);
    }
    machine::FillStatus(*service, status);
    return TRUE;
}

// 128 to 255 reach the handler too; its result is not given to the sender then.
BOOL ControlService(SC_HANDLE handle, DWORD control, SERVICE_STATUS* status) {
    SIM_CALL("ControlService", "", ERROR_ACCESS_DENIED, ERROR_INVALID_SERVICE_CONTROL, ERROR_SERVICE_REQUEST_TIMEOUT,
             ERROR_SERVICE_CANNOT_ACCEPT_CTRL, ERROR_SERVICE_NOT_ACTIVE);
    DWORD error = simCall.error;
    const bool isOwn = control >= machine::FirstOwnControl && control <= machine::LastOwnControl;
    if (!error && !isOwn && (control < SERVICE_CONTROL_STOP || control > SERVICE_CONTROL_INTERROGATE)) {
        error = ERROR_INVALID_PARAMETER;
    }
    const DWORD right = isOwn ? machine::UserDefinedControl : control == SERVICE_CONTROL_STOP ? SERVICE_STOP : 0;
    machine::Service* service = error ? nullptr : machine::ServiceFor(handle, right, &error);
    if (!error) {
        error = machine::RefuseControl(*service, control);
    }
    if (error) {
        return Fail(error, FALSE);
    }
    {
        auto pending = std::make_unique<machine::PendingControl>();
        pending->control = control;
        pending->waiter = machine::CurrentThread()->id;
        machine::QueueControl(*service->run, std::move(pending));
    }
    error = machine::Block(machine::WaitKind::Machine, "a service handler to return", machine::NoLimit);
    // The handle keeps the service alive over the wait.
    machine::FillStatus(*service, status);
    if (isOwn && error != ERROR_SERVICE_NOT_ACTIVE) { // the handler's result is not the sender's
        error = 0;
    }
    return error ? Fail(error, FALSE) : TRUE;
}

BOOL StartServiceA(SC_HANDLE handle, DWORD argumentCount, LPCSTR* arguments) {
    SIM_CALL("StartServiceA", "", ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND, ERROR_ACCESS_DENIED,
             ERROR_SERVICE_REQUEST_TIMEOUT, ERROR_SERVICE_ALREADY_RUNNING, ERROR_SERVICE_DISABLED);
    if (argumentCount || arguments) {
        machine::NotModelled("StartServiceA", "arguments");
    }
    DWORD error = simCall.error;
    machine::Service* service = error ? nullptr : machine::ServiceFor(handle, SERVICE_START, &error);
    if (!error) {
        error = machine::StartServiceRun(*service);
    }
    if (!error) {
        service->run->startWaiters.push_back(machine::CurrentThread()->id);
        error = machine::Block(machine::WaitKind::Machine, "a service's process to connect", machine::NoLimit);
    }
    return error ? Fail(error, FALSE) : TRUE;
}

} // namespace simwin
