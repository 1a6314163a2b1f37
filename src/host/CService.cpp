#include "host/CService.h"

#include "actions/UserTokens.h"
#include "engine/NewDeviceArrived.h"
#include "host/Initialisation.h"
#include "host/PowerEvents.h"
#include "host/SessionEvents.h"
#include "support/log/DiagnosticNames.h"
#include "support/log/LogFile.h"
#include "support/system/Handles.h"
#include "support/system/OsVersion.h"
#include "support/system/ProcessState.h"
#include "support/system/ScopeGuard.h"
#include "support/system/ServiceRun.h"
#include "support/system/ThreadTools.h"
#include "support/system/WorkerThreads.h"
#include "support/texts/BoundedText.h"

// The controls that the service takes; session changes came with Windows 5.1.
constexpr DWORD BasicControls =
    SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN | SERVICE_ACCEPT_HARDWAREPROFILECHANGE | SERVICE_ACCEPT_POWEREVENT;
constexpr DWORD AllControls = BasicControls | SERVICE_ACCEPT_SESSIONCHANGE;
static_assert(BasicControls == 0x65 && AllControls == 0xE5);
constexpr DWORD Windows51 = 0x0501;

// Longer than the initialisation can take, so that the service manager does not give up on it.
constexpr DWORD StartPendingHintMs = 61000;
constexpr DWORD InitWaitStepMs = 1000;
constexpr DWORD InitWaitLimitMs = 18000;
constexpr DWORD InitCheckpointHintMs = 2000;
constexpr DWORD StopWaitLimitMs = 10000;
constexpr DWORD StopCheckpointHintMs = 1000;
constexpr DWORD StopWaitStepMs = 900;

constexpr const char* StateNames[] = {"STOPPED",      "START_PENDING", "STOP_PENDING", "RUNNING",
                                      "CONT_PENDING", "PAUSE_PENDING", "PAUSED"};
constexpr DWORD LastState = SERVICE_PAUSED;
static_assert(sizeof(StateNames) / sizeof(StateNames[0]) == LastState);

CService* g_pService;

// Defined here for the folders below the host.
bool IsServiceProcess() {
    return g_pService != nullptr && g_pService->IsServiceProcess != 0;
}

DWORD GetRunThreadId() {
    return g_pService != nullptr ? g_pService->RunThreadId : 0;
}

static void WINAPI ServiceMainEntry(DWORD, LPSTR*) {
    g_pService->ServiceMain();
}

static DWORD WINAPI HandlerExEntry(DWORD dwControl, DWORD dwEventType, LPVOID lpEventData, LPVOID lpContext) {
    return g_pService->HandlerEx(dwControl, dwEventType, lpEventData, lpContext);
}

CService::CService() : hServiceStatus(nullptr), Status{}, IsServiceProcess(0), RunThreadId(0) {
    szServiceName[0] = 0;
    szDisplayName[0] = 0;
    InitializeCriticalSection(&CS_status);
}

CService::~CService() {
    DeleteCriticalSection(&CS_status);
}

void CService::Init(const char* szName, const char* szDisplay) {
    WriteLog(3, "CService::Init");
    EnableServicePrivileges();
    CopyText(szServiceName, szName);
    CopyText(szDisplayName, szDisplay);
    Status = {};
    Status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    Status.dwCurrentState = SERVICE_STOPPED;
    Status.dwControlsAccepted = g_os.VersionBcd >= Windows51 ? AllControls : BasicControls;
    SetDescription();
    if (g_os.MajorVersion == 5) {
        MarkInteractive();
    }
}

BOOL CService::Start() {
    const SERVICE_TABLE_ENTRYA table[] = {{szServiceName, ServiceMainEntry}, {nullptr, nullptr}};
    WriteLog(2, "calling StartServiceCtrlDispatcher");
    const BOOL result = StartServiceCtrlDispatcherA(table);
    WriteLog(2, "returned from StartServiceCtrlDispatcher res=%i err=%u", result, GetLastError());
    if (!result) {
        IsServiceProcess = 0;
    }
    return result;
}

// Waits, with checkpoints, until the thread has ended or its time is up. Returns: the last wait's result.
DWORD CService::WaitForInitialisation(HANDLE thread) {
    const DWORD startTicks = GetTickCount();
    for (;;) {
        const DWORD result = WaitForSingleObject(thread, InitWaitStepMs);
        if (result != WAIT_TIMEOUT || GetTickCount() - startTicks > InitWaitLimitMs) {
            return result;
        }
        Checkpoint(InitCheckpointHintMs);
    }
}

void CService::ServiceMain() {
    WriteLog(3, "CService::ServiceMain");
    Status.dwCurrentState = SERVICE_START_PENDING;
    // Before the first control can arrive: a stop during the initialisation leaves its WM_QUIT in this thread's queue.
    AdoptRunThread();
    hServiceStatus = RegisterServiceCtrlHandlerExA(szServiceName, HandlerExEntry, nullptr);
    WriteLog(3, "RegisterServiceCtrlHandlerEx hServiceStatus=0x%p", static_cast<void*>(hServiceStatus));
    if (hServiceStatus == nullptr) {
        return;
    }
    SetStatus(SERVICE_START_PENDING);
    {
        // Device events wait in the handler until the port table is there.
        LockGuard lock(CS_main);
        OwnedThread thread = StartWorker(InitializeQuillmarchService_ThreadProc, nullptr);
        if (!thread) {
            Status.dwWin32ExitCode = GetLastError();
            // Without this report the service manager would show the service as starting forever.
            SetStatus(SERVICE_STOPPED);
            return;
        }
        const DWORD result = WaitForInitialisation(thread.Get());
        thread.Reset();
        WriteLog(2, "after init  res=%u", result);
    }
    Status.dwWin32ExitCode = NO_ERROR;
    Status.dwCheckPoint = 0;
    Status.dwWaitHint = 0;
    WriteLog(3, "calling Run now");
    Run();
    WriteLog(3, "Run returned");
    SetStatus(SERVICE_STOPPED);
}

