#include "support/system/MessageTools.h"

#include "support/log/DiagnosticNames.h"
#include "support/log/LogFile.h"
#include "support/system/ProcessState.h"
#include "support/system/ScopeGuard.h"

constexpr char Caption[] = "Quill-March-Ward";
constexpr LONG_PTR LastShellError = 32; // results up to it are errors

int ShowBox(HWND owner, const char* text, const char* caption, UINT flags) {
    // The manifest requests the newer controls, and Windows 5.1 creates no window with them until they are initialised.
    InitCommonControls();
    return MessageBoxA(owner, text, caption, flags);
}

int ShowMessage(const char* text, UINT flags) {
    return ShowBox(nullptr, text, Caption, flags | MB_SYSTEMMODAL);
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
