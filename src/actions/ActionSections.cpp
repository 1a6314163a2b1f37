#include "actions/ActionSections.h"

#include "actions/CallBackTimer.h"
#include "actions/CommandSplit.h"
#include "actions/CurrentUser.h"
#include "actions/ProgramLauncher.h"
#include "actions/SectionChoice.h"
#include "inventory/ports/CComPorts.h"
#include "support/log/DiagnosticNames.h"
#include "support/log/LogFile.h"
#include "support/system/FileTools.h"
#include "support/system/Handles.h"
#include "support/system/ProcessState.h"
#include "support/texts/BoundedText.h"
#include "support/texts/PathTools.h"
#include "support/texts/StringTools.h"

constexpr DWORD PauseAfterEntryMs = 100;
constexpr size_t DirectoryChars = 1024;

static void DoOnArrivalRemoval_TimerProc(DWORD id, ULONG_PTR context);

int DoOnArrivalRemoval_Async(CComPort* port, CfgSectionType type, DWORD delayMs) {
    WriteLog(1, "------------------");
    WriteLog(1,
             "DoOnArrivalRemoval_Async(sec=%s delay=%u P[%i] used=%u present=%u portreg=%s port=%s id=%s dp='%s' "
             "kndp='%s', kncom='%s' svc=%s parsvc=%s",
             SectionTypeName(type), delayMs, port->Index, port->IsUsed, port->IsPresent, port->szRegPortName,
             port->szPortName, port->DeviceID, port->DevPath, port->szKernelNameDevPath, port->szKernelNameCom,
             port->Service, port->ParentService);
    // The id holds the type, so the record alone is the context: a killed timer leaves nothing to free.
    const DWORD id = (static_cast<DWORD>(port->Index) << 16) | static_cast<DWORD>(type);
    CreateCallbackTimer(static_cast<LONG>(delayMs), id, reinterpret_cast<ULONG_PTR>(port),
                        DoOnArrivalRemoval_TimerProc);
    return 1;
}

int DoOnArrivalRemoval(CComPort* port, CfgSectionType type) {
    WriteLog(1, "------------------");
    WriteLog(1,
             "DoOnArrivalRemoval(sec=%s P[%i] used=%u present=%u portreg=%s port=%s id=%s dp='%s' kndp='%s', "
             "kncom='%s' svc=%s parsvc=%s",
             SectionTypeName(type), port->Index, port->IsUsed, port->IsPresent, port->szRegPortName, port->szPortName,
             port->DeviceID, port->DevPath, port->szKernelNameDevPath, port->szKernelNameCom, port->Service,
             port->ParentService);
    const LONG number = GetFittingSectionNumber(port, type);
    if (number == 0) {
        return 1;
    }
    char section[32];
    FormatText(section, "[%s%s]", SectionTypeName(type), SectionNumberSuffix(number));
    WriteLog(1, "using section %s", section);
    (void)ExecuteOpenSection(port, type, number, szWindowsDir, SW_SHOWNORMAL);
    return 1;
}

static void WaitForProgram(HANDLE process, DWORD maxWaitMs) {
    WriteLog(3, " wait for process to finish hProcess=0x%p", process);
    const DWORD result = WaitForSingleObject(process, maxWaitMs);
    WriteLog(3, "  WaitResult=%s", WaitResultName(result));
}

// Looks for a logged-on user again if none was known. Returns: whether there is one.
static bool HasUser() {
    if (!IsUserKnown()) {
        (void)SetCurrentUserInfo();
    }
    return IsUserKnown();
}

