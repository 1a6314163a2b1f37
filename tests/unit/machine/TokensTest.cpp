// The sessions of the machine, tokens of its users, the processes that are made with them, and what the command
// processor starts.
#include "simwin/sessions/Tokens.h"
#include "platform/win32.h"
#include "simwin/files/Files.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/registry/Registry.h"
#include "simwin/sessions/Sessions.h"
#include "simwin/shell/Shell.h"
#include "tests/harness/Harness.h"

#include <string>

// anna: an administrator with two tokens, by remote desktop; ben: a plain user at the console; nobody in session 4.
static void DefineUsers() {
    machine::DefineSession({.id = 2, .user = "LAB\\anna", .console = false, .administrator = true, .filtered = true});
    machine::DefineSession({.id = 3, .user = "LAB\\ben", .console = true, .administrator = false});
    machine::DefineSession({.id = 4, .state = WTSConnected, .console = false});
}

constexpr char Program[] = "C:\\Tools\\term.exe";
static void WriteProgram() {
    machine::TheFiles().Write(Program, "MZ");
}

static DWORD ErrorOfToken(ULONG session) {
    HANDLE token = nullptr;
    if (!WTSQueryUserToken(session, &token)) {
        return GetLastError();
    }
    CloseHandle(token);
    return 0;
}

static HANDLE TokenOfSession(ULONG session) {
    HANDLE token = nullptr;
    EXPECT_TRUE(WTSQueryUserToken(session, &token));
    return token;
}

static HANDLE LinkedTo(HANDLE token) {
    TOKEN_LINKED_TOKEN linked = {};
    DWORD needed = 0;
    return GetTokenInformation(token, TokenLinkedToken, &linked, sizeof(linked), &needed) ? linked.LinkedToken
                                                                                          : nullptr;
}

// The process that was made with the token, or null with the last error.
static machine::Process* Make(HANDLE token, const char* program, const char* line, const char* directory = nullptr) {
    std::string commandLine = line;
    STARTUPINFOA startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESHOWWINDOW;
    startup.wShowWindow = 7;
    PROCESS_INFORMATION made = {};
    const BOOL isMade = token ? CreateProcessAsUserA(token, program, commandLine.data(), nullptr, nullptr, FALSE, 0,
                                                     nullptr, directory, &startup, &made)
                              : CreateProcessA(program, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr,
                                               directory, &startup, &made);
    if (!isMade) {
        return nullptr;
    }
    CloseHandle(made.hThread);
    CloseHandle(made.hProcess);
    return machine::FindProcess(made.dwProcessId);
}

TEST(Tokens, TheSessionSaysWhetherThereIsOne) {
    DefineUsers();
    EXPECT_EQ(ErrorOfToken(2), 0u);
    EXPECT_EQ(ErrorOfToken(4), DWORD{ERROR_NO_TOKEN});
    EXPECT_EQ(ErrorOfToken(0), DWORD{ERROR_NO_TOKEN});
    machine::LogOff(2);
    EXPECT_EQ(ErrorOfToken(2), DWORD{ERROR_FILE_NOT_FOUND});
    HANDLE ben = TokenOfSession(3);
    EXPECT_TRUE(ImpersonateLoggedOnUser(ben));
    EXPECT_EQ(ErrorOfToken(3), DWORD{ERROR_PRIVILEGE_NOT_HELD}) << "asked as a user";
    EXPECT_TRUE(RevertToSelf());
}

TEST(Tokens, AnAdministratorWithTwoTokensGetsTheOtherByTheLink) {
    DefineUsers();
    WriteProgram();
    HANDLE anna = TokenOfSession(2), full = LinkedTo(anna), ben = TokenOfSession(3);
    ASSERT_NE(full, nullptr);
    EXPECT_EQ(LinkedTo(ben), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_NO_SUCH_LOGON_SESSION});
    const machine::Process* plain = Make(anna, Program, "a");
    const machine::Process* more = Make(full, Program, "a");
    ASSERT_TRUE(plain && more);
    EXPECT_EQ(plain->rights, machine::Rights::User);
    EXPECT_EQ(more->rights, machine::Rights::Elevated);
    EXPECT_EQ(more->session, 2u);
    EXPECT_EQ(more->showCommand, 7u);
    EXPECT_EQ(more->parentId, GetCurrentProcessId());
    // Without the system's privilege the other one is good for looking at alone.
    EXPECT_TRUE(ImpersonateLoggedOnUser(anna));
    full = LinkedTo(anna);
    EXPECT_TRUE(RevertToSelf());
    EXPECT_FALSE(ImpersonateLoggedOnUser(full));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_BAD_IMPERSONATION_LEVEL});
    EXPECT_EQ(Make(full, Program, "a"), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_BAD_IMPERSONATION_LEVEL});
    machine::TheRegistry().SetDword("HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Policies\\System", "EnableLUA",
                                    0);
    EXPECT_EQ(LinkedTo(TokenOfSession(2)), nullptr);
}

