#include "actions/ProgramLauncher.h"

#include "actions/ProcessCreation.h"
#include "support/log/LogFile.h"
#include "support/registry/RegistryTools.h"
#include "support/system/OsVersion.h"
#include "support/system/ProcessState.h"
#include "support/texts/BoundedText.h"

// The title of the copy's window, a number that grows with each start and wraps; a repeated title is harmless.
static WORD g_windowNumber;

void BuildExecuteLine(const OpenParams& params, bool wait, WORD windowNumber, char (&line)[MaxExecuteLine]) {
    char number[32];
    FormatText(number, " -windownumber=%u", static_cast<DWORD>(windowNumber));
    CopyText(line, "-exec=\"");
    AppendText(line, params.szExe);
    AppendText(line, "\" -dir=\"");
    AppendText(line, params.szWorkDir);
    AppendText(line, wait ? "\" -wait=1" : "\"");
    AppendText(line, number);
    AppendText(line, " -params=");
    // A device may have the program's own path as its name. The copy takes parameters that begin with the program as a
    // whole command line, so pass one here.
    if (BeginsWithProgram(params.szParams, params.szExe)) {
        char whole[MaxProcessLine];
        BuildProcessLine(params.szExe, params.szParams, whole);
        AppendText(line, whole);
    } else {
        AppendText(line, params.szParams);
    }
    (void)StrTrimA(line, " \t");
}

static bool IsForExecuteMode(const OpenParams& params) {
    return g_os.MajorVersion >= 6 && params.userType != UserType::system &&
           (params.ShowWindow == SW_SHOWNORMAL || params.ShowWindow == SW_SHOWMAXIMIZED);
}

// Returns: false if the copy could not read the command line. *processId: 0 if it could not be created.
static bool StartThroughCopy(const OpenParams& params, bool wait, HANDLE* phProcess, DWORD* processId) {
    const auto windowNumber = static_cast<WORD>(g_windowNumber + 1);
    char line[MaxExecuteLine];
    BuildExecuteLine(params, wait, windowNumber, line);
    const size_t wholeLength = ProcessLineStart(szExePath) + TextLength(line);
    if (wholeLength >= ExecuteLineLimit) {
        WriteLog(2, "command line for execute mode is too long (%i) -> direct", static_cast<LONG>(wholeLength));
        return false;
    }
    g_windowNumber = windowNumber;
    *processId = CreateProcessEx(szExePath, line, params.szWorkDir, params.ShowWindow, NormalPriority, params.userType,
                                 phProcess);
    WriteLog(4, "AREX_1 uac=%u usrt=%u", static_cast<DWORD>(IsUacEnabled()), static_cast<DWORD>(params.userType));
    return true;
}

int AutoRunExec(const OpenParams& params, bool wait, HANDLE* phProcess) {
    WriteLog(2, "AutoRunExec: open=%s exe=%s params=%s dir=%s sw=%i usertype=%s", params.szOpen, params.szExe,
             params.szParams, params.szWorkDir, static_cast<LONG>(params.ShowWindow), UserTypeName(params.userType));
    DWORD processId = 0;
    if (!IsForExecuteMode(params) || !StartThroughCopy(params, wait, phProcess, &processId)) {
        processId = CreateProcessEx(params.szExe, params.szParams, params.szWorkDir, params.ShowWindow, NormalPriority,
                                    params.userType, phProcess);
    }
    if (processId != 0) {
        WriteLog(3, " OK");
    } else {
        WriteLog(2, " failed");
    }
    return processId != 0 ? 1 : 0;
}
