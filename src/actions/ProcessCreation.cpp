#include "actions/ProcessCreation.h"

#include "actions/ServiceTools.h"
#include "actions/UserTokens.h"
#include "support/log/DiagnosticNames.h"
#include "support/log/LogFile.h"
#include "support/registry/RegistryTools.h"
#include "support/system/FileTools.h"
#include "support/system/Handles.h"
#include "support/system/OsVersion.h"
#include "support/system/ProcessState.h"
#include "support/system/ScopeGuard.h"
#include "support/system/ServiceRun.h"
#include "support/texts/BoundedText.h"
#include "support/texts/StringTools.h"

namespace {
enum class TokenChoice : BYTE {
    Own,    // the process inherits this one's identity
    Chosen, // a token was found
    NoUser, // the type needs a user, and there is none
};

// A process to create. The texts are the caller's.
struct ProcessStart {
    const char* program;
    const char* directory; // null: that of this process
    WORD showCommand;
    DWORD flags;
    char line[MaxProcessLine];
};
} // namespace

// Returns: the length in `line`.
static size_t QuoteProgram(const char* program, char (&line)[MaxProcessLine]) {
    CopyText(line, program);
    if (StrChrA(line, ' ')) {
        QuoteText(line);
    }
    return TextLength(line);
}

size_t ProcessLineStart(const char* program) {
    char quoted[MaxProcessLine];
    return QuoteProgram(program, quoted) + 1;
}

bool BeginsWithProgram(const char* params, const char* program) {
    char quoted[MaxProcessLine];
    const size_t length = QuoteProgram(program, quoted);
    if (length == 0 || TextLength(params) < length) {
        return false;
    }
    char beginning[MaxProcessLine];
    CopyTextPart(beginning, sizeof(beginning), params, length);
    const char next = params[length];
    return (next == '\0' || next == ' ' || next == '\t') && lstrcmpiA(beginning, quoted) == 0;
}

void BuildProcessLine(const char* program, const char* params, char (&line)[MaxProcessLine]) {
    (void)QuoteProgram(program, line);
    AppendText(line, " ");
    AppendText(line, params);
    (void)StrTrimA(line, " \t");
}

// The user's token becomes the elevated one linked to it; a user with one token has no other.
static void TakeElevatedToken(OwnedToken* token) {
    HANDLE linked = nullptr;
    const BOOL result = GetLinkedToken(token->Get(), &linked);
    WriteLog(2, " ElevatedToken=0x%p err=%i res=0x%X", linked, static_cast<LONG>(GetLastError()),
             static_cast<DWORD>(result));
    if (result) {
        token->Reset(linked);
    }
}

static void TakeRestrictedToken(OwnedToken* token) {
    const HANDLE restricted = MakeRestrictedToken(token->Get());
    const LastErrorKeeper cause;
    WriteLog(3, " RestrictedToken=0x%p", restricted);
    if (restricted) {
        token->Reset(restricted);
    } else {
        WriteLog(1, " restricted token err=%s -> full token", ErrorName(cause.Error()));
    }
}

static TokenChoice ChooseForService(UserType type, OwnedToken* token) {
    if (type != UserType::normal && type != UserType::restr && type != UserType::elev) {
        return TokenChoice::Own;
    }
    token->Reset(GetCurrentUserToken());
    if (!token->IsOpen()) {
        return TokenChoice::NoUser;
    }
    if (type == UserType::elev && g_os.MajorVersion >= 6) {
        TakeElevatedToken(token);
    }
    if (type == UserType::restr) {
        TakeRestrictedToken(token);
    }
    return TokenChoice::Chosen;
}

static TokenChoice ChooseOutsideService(UserType type, OwnedToken* token) {
    if (g_os.MajorVersion >= 6 && IsUacEnabled()) {
        if (type == UserType::normal || type == UserType::restr) {
            // This process may be elevated; the shell is not.
            token->Reset(GetExplorersUserToken(NoSession));
        }
    } else if (type == UserType::restr) {
        constexpr DWORD Access = TOKEN_DUPLICATE | TOKEN_QUERY | TOKEN_ASSIGN_PRIMARY | TOKEN_ADJUST_DEFAULT;
        if (OpenProcessToken(GetCurrentProcess(), Access, token->Receive())) {
            TakeRestrictedToken(token);
        }
    }
    return token->IsOpen() ? TokenChoice::Chosen : TokenChoice::Own;
}

