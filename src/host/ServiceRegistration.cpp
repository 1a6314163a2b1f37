// What the executable does with the service manager as a tool: the part of CService that registers, removes, starts and
// stops the service, and the service's places in the registry.

#include "host/CService.h"

#include "support/log/DiagnosticNames.h"
#include "support/log/LogFile.h"
#include "support/registry/RegistryTools.h"
#include "support/system/Handles.h"
#include "support/system/MessageTools.h"
#include "support/system/ProcessState.h"
#include "support/texts/BoundedText.h"
#include "support/texts/StringTools.h"

constexpr char ServicesKey[] = "SYSTEM\\CurrentControlSet\\Services";
constexpr char EventSourcesKey[] = "SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application";
constexpr char Description[] = "Quill-March-Ward; Gives control over COM-port assignments";
// Errors, warnings and information.
constexpr DWORD EventTypesSupported = 7;

constexpr UINT PlainBox = 0;
// Starting is given up after more than 15 s, stopping once 15 s have passed.
constexpr DWORD StartGivenUpMs = 15001;
constexpr DWORD StopGivenUpMs = 15000;
constexpr DWORD StateWaitStepMs = 100;
// Replaces a wait hint of 0 while a stop is pending: without it the wait would be a busy loop.
constexpr DWORD StopPollMs = 10;

// Longest text of a box: a sentence and the system's text of an error.
constexpr size_t BoxTextChars = 512;

// A box with the system's text of the last error in place of %s.
static void ShowErrorBox(DWORD Verbose, const char* format, UINT flags) {
    if (!Verbose) {
        return;
    }
    char text[BoxTextChars];
    FormatText(text, format, LastErrorText());
    ShowMessage(text, flags);
}

static void ShowBox(DWORD Verbose, const char* text, UINT flags) {
    if (Verbose) {
        ShowMessage(text, flags);
    }
}

static void FormatServiceKey(char (&key)[MAX_PATH], const char* szName) {
    FormatText(key, "%s\\%s", ServicesKey, szName);
}

DWORD CService::IsRegistered(DWORD Verbose) {
    const OwnedService manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT));
    if (!manager) {
        ShowBox(Verbose, "Cannot open the Service Control Manager", MB_ICONWARNING);
        return 0;
    }
    const OwnedService service(OpenServiceA(manager.Get(), szServiceName, SERVICE_QUERY_CONFIG));
    if (!service) {
        WriteLog(2, "OpenService err=%s", LastErrorName());
        ShowBox(Verbose, "Service is not registered", MB_ICONWARNING);
        return 0;
    }
    return 1;
}

DWORD CService::QueryState() {
    const OwnedService manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT));
    if (!manager) {
        ShowErrorBox(/*Verbose=*/1, "Error opening the Service Control Manager:\n%s", PlainBox);
        return 0;
    }
    const OwnedService service(OpenServiceA(manager.Get(), szServiceName, SERVICE_QUERY_STATUS));
    if (!service) {
        ShowBox(/*Verbose=*/1, "Couldn't open service", PlainBox);
        return 0;
    }
    SERVICE_STATUS status = {};
    return QueryServiceStatus(service.Get(), &status) ? status.dwCurrentState : 0;
}

// Polls every 100 ms until the service is in the state. Returns: ChangeDone or ChangeTimedOut.
static ChangeStateResult WaitForState(SC_HANDLE service, DWORD state, DWORD givenUpMs) {
    const DWORD startTicks = GetTickCount();
    for (;;) {
        SERVICE_STATUS status = {};
        if (QueryServiceStatus(service, &status) && status.dwCurrentState == state) {
            return ChangeDone;
        }
        if (GetTickCount() - startTicks >= givenUpMs) {
            return ChangeTimedOut;
        }
        Sleep(StateWaitStepMs);
    }
}

ChangeStateResult CService::StartAndWait(SC_HANDLE service, DWORD Verbose) {
    ChangeStateResult result = ChangeRefused;
    DWORD error = NO_ERROR;
    if (StartServiceA(service, 0, nullptr)) {
        result = WaitForState(service, SERVICE_RUNNING, StartGivenUpMs);
    } else {
        error = GetLastError();
        result = error == ERROR_PATH_NOT_FOUND  ? ChangeExeNotFound
                 : error == ERROR_ACCESS_DENIED ? ChangeNoAccess
                                                : ChangeRefused;
    }
    char text[BoxTextChars];
    CopyText(text, result == ChangeDone ? "Service successfully started" : "Service failed to start");
    if (error != NO_ERROR) {
        FormatText(text, "%s\n%s", "Service failed to start", ErrorText(error));
    }
    ShowBox(Verbose, text, MB_ICONINFORMATION);
    return result;
}

