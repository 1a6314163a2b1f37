#include "host/CommandTable.h"

#include "host/CService.h"
#include "host/DriveTests.h"
#include "host/PermissionCheck.h"
#include "host/Quillmarch.h"
#include "support/log/LogFile.h"
#include "support/system/MessageTools.h"
#include "support/system/ProcessState.h"
#include "support/texts/BoundedText.h"

constexpr char UsageText[] = "Quillmarch -register \t  registers Quillmarch as Win32 service and starts the "
                             "service (Admin privileges required)\n"
                             "Quillmarch -unregister\t  unregisters the Quillmarch service\n";
constexpr DWORD DeregisterWaitMs = 10000;

namespace {
// Whether a row's text is compared with the first token or with the line up to the token's end, its dash included.
enum class TestOf : BYTE { Token, Line };

struct CommandRow {
    TestOf test;
    const char* text;
    CommandAction action;
    bool isVerbose;
    bool needsAdmin;
};
} // namespace

constexpr CommandRow CommandRows[] = {
    {TestOf::Token, "?", CommandAction::ShowUsage, true, false},
    {TestOf::Token, "debug", CommandAction::DebugRun, true, false},
    {TestOf::Token, "install", CommandAction::Register, true, true},
    {TestOf::Token, "register", CommandAction::Register, true, true},
    {TestOf::Token, "silentinstall", CommandAction::Register, false, true},
    {TestOf::Token, "silentregister", CommandAction::Register, false, true},
    {TestOf::Token, "uninstall", CommandAction::Deregister, true, true},
    {TestOf::Token, "deregister", CommandAction::Deregister, true, true},
    {TestOf::Token, "silentuninstall", CommandAction::Deregister, false, true},
    {TestOf::Token, "silentderegister", CommandAction::Deregister, false, true},
    {TestOf::Line, "-start", CommandAction::StartService, true, true},
    {TestOf::Line, "-silentstart", CommandAction::StartService, false, true},
    {TestOf::Line, "-startsilent", CommandAction::StartService, false, true},
    {TestOf::Line, "-stop", CommandAction::StopService, true, true},
    {TestOf::Line, "-silentstop", CommandAction::StopService, false, true},
    {TestOf::Line, "-stopsilent", CommandAction::StopService, false, true},
};
static_assert(sizeof(CommandRows) / sizeof(CommandRows[0]) == 16);

static bool IsDelimiter(char c) {
    return c == '-' || c == '/';
}

// The first token of the line, with a zero in place of the delimiter after it; null if there is none.
static const char* CutFirstToken(char* line) {
    char* token = line;
    while (IsDelimiter(*token)) {
        ++token;
    }
    if (*token == 0) {
        return nullptr;
    }
    char* end = token;
    while (*end != 0 && !IsDelimiter(*end)) {
        ++end;
    }
    *end = 0;
    return token;
}

Command FindCommand(char* line) {
    CharLowerA(line);
    const char* token = CutFirstToken(line);
    if (token == nullptr) {
        return {CommandAction::ShowUsage, true, false};
    }
    for (const CommandRow& row : CommandRows) {
        if (lstrcmpA(row.test == TestOf::Token ? token : line, row.text) == 0) {
            return {row.action, row.isVerbose, row.needsAdmin};
        }
    }
    return {CommandAction::ShowUsage, true, true};
}

static int ExitCodeOfChange(DWORD target, bool isVerbose) {
    const ChangeStateResult result = g_pService->ChangeState(target, isVerbose);
    return result == ChangeAlready || result == ChangeDone ? ExitDone : ExitRefused;
}

static int RunServiceCommand(const Command& command) {
    switch (command.action) {
    case CommandAction::Register:
        LogWhatUsersMayChange();
        return CheckExeOnLocalDrive() && g_pService->Register(command.isVerbose) ? ExitDone : ExitRefused;
    case CommandAction::Deregister:
        return g_pService->Deregister(DeregisterWaitMs, command.isVerbose) ? ExitDone : ExitRefused;
    case CommandAction::StartService:
        return ExitCodeOfChange(SERVICE_RUNNING, command.isVerbose);
    case CommandAction::StopService:
        return ExitCodeOfChange(SERVICE_STOPPED, command.isVerbose);
    case CommandAction::ShowUsage:
    case CommandAction::DebugRun:
        break;
    }
    Usage();
    return ExitRefused;
}

bool RunCommand(char* line, int* exitCode) {
    const Command command = FindCommand(line);
    if (command.action == CommandAction::DebugRun) {
        g_DebugMode = 1;
        return true;
    }
    *exitCode = ExitRefused;
    if (command.needsAdmin && !IsUserAnAdmin()) {
        ExecuteAsAdmin(line);
        return false;
    }
    *exitCode = RunServiceCommand(command);
    return false;
}

void Usage() {
    ShowMessage(UsageText, MB_ICONSTOP);
}

DWORD CheckExeOnLocalDrive() {
    const ExeDrive drive = FindExeDrive(szExePath);
    if (drive == ExeDrive::NotLocal) {
        char text[128];
        FormatText(text, "%s service must be registered on a local drive", ServiceName);
        ShowMessage(text, MB_ICONSTOP);
    }
    return drive == ExeDrive::Local;
}
