// The one object for the service control manager: the states and controls of the running service, and, when the
// executable runs as a tool, registering, removing, starting and stopping it.
//
// Made by WinMain and reached through `g_pService`. In a service run `Start` and `HandlerEx` run on the first thread,
// inside the control dispatcher, `ServiceMain` and `Run` on the thread that the dispatcher starts. The tool's
// operations run on the first thread. No lock guards the names and words: each is set before the controls come.
// `Status` is changed and reported in one step under `CS_status`, since `Run` and the handler report at the same time.

#pragma once

#include "platform/win32.h"

// Result of requesting a state.
enum ChangeStateResult : DWORD {
    ChangeRefused = 0, // the start or the control was refused
    ChangeAlready = 1, // already in that state
    ChangeDone = 2,
    ChangeNotRegistered = 3,
    ChangeNoAccess = 4, // to the manager or to the service
    ChangeTimedOut = 5,
    ChangeExeNotFound = 6, // the service's executable
};

class CService {
public:
    CService();
    virtual ~CService();
    CService(const CService&) = delete;
    CService& operator=(const CService&) = delete;

    // Names the service and fills `Status`; repairs the description and, on Windows 5, the type in the registry.
    // The names are cut to the fields.
    void Init(const char* szName, const char* szDisplay);

    // Enters the control dispatcher. Thread: the first one, which from then on runs `HandlerEx`.
    // Returns: the dispatcher's result once the service has stopped; 0 at once when the process was not started by
    // the service manager, `IsServiceProcess` is 0 then.
    BOOL Start();

    // The service's life, from START_PENDING to STOPPED. Thread: the dispatcher's new one. Locks: takes `CS_main`
    // while the initialisation runs.
    void ServiceMain();

    // One control. Thread: the dispatcher's. Locks: takes `CS_main` around a device event, tests it before a stop.
    // Returns: NO_ERROR, or ERROR_CALL_NOT_IMPLEMENTED for a control that is not known.
    DWORD HandlerEx(DWORD dwControl, DWORD dwEventType, LPVOID lpEventData, LPVOID lpContext);

    // Pumps messages until WM_QUIT. In a service run it reports RUNNING first, unless a stop came before.
    // AdoptRunThread must come first: looking into the queue here would handle messages sent to the window before the
    // loop.
    void Run();

    // Makes the calling thread the target of WM_QUIT: gives it a message queue and stores its id in `RunThreadId`.
    // Called before an end can be requested, so that a WM_QUIT that comes before `Run` waits in the queue.
    void AdoptRunThread();

    // Reports a state. State: 1 to 7, a larger value is ignored. The wait hint follows from the state.
    void SetStatus(DWORD State);

    // Reports progress in the same state. WaitHint: milliseconds until the next report at the latest.
    void Checkpoint(DWORD WaitHint);

    // Returns: non-zero when the service is registered. Verbose: a box says when it is not.
    DWORD IsRegistered(DWORD Verbose);

    // Returns: the service's current state, 0 when it is not registered or cannot be queried (a box says so).
    DWORD QueryState();

    // Starts or stops the service and waits for it for at most 15 s. Target: SERVICE_RUNNING or SERVICE_STOPPED.
    ChangeStateResult ChangeState(DWORD Target, DWORD Verbose);

    // Registers this executable as a service that starts with Windows, and starts it.
    // Returns: 1 when both went well; with 0 the service may still be registered.
    DWORD Register(DWORD Verbose);

    // Stops and removes the service. WaitMs: how long to wait for its end.
    // Returns: 1 when the service is gone.
    DWORD Deregister(DWORD WaitMs, DWORD Verbose);

    // Writes the description unless there is one. A service that is not registered is left alone.
    void SetDescription();

    // The service's entries for the event viewer. CategoryCount: 0 for none.
    void AddEventSource(const char* szName, DWORD CategoryCount);
    void RemoveEventSource(const char* szName);

    char szServiceName[256];
    char szDisplayName[256];
    SERVICE_STATUS_HANDLE hServiceStatus; // recipient of the device notifications; null before the registration
    SERVICE_STATUS Status;                // as the service manager knows it
    DWORD IsServiceProcess;               // 1 when the process runs under the service manager
    DWORD RunThreadId;                    // target of WM_QUIT, 0 before `AdoptRunThread`

private:
    void StopService(const char* szControl);
    DWORD WaitForInitialisation(HANDLE thread);
    void MarkInteractive();
    ChangeStateResult StartAndWait(SC_HANDLE service, DWORD Verbose);
    ChangeStateResult StopAndWait(SC_HANDLE service, DWORD Verbose);

    CRITICAL_SECTION CS_status; // a short lock: held over a change of `Status` and its report, inside `CS_main` too
};

extern CService* g_pService; // set before the threads start, lives until the end of WinMain

inline constexpr char ServiceName[] = "Quillmarch";

// Puts the registered path of the executable in double quotes when it has a blank and no quote, so that Windows does
// not run a file named like the start of that path. Called at each start of the program, before the log exists.
void FixServiceImagePath();