ChangeStateResult CService::StopAndWait(SC_HANDLE service, DWORD Verbose) {
    ChangeStateResult result = ChangeRefused;
    SERVICE_STATUS status = {};
    if (ControlService(service, SERVICE_CONTROL_STOP, &status)) {
        result = WaitForState(service, SERVICE_STOPPED, StopGivenUpMs);
    }
    ShowBox(Verbose, result == ChangeDone ? "Service successfully stopped" : "Service failed to stop",
            MB_ICONINFORMATION);
    return result;
}

ChangeStateResult CService::ChangeState(DWORD Target, DWORD Verbose) {
    {
        const OwnedService manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT));
        if (!manager) {
            return ChangeNoAccess;
        }
    }
    if (!IsRegistered(Verbose)) {
        return ChangeNotRegistered;
    }
    const DWORD state = QueryState();
    WriteLog(1, "ServiceState=%u", state);
    if (state == Target) {
        char text[64];
        FormatText(text, "Service is %s running", Target == SERVICE_RUNNING ? "already" : "not");
        ShowBox(Verbose, text, MB_ICONWARNING);
        return ChangeAlready;
    }
    const OwnedService manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager) {
        return ChangeNoAccess;
    }
    const OwnedService service(
        OpenServiceA(manager.Get(), szServiceName, SERVICE_QUERY_STATUS | SERVICE_START | SERVICE_STOP));
    if (!service) {
        return ChangeNoAccess;
    }
    return Target == SERVICE_RUNNING ? StartAndWait(service.Get(), Verbose) : StopAndWait(service.Get(), Verbose);
}

DWORD CService::Register(DWORD Verbose) {
    const OwnedService manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager) {
        ShowErrorBox(Verbose, "Error opening the Service Control Manager:\n%s", MB_ICONSTOP);
        return 0;
    }
    char path[sizeof(szExePath) + 2];
    CopyText(path, szExePath);
    if (StrChrA(path, ' ') != nullptr) {
        QuoteText(path);
    }
    const OwnedService service(CreateServiceA(manager.Get(), szServiceName, szDisplayName, SERVICE_ALL_ACCESS,
                                              SERVICE_WIN32_OWN_PROCESS, SERVICE_AUTO_START, SERVICE_ERROR_NORMAL, path,
                                              nullptr, nullptr, nullptr, nullptr, nullptr));
    if (!service) {
        WriteLog(2, "CreateService failed err=%s", LastErrorName());
        ShowErrorBox(Verbose, "Error registering the service: %s", MB_ICONSTOP);
        return 0;
    }
    SetDescription();
    AddEventSource(szServiceName, /*CategoryCount=*/0);
    if (!StartServiceA(service.Get(), 0, nullptr)) {
        ShowBox(Verbose, "Service registered but failed to start", MB_ICONWARNING);
        return 0;
    }
    ShowBox(Verbose, "Service registered and started", MB_ICONINFORMATION);
    return 1;
}

// Waits for the end of a service that has accepted the stop. status: from the stop. Returns: 1 once it has stopped; 0
// when it could not be queried or took longer than WaitMs (a box says the latter).
static DWORD WaitForStop(SC_HANDLE service, SERVICE_STATUS status, DWORD WaitMs, DWORD Verbose) {
    const DWORD startTicks = GetTickCount();
    while (status.dwCurrentState != SERVICE_STOPPED) {
        Sleep(status.dwWaitHint != 0 ? status.dwWaitHint : StopPollMs);
        if (!QueryServiceStatus(service, &status)) {
            return 0;
        }
        if (status.dwCurrentState != SERVICE_STOPPED && GetTickCount() - startTicks > WaitMs) {
            ShowBox(Verbose, "Error stopping the service", MB_ICONWARNING);
            return 0;
        }
    }
    return 1;
}