OpenResult ExecuteOpenSection(CComPort* port, CfgSectionType type, LONG number, const char* defaultDir,
                              WORD defaultShowCommand) {
    WriteLog(3, "ExecuteOpenSection(%s, %s%s)", port->szPortName, SectionTypeName(type), SectionNumberSuffix(number));
    DWORD* const isDone = type == OnArrival ? &port->OnArrivalDone : &port->OnRemovalDone;
    if (*isDone) {
        WriteLog(3, " already done -> abort");
        return OpenResult::NotRun;
    }
    *isDone = 1; // before anything runs: a program that outlasts the next event of the port is not started twice
    OpenResult result = OpenResult::NotRun;
    for (DWORD index = 1; index <= MaxOpenEntries; ++index) {
        OpenParams params;
        if (!GetOpenParamsByCfgSection(type, number, &params, index)) {
            continue;
        }
        if (params.Force == 0) {
            WriteLog(2, " force=0 and ShiftKeyPressed -> Abort");
            continue;
        }
        if (params.ShowWindow == ShowNotConfigured) {
            params.ShowWindow = defaultShowCommand;
        }
        if (params.szWorkDir[0] == '\0') {
            CopyText(params.szWorkDir, defaultDir);
        }
        if (params.userType != UserType::system && !HasUser()) {
            WriteLog(3, " no user is logged on -> abort");
            return OpenResult::NotPossible;
        }
        const bool wait = params.MaxWait > 0;
        OwnedProcess process;
        const OpenResult ofEntry = ExecuteOpenByParams(port, &params, wait, wait ? process.Receive() : nullptr);
        result = result == OpenResult::NotRun ? ofEntry : result;
        if (wait && process.IsOpen()) {
            WaitForProgram(process.Get(), params.MaxWait);
            process.Reset();
        }
        Sleep(PauseAfterEntryMs);
    }
    return result;
}

// Finds the program, relative to the Windows directory or else to the entry's own.
static bool SplitEntry(const CComPort& port, OpenParams* params, const char* directory) {
    return SplitPortCommandLine(port, params->szOpen, params->userType, szWindowsDir, params->szExe,
                                params->szParams) ||
           SplitPortCommandLine(port, params->szOpen, params->userType, directory, params->szExe, params->szParams);
}

// A directory that does not exist would make the start fail. Removes its quotes, since the execute mode's command line
// adds its own.
static void FindDirectory(char (&directory)[DirectoryChars], OpenParams* params) {
    (void)UnquoteText(directory);
    CopyText(params->szWorkDir, FileExists(directory) ? directory : szWindowsDir);
}

OpenResult ExecuteOpenByParams(const CComPort* port, OpenParams* params, bool wait, HANDLE* phProcess) {
    WriteLog(3, "ExecuteOpenByParams open=%s dir=%s WindowStyle=%u delay=%u afterdelay=%u force=%u usertype=%s wait=%u",
             params->szOpen, params->szWorkDir, static_cast<DWORD>(params->ShowWindow), params->Delay,
             params->AfterDelay, static_cast<DWORD>(params->Force), UserTypeName(params->userType), params->MaxWait);
    if (params->Delay > 0) {
        WriteLog(3, " wait %i ms", static_cast<LONG>(params->Delay));
        Sleep(params->Delay);
        if (!port->IsPresent) {
            WriteLog(3, " port is gone -> abort");
            return OpenResult::NotPossible;
        }
    }
    char directory[DirectoryChars] = {};
    CopyText(directory, params->szWorkDir);
    (void)ExpandEnvInPlace(directory, sizeof(directory));
    if (!SplitEntry(*port, params, directory)) {
        WriteLog(1, " split commandline failed -> abort");
        return OpenResult::Failed;
    }
    FindDirectory(directory, params);
    const int isStarted = AutoRunExec(*params, wait, phProcess);
    if (params->AfterDelay > 0) {
        WriteLog(3, " AfterDelay: wait %i ms", static_cast<LONG>(params->AfterDelay));
        Sleep(params->AfterDelay);
    }
    return isStarted ? OpenResult::Started : OpenResult::Failed;
}

static void DoOnArrivalRemoval_TimerProc(DWORD id, ULONG_PTR context) {
    DoOnArrivalRemoval(reinterpret_cast<CComPort*>(context), static_cast<CfgSectionType>(id & 0xFFFF));
}
