// The service control manager: what a service reports to it, and what a tool requests of it.
#pragma once

#include "simwin/kernel/api.h"

namespace simwin {

// --- Constants of services.
inline constexpr DWORD SERVICE_WIN32_OWN_PROCESS = 0x10;
inline constexpr DWORD SERVICE_INTERACTIVE_PROCESS = 0x100;
inline constexpr DWORD SERVICE_AUTO_START = 2;
inline constexpr DWORD SERVICE_ERROR_NORMAL = 1;

inline constexpr DWORD SERVICE_STOPPED = 1;
inline constexpr DWORD SERVICE_START_PENDING = 2;
inline constexpr DWORD SERVICE_STOP_PENDING = 3;
inline constexpr DWORD SERVICE_RUNNING = 4;
inline constexpr DWORD SERVICE_CONTINUE_PENDING = 5;
inline constexpr DWORD SERVICE_PAUSE_PENDING = 6;
inline constexpr DWORD SERVICE_PAUSED = 7;

inline constexpr DWORD SERVICE_ACCEPT_STOP = 0x01;
inline constexpr DWORD SERVICE_ACCEPT_PAUSE_CONTINUE = 0x02;
inline constexpr DWORD SERVICE_ACCEPT_SHUTDOWN = 0x04;
inline constexpr DWORD SERVICE_ACCEPT_HARDWAREPROFILECHANGE = 0x20;
inline constexpr DWORD SERVICE_ACCEPT_POWEREVENT = 0x40;
inline constexpr DWORD SERVICE_ACCEPT_SESSIONCHANGE = 0x80;

inline constexpr DWORD SERVICE_CONTROL_STOP = 1;
inline constexpr DWORD SERVICE_CONTROL_PAUSE = 2;
inline constexpr DWORD SERVICE_CONTROL_CONTINUE = 3;
inline constexpr DWORD SERVICE_CONTROL_INTERROGATE = 4;
inline constexpr DWORD SERVICE_CONTROL_SHUTDOWN = 5;
inline constexpr DWORD SERVICE_CONTROL_DEVICEEVENT = 11;
inline constexpr DWORD SERVICE_CONTROL_HARDWAREPROFILECHANGE = 12;
inline constexpr DWORD SERVICE_CONTROL_POWEREVENT = 13;
inline constexpr DWORD SERVICE_CONTROL_SESSIONCHANGE = 14;
inline constexpr DWORD SERVICE_CONTROL_PRESHUTDOWN = 15;

// The kinds of power events.
inline constexpr DWORD PBT_APMQUERYSUSPEND = 0;
inline constexpr DWORD PBT_APMQUERYSTANDBY = 1;
inline constexpr DWORD PBT_APMQUERYSUSPENDFAILED = 2;
inline constexpr DWORD PBT_APMQUERYSTANDBYFAILED = 3;
inline constexpr DWORD PBT_APMSUSPEND = 4;
inline constexpr DWORD PBT_APMSTANDBY = 5;
inline constexpr DWORD PBT_APMRESUMECRITICAL = 6;
inline constexpr DWORD PBT_APMRESUMESUSPEND = 7;
inline constexpr DWORD PBT_APMRESUMESTANDBY = 8;
inline constexpr DWORD PBT_APMRESUMEAUTOMATIC = 18;

// Access rights. The manager and a service grant the reading ones to everybody, the others to administrators only.
inline constexpr DWORD DELETE = 0x00010000;
inline constexpr DWORD SC_MANAGER_CONNECT = 0x0001;
inline constexpr DWORD SC_MANAGER_CREATE_SERVICE = 0x0002;
inline constexpr DWORD SC_MANAGER_ALL_ACCESS = 0xF003F;
inline constexpr DWORD SERVICE_QUERY_CONFIG = 0x0001;
inline constexpr DWORD SERVICE_CHANGE_CONFIG = 0x0002;
inline constexpr DWORD SERVICE_QUERY_STATUS = 0x0004;
inline constexpr DWORD SERVICE_START = 0x0010;
inline constexpr DWORD SERVICE_STOP = 0x0020;
inline constexpr DWORD SERVICE_ALL_ACCESS = 0xF01FF;

inline constexpr DWORD SERVICE_CONFIG_DESCRIPTION = 1;

struct SERVICE_STATUS {
    DWORD dwServiceType;
    DWORD dwCurrentState;
    DWORD dwControlsAccepted;
    DWORD dwWin32ExitCode;
    DWORD dwServiceSpecificExitCode;
    DWORD dwCheckPoint;
    DWORD dwWaitHint;
};
using LPSERVICE_STATUS = SERVICE_STATUS*;

using LPSERVICE_MAIN_FUNCTIONA = void(WINAPI*)(DWORD argumentCount, LPSTR* arguments);
using LPHANDLER_FUNCTION_EX = DWORD(WINAPI*)(DWORD control, DWORD eventType, LPVOID eventData, LPVOID context);

struct SERVICE_TABLE_ENTRYA {
    LPSTR lpServiceName;
    LPSERVICE_MAIN_FUNCTIONA lpServiceProc;
};

struct SERVICE_DESCRIPTIONA {
    LPSTR lpDescription;
};

// --- The running service. State: one service for each process that the manager started, a queue of controls that
// the machine and other programs fill. Handlers run on the dispatcher's thread, one at a time, in the order of arrival.

// Connects the process to the manager, starts a thread on the service's main procedure, and runs its handlers until it
// has reported SERVICE_STOPPED. table: one row, then a zero row.
// Returns: TRUE after the stop; FALSE with 1063 in a process that the manager did not start. Blocks (idle).
BOOL StartServiceCtrlDispatcherA(const SERVICE_TABLE_ENTRYA* table);

// Registers the handler of this process's service. Earlier controls wait for it.
// Returns: a status handle, valid until the end of the process and not to be closed; null with 1060 for another name or
// before the dispatcher.
SERVICE_STATUS_HANDLE RegisterServiceCtrlHandlerExA(LPCSTR name, LPHANDLER_FUNCTION_EX handler, LPVOID context);

// Reports a state; the record is copied. SERVICE_STOPPED ends the dispatcher.
// Returns: FALSE with 6, with 13 for an invalid state, with 1062 once the service has reported its stop.
BOOL SetServiceStatus(SERVICE_STATUS_HANDLE handle, SERVICE_STATUS* status);

// --- The manager as a tool sees it. State: the services by name, without regard to case, kept under
// SYSTEM\CurrentControlSet\Services as well. Handles are closed with CloseServiceHandle.

// machine, database: null. Returns: null with 5 for a right that the caller's account lacks.
SC_HANDLE OpenSCManagerA(LPCSTR machine, LPCSTR database, DWORD access);

// Returns: null with 1060 without such a service, 5, 6.
SC_HANDLE OpenServiceA(SC_HANDLE manager, LPCSTR name, DWORD access);

// Own process, started with Windows or by hand, LocalSystem: everything else is not modelled. path: as it is
// registered. Returns: null with 1073 for a name that is taken, 1072 while it waits for its deletion, 5, 6.
SC_HANDLE CreateServiceA(SC_HANDLE manager, LPCSTR name, LPCSTR displayName, DWORD access, DWORD type, DWORD startType,
                         DWORD errorControl, LPCSTR path, LPCSTR group, LPDWORD tagId, LPCSTR dependencies,
                         LPCSTR account, LPCSTR password);

// Marks it for deletion; it is deleted when it does not run and no handle to it is open. FALSE with 1072 if marked, 5,
// 6.
BOOL DeleteService(SC_HANDLE service);
BOOL CloseServiceHandle(SC_HANDLE handle); // FALSE with 6

// level: SERVICE_CONFIG_DESCRIPTION. FALSE with 5, 6, 1072.
BOOL ChangeServiceConfig2A(SC_HANDLE service, DWORD level, LPVOID info);

// The state as it was reported last. FALSE with 5, 6.
BOOL QueryServiceStatus(SC_HANDLE service, SERVICE_STATUS* status);

// Sends a control and waits until the handler has returned; `status` is what was reported then. control: stop, pause,
// continue, interrogate, or 128 to 255, whose result is not passed on.
// Returns: FALSE with 5, 6, 87 for a control that programs cannot send, 1052 for one that is not accepted, 1061 while a
// start or stop is pending, 1062 when it does not run, or with what the handler returned. Blocks.
BOOL ControlService(SC_HANDLE service, DWORD control, SERVICE_STATUS* status);

// Starts the service's process and waits until it has connected to the manager.
// Returns: FALSE with 2 or 3 without the executable, 5, 6, 1053 when the process ended without connecting, 1056 when
// it runs, 1072. Blocks.
BOOL StartServiceA(SC_HANDLE service, DWORD argumentCount, LPCSTR* arguments);

} // namespace simwin