static BOOL CreateAsUser(HANDLE token, ProcessStart* start, STARTUPINFOA* startup, PROCESS_INFORMATION* made) {
    BOOL isMade = FALSE;
    DWORD error = ERROR_SUCCESS;
    {
        // The program may be where only the user has access.
        const ImpersonationScope user(/*isElevated=*/false);
        void* const environment = nullptr;
        WriteLog(2, "CreateProcessAsUser(0x%p, %s, '%s', '%s', 0x%p)", token, start->program, start->line,
                 start->directory ? start->directory : "", environment);
        isMade = CreateProcessAsUserA(token, start->program, start->line, nullptr, nullptr, /*inheritHandles=*/FALSE,
                                      start->flags, environment, start->directory, startup, made);
        error = GetLastError();
    }
    SetLastError(error);
    return isMade;
}

static BOOL CreateAsSelf(ProcessStart* start, STARTUPINFOA* startup, PROCESS_INFORMATION* made) {
    WriteLog(2, "CreateProcess(%s, '%s', '%s')", start->program, start->line, start->directory ? start->directory : "");
    return CreateProcessA(start->program, start->line, nullptr, nullptr, /*inheritHandles=*/FALSE, start->flags,
                          /*environment=*/nullptr, start->directory, startup, made);
}

// token: null for the identity of this process. Returns: the process id, 0 after a failure.
static DWORD MakeProcess(HANDLE token, ProcessStart* start, HANDLE* phProcess) {
    char desktop[] = "default";
    STARTUPINFOA startup = {};
    startup.cb = sizeof(startup);
    startup.lpDesktop = desktop;
    startup.dwFlags = STARTF_USESHOWWINDOW;
    startup.wShowWindow = start->showCommand;
    PROCESS_INFORMATION made = {};
    const BOOL isMade = token ? CreateAsUser(token, start, &startup, &made) : CreateAsSelf(start, &startup, &made);
    if (!isMade) {
        WriteLog(2, " err=%s", LastErrorName());
        return 0;
    }
    OwnedProcess process(made.hProcess);
    const OwnedThread thread(made.hThread);
    WriteLog(3, " res=%u hProcess=0x%X", static_cast<DWORD>(isMade),
             static_cast<DWORD>(reinterpret_cast<ULONG_PTR>(made.hProcess)));
    if (phProcess) {
        *phProcess = process.Release();
    }
    return made.dwProcessId;
}

// Returns: false if a token was chosen but none is usable.
static bool MakePrimary(const OwnedToken& token, OwnedToken* duplicate) {
    if (!DuplicateTokenEx(token.Get(), MAXIMUM_ALLOWED, nullptr, SecurityIdentification, TokenPrimary,
                          duplicate->Receive())) {
        WriteLog(3, " DuplicateToken failed err=%s", LastErrorName());
        return false;
    }
    WriteLog(3, "DupToken=0x%p", duplicate->Get());
    if (g_Mode == ModeDebug) {
        duplicate->Reset(); // a debug run has no right to give a process another token
    }
    return true;
}

DWORD CreateProcessEx(const char* program, const char* params, const char* dir, WORD showCommand, DWORD flags,
                      UserType type, HANDLE* phProcess) {
    WriteLog(2, "CreateProcessEx cmd=%s, params=%s, dir=%s, ws=%i, usertype=%s", program, params, dir,
             static_cast<LONG>(showCommand), UserTypeName(type));
    if (phProcess) {
        *phProcess = nullptr;
    }
    OwnedToken token;
    const TokenChoice choice = IsServiceProcess() ? ChooseForService(type, &token) : ChooseOutsideService(type, &token);
    if (choice == TokenChoice::NoUser) {
        return 0;
    }
    OwnedToken duplicate;
    if (choice == TokenChoice::Chosen && !MakePrimary(token, &duplicate)) {
        return 0;
    }
    ProcessStart start = {program, dir[0] != '\0' && IsFolder(dir) ? dir : nullptr, showCommand, flags, {}};
    BuildProcessLine(program, params, start.line);
    const DWORD processId = MakeProcess(duplicate.Get(), &start, phProcess);
    duplicate.Reset();
    token.Reset();
    (void)SetCurrentDirectoryA(szWindowsDir);
    if (processId != 0) {
        WriteLog(3, " return pid=%u", processId);
    } else {
        WriteLog(3, " return 0");
    }
    return processId;
}
