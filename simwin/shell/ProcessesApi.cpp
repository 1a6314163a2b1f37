// Processes that a program creates, with its own token or another, and those that it opens.
#include "simwin/files/Files.h"
#include "simwin/files/api.h"
#include "simwin/kernel/Call.h"
#include "simwin/kernel/Setup.h"
#include "simwin/kernel/api.h"
#include "simwin/sessions/Tokens.h"
#include "simwin/shell/Shell.h"

namespace machine {

using namespace simwin;

constexpr DWORD AllAccessOfVista = 0x001FFFFF;
constexpr unsigned Vista = 0x0600;
constexpr DWORD ShowDefault = 10;

namespace {
// The arguments of both operations.
struct Request {
    LPCSTR program;
    LPCSTR commandLine;
    LPCSTR directory;
    const STARTUPINFOA* startup;
};
} // namespace

// Without a program the command line begins with it: in quotes, or up to the first blank at which a program ends.
static std::string ProgramOfLine(const std::string& line) {
    if (line.starts_with('"')) {
        return FindFileOfShell(line.substr(1, line.find('"', 1) - 1), {});
    }
    for (std::size_t end = line.find(' ');; end = line.find(' ', end + 1)) {
        const std::string path = FindFileOfShell(line.substr(0, end), {});
        if (!path.empty() || end == std::string::npos) {
            return path;
        }
    }
}

static std::string PathOfProgram(const Request& request) {
    if (!request.program) {
        return ProgramOfLine(request.commandLine);
    }
    const std::string full = ParsePath(request.program, CurrentProcess()->currentDirectory).full;
    return full;
}

static std::uint64_t DelayOf(const Request& request) {
    const Program* program = FindProgram(PathOfProgram(request));
    return program ? program->blocksMs : 0;
}

namespace {
// A thread handle for the caller to close: the first thread of a copy of the product, else one without a thread.
struct ScriptedThread : Object {
    ScriptedThread() : Object(ObjectKind::Other) {}
};
} // namespace

static void GiveHandles(Process* process, PROCESS_INFORMATION* information) {
    HandleTable& handles = CurrentProcess()->handles;
    Thread* first = process->threads.empty() ? nullptr : process->threads.front();
    information->hProcess = handles.Open(process, AllAccessOfVista);
    information->hThread = first ? handles.Open(first) : handles.Open(new ScriptedThread);
    information->dwProcessId = process->id;
    information->dwThreadId = first ? first->id : process->id;
}

static BOOL MakeProcess(const Request& request, Token& token, PROCESS_INFORMATION* information) {
    const Process* caller = CurrentProcess();
    ProcessStart start;
    start.imagePath = PathOfProgram(request);
    start.commandLine = request.commandLine ? request.commandLine : "\"" + start.imagePath + "\"";
    start.currentDirectory = caller->currentDirectory;
    if (request.directory) {
        start.currentDirectory = ParsePath(request.directory, caller->currentDirectory).full;
        const FileNode* folder = TheFiles().Find(start.currentDirectory);
        if (!folder || !folder->folder) {
            return Fail(ERROR_DIRECTORY);
        }
    }
    if (start.imagePath.empty()) {
        return Fail(ERROR_FILE_NOT_FOUND);
    }
    if (const FileNode* file = TheFiles().Find(start.imagePath); file && !MayExecute(file)) {
        return Fail(ERROR_ACCESS_DENIED);
    }
    const STARTUPINFOA& startup = *request.startup;
    start.showCommand = startup.dwFlags & STARTF_USESHOWWINDOW ? startup.wShowWindow : ShowDefault;
    start.parentId = caller->id;
    start.environmentOf = caller->environmentOf;
    StartWith(start, token);
    DWORD error = 0;
    Process* process = StartProgram(start, &error);
    if (!process) {
        return Fail(error);
    }
    GiveHandles(process, information);
    return TRUE;
}

// The copy for a new process, whose changes to its token must not affect others.
static BOOL MakeWithCopy(const Request& request, const TokenFacts& facts, PROCESS_INFORMATION* information) {
    const Ref<Token> token(new Token(facts));
    return MakeProcess(request, *token, information);
}

// A primary token that a process may have; null with the last error.
static const Token* TokenForProcess(HANDLE handle) {
    constexpr DWORD Needed = TOKEN_QUERY | TOKEN_DUPLICATE | TOKEN_ASSIGN_PRIMARY;
    const HandleEntry* entry = CurrentProcess()->handles.Entry(handle);
    DWORD error = 0;
    const Token* token = nullptr;
    if (!entry || entry->object->kind != ObjectKind::Token) {
        error = ERROR_INVALID_HANDLE;
    } else if ((entry->access & Needed) != Needed) {
        error = ERROR_ACCESS_DENIED;
    } else {
        token = static_cast<const Token*>(entry->object.Get());
    }
    if (token && token->type != TokenPrimary) {
        error = token->level < SecurityImpersonation ? ERROR_BAD_IMPERSONATION_LEVEL : ERROR_BAD_TOKEN_TYPE;
    }
    if (error) {
        SetError(error);
    }
    return error ? nullptr : token;
}

// Windows enables them for the duration of the call; holding them is enough.
static bool MayGiveTokens(const TokenFacts& own) {
    return FindPrivilege(own, PrivilegeNumber("SeIncreaseQuotaPrivilege")) &&
           FindPrivilege(own, PrivilegeNumber("SeAssignPrimaryTokenPrivilege"));
}

static void CheckModelled(const char* call, bool hasSecurity, BOOL inherit, DWORD flags, LPVOID environment) {
    if (hasSecurity || inherit || environment || (flags & ~NORMAL_PRIORITY_CLASS)) {
        NotModelled(call, "access lists, inherited handles, an environment, or flags other than the priority");
    }
}

static bool MayOpen(Process& process) {
    const TokenFacts &caller = ThreadToken(), &target = TokenOf(process);
    if (RightsOf(caller) == Rights::System || HasEnabled(caller, "SeDebugPrivilege")) {
        return true;
    }
    return EqualNoCase(caller.logon.user, target.logon.user) && caller.integrity >= target.integrity;
}

} // namespace machine