// Thread: the dispatcher's, so no device event is in the handler during this wait: what holds `CS_main` is an arrival,
// a timer or the initialisation, each of which may hang in a driver. The stop must not hang with them.
void CService::StopService(const char* szControl) {
    WriteLog(2, "%s", szControl);
    {
        // One step: a `Run` that begins just now must not report RUNNING afterwards.
        LockGuard status(CS_status);
        SetStatus(SERVICE_STOP_PENDING);
        g_StopRequested = 1;
    }
    const DWORD startTicks = GetTickCount();
    while (GetTickCount() - startTicks < StopWaitLimitMs) {
        if (TryEnterCriticalSection(&CS_main)) {
            LeaveCriticalSection(&CS_main);
            break;
        }
        WriteLog(1, "waiting for CS_main");
        Checkpoint(StopCheckpointHintMs);
        Sleep(StopWaitStepMs);
    }
    BOOL result = PostThreadMessageA(RunThreadId, WM_QUIT, 0, 0);
    WriteLog(2, "PostThreadMessage(WM_QUIT) res=%i", result);
    // Nothing else ends `Run`. If it cannot be woken it stays in its wait, and the end is reported for it.
    while (!result && GetTickCount() - startTicks < StopWaitLimitMs) {
        Sleep(StopWaitStepMs);
        result = PostThreadMessageA(RunThreadId, WM_QUIT, 0, 0);
    }
    if (!result) {
        SetStatus(SERVICE_STOPPED);
    }
}

DWORD CService::HandlerEx(DWORD dwControl, DWORD dwEventType, LPVOID lpEventData, LPVOID) {
    WriteLog(2, "HandlerEx dwOpcode=%s", ServiceControlName(dwControl));
    switch (dwControl) {
    case SERVICE_CONTROL_STOP:
        StopService("SERVICE_CONTROL_STOP");
        break;
    case SERVICE_CONTROL_PAUSE:
        WriteLog(2, "SERVICE_CONTROL_PAUSE");
        break;
    case SERVICE_CONTROL_CONTINUE:
        WriteLog(2, "SERVICE_CONTROL_CONTNUE");
        break;
    case SERVICE_CONTROL_INTERROGATE: {
        // A state that `Run` reports in between would be reverted.
        LockGuard status(CS_status);
        SetStatus(Status.dwCurrentState);
        break;
    }
    case SERVICE_CONTROL_SHUTDOWN:
        StopService("SERVICE_CONTROL_SHUTDOWN");
        break;
    case SERVICE_CONTROL_DEVICEEVENT:
        if (!g_StopRequested) {
            LockGuard lock(CS_main);
            DeviceChangeMsg(dwEventType, static_cast<const DEV_BROADCAST_HDR*>(lpEventData));
        }
        break;
    case SERVICE_CONTROL_HARDWAREPROFILECHANGE:
        WriteLog(2, "SERVICE_CONTROL_HARDWAREPROFILECHANGE");
        break;
    case SERVICE_CONTROL_POWEREVENT:
        if (Status.dwCurrentState == SERVICE_RUNNING) {
            PowerEventMsg(dwEventType, lpEventData);
        }
        break;
    case SERVICE_CONTROL_SESSIONCHANGE:
        SessionChangeMsg_Async(dwEventType, lpEventData);
        break;
    case SERVICE_CONTROL_PRESHUTDOWN:
        break;
    default:
        WriteLog(3, "CService::HandlerEx op=%i", static_cast<LONG>(dwControl));
        return ERROR_CALL_NOT_IMPLEMENTED;
    }
    return NO_ERROR;
}

void CService::Run() {
    RunThreadId = GetCurrentThreadId();
    if (g_Mode == ModeService) {
        {
            // After a stop the service manager has received STOP_PENDING: it must not receive RUNNING again.
            LockGuard status(CS_status);
            if (!g_StopRequested) {
                SetStatus(SERVICE_RUNNING);
            }
        }
        SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_HIGHEST);
    }
    WriteLog(3, "CService::Run -> enter ServiceMsgLoop");
    MSG msg;
    while (GetMessageA(&msg, nullptr, 0, 0) > 0) {
        DispatchMessageA(&msg);
    }
    WriteLog(3, "CService::Run -> after ServiceMsgLoop");
}

void CService::AdoptRunThread() {
    // A thread gets its message queue with its first call that needs one; messages posted earlier are lost.
    MSG msg;
    PeekMessageA(&msg, nullptr, WM_USER, WM_USER, PM_NOREMOVE);
    RunThreadId = GetCurrentThreadId();
}

void CService::SetStatus(DWORD State) {
    if (State > LastState) {
        return;
    }
    LockGuard status(CS_status);
    Status.dwCurrentState = State;
    Status.dwCheckPoint = 0;
    Status.dwWaitHint = State == SERVICE_START_PENDING ? StartPendingHintMs : 0;
    const char* name = State > 0 ? StateNames[State - 1] : "0";
    if (SetServiceStatus(hServiceStatus, &Status)) {
        WriteLog(2, "SetServiceStatus(%s)", name);
    } else {
        WriteLog(2, "SetServiceStatus(%s) err=%s", name, LastErrorName());
    }
}

void CService::Checkpoint(DWORD WaitHint) {
    LockGuard status(CS_status);
    ++Status.dwCheckPoint;
    Status.dwWaitHint = WaitHint;
    SetServiceStatus(hServiceStatus, &Status);
}