DWORD CService::Deregister(DWORD WaitMs, DWORD Verbose) {
    const OwnedService manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager) {
        ShowBox(Verbose, "Couldn't open service manager", MB_ICONWARNING);
        return 0;
    }
    const OwnedService service(
        OpenServiceA(manager.Get(), szServiceName, DELETE | SERVICE_STOP | SERVICE_QUERY_STATUS));
    if (!service) {
        WriteLog(2, "OpenService err=%s", LastErrorName());
        ShowErrorBox(Verbose, "Error opening the service.\r\n%s", MB_ICONWARNING);
        return 0;
    }
    SERVICE_STATUS status = {};
    // A service that does not run refuses the stop; it is deleted anyway.
    if (ControlService(service.Get(), SERVICE_CONTROL_STOP, &status) &&
        !WaitForStop(service.Get(), status, WaitMs, Verbose)) {
        return 0;
    }
    if (!DeleteService(service.Get())) {
        WriteLog(2, "DeleteService failed err=%s", LastErrorName());
        ShowErrorBox(Verbose, "Error deregistering the service: %s", MB_ICONWARNING);
        return 0;
    }
    RemoveEventSource(szServiceName);
    ShowBox(Verbose, "Service deregistered", MB_ICONINFORMATION);
    return 1;
}

void CService::SetDescription() {
    char key[MAX_PATH];
    FormatServiceKey(key, szServiceName);
    if (RegValueExists(HKEY_LOCAL_MACHINE, key, "Description")) {
        return;
    }
    const OwnedService manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager) {
        return;
    }
    const OwnedService service(OpenServiceA(manager.Get(), szServiceName, SERVICE_CHANGE_CONFIG));
    if (!service) {
        return;
    }
    char text[sizeof(Description)];
    CopyText(text, Description);
    SERVICE_DESCRIPTIONA description = {text};
    ChangeServiceConfig2A(service.Get(), SERVICE_CONFIG_DESCRIPTION, &description);
}

// Windows 5 shows a service's boxes on the user's desktop only if its type says so.
void CService::MarkInteractive() {
    char key[MAX_PATH];
    FormatServiceKey(key, szServiceName);
    DWORD type = 0;
    if (RegReadDword(HKEY_LOCAL_MACHINE, key, "Type", &type) && (type & SERVICE_INTERACTIVE_PROCESS) == 0) {
        RegWriteDword(HKEY_LOCAL_MACHINE, key, "Type", type | SERVICE_INTERACTIVE_PROCESS);
    }
}

static void SetKeyText(HKEY key, const char* szValue, const char* text) {
    RegSetValueExA(key, szValue, 0, REG_EXPAND_SZ, reinterpret_cast<const BYTE*>(text),
                   static_cast<DWORD>(lstrlenA(text) + 1));
}

static void SetKeyNumber(HKEY key, const char* szValue, DWORD number) {
    RegSetValueExA(key, szValue, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number), sizeof(number));
}

void CService::AddEventSource(const char* szName, DWORD CategoryCount) {
    char path[MAX_PATH];
    FormatText(path, "%s\\%s", EventSourcesKey, szName);
    OwnedKey key;
    if (RegCreateKeyExA(HKEY_LOCAL_MACHINE, path, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_SET_VALUE, nullptr,
                        key.Receive(), nullptr) != ERROR_SUCCESS) {
        return;
    }
    SetKeyText(key.Get(), "EventMessageFile", szExePath);
    SetKeyNumber(key.Get(), "TypesSupported", EventTypesSupported);
    if (CategoryCount > 0) {
        SetKeyText(key.Get(), "CategoryMessageFile", szExePath);
        SetKeyNumber(key.Get(), "CategoryCount", CategoryCount);
    }
}

void CService::RemoveEventSource(const char* szName) {
    char path[MAX_PATH];
    FormatText(path, "%s\\%s", EventSourcesKey, szName);
    RegDeleteKeyA(HKEY_LOCAL_MACHINE, path);
}

void FixServiceImagePath() {
    char path[MAX_PATH];
    FormatServiceKey(path, ServiceName);
    OwnedKey key;
    // Only a process with write access can repair the value; most starts have none, and the value is intact.
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, path, 0, KEY_QUERY_VALUE | KEY_SET_VALUE, key.Receive()) != ERROR_SUCCESS) {
        return;
    }
    char imagePath[MAX_PATH + 2] = {};
    DWORD type = 0;
    DWORD size = MAX_PATH;
    const LONG result =
        RegQueryValueExA(key.Get(), "ImagePath", nullptr, &type, reinterpret_cast<BYTE*>(imagePath), &size);
    const bool isText = result == ERROR_SUCCESS && (type == REG_SZ || type == REG_EXPAND_SZ);
    if (isText && imagePath[0] != '"' && StrChrA(imagePath, ' ') != nullptr) {
        QuoteText(imagePath);
        // The type stays: a path with variables is expanded only in a value of type REG_EXPAND_SZ.
        RegSetValueExA(key.Get(), "ImagePath", 0, type, reinterpret_cast<const BYTE*>(imagePath),
                       static_cast<DWORD>(lstrlenA(imagePath) + 1));
    }
}
