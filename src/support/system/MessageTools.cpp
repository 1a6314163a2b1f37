#include "support/system/MessageTools.h"

#include "support/log/DiagnosticNames.h"
#include "support/log/LogFile.h"
#include "support/system/ProcessState.h"
#include "support/system/ScopeGuard.h"

constexpr char Caption[] = "Quill-March-Ward";
constexpr LONG_PTR LastShellError = 32; // results up to it are errors

int ShowMessage(const char* text, UINT flags) {
    return MessageBoxA(nullptr, text, Caption, flags | MB_SYSTEMMODAL);
}

int ExecuteAsAdmin(const char* parameters) {
    const HINSTANCE result = ShellExecuteA(nullptr, "runas", szExePath, parameters, nullptr, SW_SHOWNORMAL);
    if (reinterpret_cast<LONG_PTR>(result) > LastShellError) {
        WriteLog(2, "ExecuteAsAdmin(%s) ok", parameters);
        return 1;
    }
    WriteLog(2, "ExecuteAsAdmin: ShellExecute failed err=%s", LastErrorName());
    return 0;
}