namespace simwin {

BOOL CreateProcessA(LPCSTR program, LPSTR commandLine, LPSECURITY_ATTRIBUTES processSecurity,
                    LPSECURITY_ATTRIBUTES threadSecurity, BOOL inherit, DWORD flags, LPVOID environment,
                    LPCSTR directory, LPSTARTUPINFOA startup, LPPROCESS_INFORMATION information) {
    SIM_CALL("CreateProcessA", program ? program : commandLine, ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND,
             ERROR_ACCESS_DENIED, ERROR_NOT_ENOUGH_MEMORY, ERROR_BAD_EXE_FORMAT, ERROR_DIRECTORY,
             ERROR_ELEVATION_REQUIRED);
    machine::CheckModelled("CreateProcessA", processSecurity || threadSecurity, inherit, flags, environment);
    if (simCall.error) {
        return machine::Fail(simCall.error);
    }
    const machine::Request request = {program, commandLine, directory, startup};
    if (const std::uint64_t delay = machine::DelayOf(request)) {
        machine::SleepMs(delay);
    }
    return machine::MakeWithCopy(request, machine::TokenOf(*machine::CurrentProcess()), information);
}

BOOL CreateProcessAsUserA(HANDLE token, LPCSTR program, LPSTR commandLine, LPSECURITY_ATTRIBUTES processSecurity,
                          LPSECURITY_ATTRIBUTES threadSecurity, BOOL inherit, DWORD flags, LPVOID environment,
                          LPCSTR directory, LPSTARTUPINFOA startup, LPPROCESS_INFORMATION information) {
    SIM_CALL("CreateProcessAsUserA", program ? program : commandLine, ERROR_PRIVILEGE_NOT_HELD, ERROR_FILE_NOT_FOUND,
             ERROR_PATH_NOT_FOUND, ERROR_ACCESS_DENIED, ERROR_INVALID_HANDLE, ERROR_NOT_ENOUGH_MEMORY,
             ERROR_BAD_EXE_FORMAT, ERROR_DIRECTORY, ERROR_ELEVATION_REQUIRED, ERROR_BAD_IMPERSONATION_LEVEL,
             ERROR_BAD_TOKEN_TYPE);
    machine::CheckModelled("CreateProcessAsUserA", processSecurity || threadSecurity, inherit, flags, environment);
    if (simCall.error) {
        return machine::Fail(simCall.error);
    }
    const machine::Request request = {program, commandLine, directory, startup};
    if (const std::uint64_t delay = machine::DelayOf(request)) {
        machine::SleepMs(delay);
    }
    const machine::Token* given = machine::TokenForProcess(token);
    if (!given) {
        return FALSE;
    }
    if (!machine::MayGiveTokens(machine::TokenOf(*machine::CurrentProcess()))) {
        return machine::Fail(ERROR_PRIVILEGE_NOT_HELD);
    }
    return machine::MakeWithCopy(request, *given, information);
}

HANDLE OpenProcess(DWORD access, BOOL inherit, DWORD processId) {
    SIM_CALL("OpenProcess", std::to_string(processId), ERROR_ACCESS_DENIED, ERROR_INVALID_PARAMETER);
    if (inherit) {
        machine::NotModelled("OpenProcess", "inherited handles");
    }
    if (simCall.error) {
        return machine::Fail(simCall.error), nullptr;
    }
    machine::Process* process = machine::FindProcess(processId);
    if (!process || process->ended) {
        return machine::Fail(ERROR_INVALID_PARAMETER), nullptr;
    }
    const bool isOld = machine::TheSetup().version.Packed() < machine::Vista;
    if ((isOld && access & ~PROCESS_ALL_ACCESS) || !machine::MayOpen(*process)) {
        return machine::Fail(ERROR_ACCESS_DENIED), nullptr;
    }
    return machine::CurrentProcess()->handles.Open(process, access);
}

} // namespace simwin