TEST(Tokens, ImpersonationCountsForFilesAndTheRegistryButNotForNewProcesses) {
    DefineUsers();
    WriteProgram();
    machine::TheRegistry().SetString("HKU\\LAB\\ben\\Software\\X", "", "ben's");
    EXPECT_TRUE(ImpersonateLoggedOnUser(TokenOfSession(3)));
    HKEY key = nullptr;
    EXPECT_EQ(RegOpenKeyExA(HKEY_CURRENT_USER, "Software\\X", 0, KEY_READ, &key), 0);
    EXPECT_EQ(CreateFileA("C:\\Windows\\x.txt", GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr),
              INVALID_HANDLE_VALUE);
    EXPECT_FALSE(IsUserAnAdmin());
    const machine::Process* made = Make(nullptr, Program, "a");
    EXPECT_TRUE(RevertToSelf());
    ASSERT_TRUE(made);
    EXPECT_EQ(made->rights, machine::Rights::System);
    EXPECT_EQ(RegOpenKeyExA(HKEY_CURRENT_USER, "Software\\X", 0, KEY_READ, &key), LONG{ERROR_FILE_NOT_FOUND});
}

TEST(Programs, AScriptRunsInTheCommandProcessorWithWhatItsLineStarts) {
    WriteProgram();
    machine::TheFiles().Write("C:\\Tools\\port.cmd", "rem");
    const std::size_t before = machine::AllProcesses().size();
    const machine::Process* script =
        Make(nullptr, "C:\\Tools\\port.cmd", "\"C:\\Tools\\port.cmd\" COM7 \"a & notepad\" ^& b & no-such & notepad x");
    ASSERT_TRUE(script);
    EXPECT_EQ(script->imagePath, "C:\\Windows\\system32\\cmd.exe");
    EXPECT_TRUE(script->commandLine.starts_with("C:\\Windows\\system32\\cmd.exe /c \"\"C:\\Tools\\port.cmd\" COM7"));
    ASSERT_EQ(machine::AllProcesses().size(), before + 2);
    const machine::Process* child = machine::AllProcesses().back();
    EXPECT_EQ(child->imagePath, "C:\\Windows\\notepad.exe");
    EXPECT_EQ(child->commandLine, "notepad x");
    EXPECT_EQ(child->parentId, script->id);
}

TEST(Programs, ADescribedOneFailsBlocksAndOutlastsAllButItsSession) {
    DefineUsers();
    WriteProgram();
    machine::DescribeProgram(Program, {.failsWith = ERROR_BAD_EXE_FORMAT});
    EXPECT_EQ(Make(nullptr, Program, "a"), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_BAD_EXE_FORMAT});
    machine::DescribeProgram(Program, {.runsMs = machine::Program::Forever, .blocksMs = 5000});
    const DWORD start = GetTickCount();
    const machine::Process* made = Make(TokenOfSession(3), Program, "a");
    EXPECT_EQ(GetTickCount() - start, 5000u);
    Sleep(100'000'000);
    ASSERT_TRUE(made);
    EXPECT_FALSE(made->ended);
    machine::LogOff(3);
    EXPECT_TRUE(made->ended);
}

// "0 disconnected, 1 active console, 65536 listen" in the order of the list.
static std::string Listed() {
    PWTS_SESSION_INFOA sessions = nullptr;
    DWORD count = 0;
    EXPECT_TRUE(WTSEnumerateSessionsA(WTS_CURRENT_SERVER_HANDLE, 0, 1, &sessions, &count));
    std::string text;
    for (DWORD i = 0; i < count; ++i) {
        static constexpr const char* States[] = {"active", "connected", "", "", "disconnected", "", "listen"};
        text += std::to_string(sessions[i].SessionId) + " " + States[sessions[i].State] +
                (sessions[i].SessionId == WTSGetActiveConsoleSessionId() ? " console, " : ", ");
    }
    WTSFreeMemory(sessions);
    return text;
}

static machine::Session Of(unsigned id, const char* user, bool console = false) {
    return {.id = id, .user = user, .console = console};
}

TEST(Sessions, OneIsAtTheConsoleWhoeverLogsOnAndOff) {
    EXPECT_EQ(Listed(), "0 disconnected, 1 connected console, 65536 listen, ");
    machine::LogOn(Of(2, "LAB\\ben"));
    EXPECT_EQ(Listed(), "0 disconnected, 2 active, 1 connected console, 65536 listen, ");
    machine::LogOn(Of(1, "LAB\\anna"));
    EXPECT_EQ(Listed(), "0 disconnected, 2 active, 1 active console, 65536 listen, ");
    machine::LogOn(Of(5, "LAB\\carl", true));
    EXPECT_EQ(Listed(), "0 disconnected, 2 active, 1 disconnected, 5 active console, 65536 listen, ");
    machine::LogOff(2);
    machine::LogOff(5);
    EXPECT_EQ(Listed(), "0 disconnected, 1 disconnected, 6 connected console, 65536 listen, ");
    machine::LogOn(Of(6, "LAB\\dora"));
    EXPECT_EQ(Listed(), "0 disconnected, 1 disconnected, 6 active console, 65536 listen, ");
}

TEST(Sessions, ASessionThatEndedIsUnknown) {
    machine::LogOn(Of(3, "LAB\\anna"));
    LPSTR state = nullptr;
    DWORD bytes = 0;
    EXPECT_TRUE(WTSQuerySessionInformationA(WTS_CURRENT_SERVER_HANDLE, 3, WTSConnectState, &state, &bytes));
    WTSFreeMemory(state);
    machine::LogOff(3);
    EXPECT_FALSE(WTSQuerySessionInformationA(WTS_CURRENT_SERVER_HANDLE, 3, WTSConnectState, &state, &bytes));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_CTX_WINSTATION_NOT_FOUND});
}
