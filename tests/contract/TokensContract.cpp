// What the start and the session code rely on: the process's token and user, copies of it, impersonation, processes.
#include "tests/contract/Contract.h"

#include <cstring>

static HANDLE OpenOwn(DWORD access) {
    HANDLE token = nullptr;
    EXPECT_TRUE(OpenProcessToken(GetCurrentProcess(), access, &token));
    return token;
}

template<typename Record>
static Record Ask(HANDLE token, TOKEN_INFORMATION_CLASS what) {
    Record record = {};
    DWORD needed = 0;
    EXPECT_TRUE(GetTokenInformation(token, what, &record, sizeof(record), &needed)) << what << ": " << GetLastError();
    return record;
}

static std::string UserName() {
    char name[256] = "";
    DWORD size = sizeof(name);
    EXPECT_TRUE(GetUserNameA(name, &size));
    EXPECT_EQ(size, std::strlen(name) + 1);
    return name;
}

TEST(Tokens, AHandleGivesTheRightsThatItWasOpenedWith) {
    DWORD needed = 0;
    HANDLE query = OpenOwn(TOKEN_QUERY), copyable = OpenOwn(TOKEN_DUPLICATE), copy = nullptr;
    EXPECT_EQ(Ask<TOKEN_TYPE>(query, TokenType), TokenPrimary);
    EXPECT_ERROR(ERROR_ACCESS_DENIED, GetTokenInformation(copyable, TokenType, &needed, 4, &needed));
    EXPECT_ERROR(ERROR_ACCESS_DENIED, DuplicateToken(query, SecurityImpersonation, &copy));
    TOKEN_PRIVILEGES none = {};
    EXPECT_ERROR(ERROR_ACCESS_DENIED, AdjustTokenPrivileges(query, FALSE, &none, sizeof(none), nullptr, nullptr));
    CloseHandle(query);
    CloseHandle(copyable);
    EXPECT_ERROR(ERROR_INVALID_HANDLE, GetTokenInformation(query, TokenType, &needed, 4, &needed));
}

TEST(Tokens, NobodyIsImpersonatedWithACopyForLookingAt) {
    HANDLE token = OpenOwn(TOKEN_DUPLICATE | TOKEN_QUERY), look = nullptr, act = nullptr;
    ASSERT_TRUE(DuplicateToken(token, SecurityIdentification, &look));
    EXPECT_ERROR(ERROR_ACCESS_DENIED,
                 DuplicateTokenEx(look, MAXIMUM_ALLOWED, nullptr, SecurityImpersonation, TokenImpersonation, &act))
        << "a copy by DuplicateToken is not copied again";
    ASSERT_TRUE(DuplicateToken(token, SecurityImpersonation, &act));
    EXPECT_EQ(Ask<SECURITY_IMPERSONATION_LEVEL>(act, TokenImpersonationLevel), SecurityImpersonation);
    const std::string user = UserName();
    EXPECT_TRUE(ImpersonateLoggedOnUser(act));
    for (HANDLE handle : {token, look, act}) {
        CloseHandle(handle);
    }
    EXPECT_EQ(UserName(), user) << "the impersonation outlives its handle";
    EXPECT_TRUE(RevertToSelf());
}

TEST(Tokens, APrivilegeThatTheTokenLacksIsKnownByTheLastError) {
    HANDLE token = OpenOwn(TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY);
    TOKEN_PRIVILEGES one = {1, {{{0, 0}, SE_PRIVILEGE_ENABLED}}};
    ASSERT_TRUE(LookupPrivilegeValueA(nullptr, "sechangenotifyprivilege", &one.Privileges[0].Luid));
    const auto adjust = [&] {
        SetLastError(contract::NoError);
        EXPECT_TRUE(AdjustTokenPrivileges(token, FALSE, &one, sizeof(one), nullptr, nullptr));
        return GetLastError();
    };
    EXPECT_EQ(adjust(), DWORD{ERROR_SUCCESS});
    one.Privileges[0].Luid = {2, 0}; // SeCreateTokenPrivilege, which nobody has
    EXPECT_EQ(adjust(), DWORD{ERROR_NOT_ALL_ASSIGNED});
    CloseHandle(token);
    LUID luid;
    EXPECT_ERROR(ERROR_NO_SUCH_PRIVILEGE, LookupPrivilegeValueA(nullptr, "SeNoPrivilege", &luid));
}

TEST(Tokens, ARestrictedCopyHasNoAdministratorsAndNoDeletedPrivilege) {
    HANDLE token = OpenOwn(TOKEN_DUPLICATE | TOKEN_QUERY | TOKEN_ADJUST_DEFAULT), restricted = nullptr;
    SID_IDENTIFIER_AUTHORITY authority = {{0, 0, 0, 0, 0, 5}};
    SID_AND_ATTRIBUTES administrators = {};
    ASSERT_TRUE(AllocateAndInitializeSid(&authority, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS, 0, 0, 0,
                                         0, 0, 0, &administrators.Sid));
    const DWORD sidBytes = GetLengthSid(administrators.Sid);
    EXPECT_EQ(sidBytes, 16u);
    LUID_AND_ATTRIBUTES backup = {};
    ASSERT_TRUE(LookupPrivilegeValueA(nullptr, "SeBackupPrivilege", &backup.Luid));
    ASSERT_TRUE(CreateRestrictedToken(token, SANDBOX_INERT, 1, &administrators, 1, &backup, 0, nullptr, &restricted));
    alignas(void*) char buffer[4096];
    DWORD needed = 0;
    ASSERT_TRUE(GetTokenInformation(restricted, TokenGroups, buffer, sizeof(buffer), &needed));
    const auto* groups = reinterpret_cast<TOKEN_GROUPS*>(buffer);
    for (DWORD i = 0; i < groups->GroupCount; ++i) {
        if (GetLengthSid(groups->Groups[i].Sid) == sidBytes &&
            std::memcmp(groups->Groups[i].Sid, administrators.Sid, sidBytes) == 0) {
            EXPECT_EQ(groups->Groups[i].Attributes & (SE_GROUP_ENABLED | SE_GROUP_USE_FOR_DENY_ONLY),
                      DWORD{SE_GROUP_USE_FOR_DENY_ONLY});
        }
    }
    ASSERT_TRUE(GetTokenInformation(restricted, TokenPrivileges, buffer, sizeof(buffer), &needed));
    const auto* privileges = reinterpret_cast<TOKEN_PRIVILEGES*>(buffer);
    for (DWORD i = 0; i < privileges->PrivilegeCount; ++i) {
        EXPECT_NE(privileges->Privileges[i].Luid.LowPart, backup.Luid.LowPart);
    }
    FreeSid(administrators.Sid);
    CloseHandle(restricted);
    CloseHandle(token);
}

TEST(Tokens, TheUsersSidHasATextANameAndADomain) {
    HANDLE token = OpenOwn(TOKEN_QUERY);
    alignas(void*) char buffer[256];
    DWORD needed = 0, nameSize = 0, domainSize = 0;
    EXPECT_ERROR(ERROR_INSUFFICIENT_BUFFER, GetTokenInformation(token, TokenUser, nullptr, 0, &needed));
    ASSERT_LE(needed, sizeof(buffer));
    ASSERT_TRUE(GetTokenInformation(token, TokenUser, buffer, sizeof(buffer), &needed));
    CloseHandle(token);
    PSID sid = reinterpret_cast<TOKEN_USER*>(buffer)->User.Sid;
    LPSTR text = nullptr;
    ASSERT_TRUE(ConvertSidToStringSidA(sid, &text));
    EXPECT_EQ(std::strncmp(text, "S-1-5-", 6), 0) << text;
    EXPECT_EQ(LocalFree(text), nullptr);
    SID_NAME_USE use;
    EXPECT_ERROR(ERROR_INSUFFICIENT_BUFFER,
                 LookupAccountSidA(nullptr, sid, nullptr, &nameSize, nullptr, &domainSize, &use));
    char name[256], domain[256];
    ASSERT_LE(nameSize, sizeof(name));
    ASSERT_TRUE(LookupAccountSidA(nullptr, sid, name, &nameSize, domain, &domainSize, &use));
    EXPECT_EQ(name, UserName());
    KNOWN_DIFFERENCE("the sizes of a name that was found count its zero",
                     nameSize == std::strlen(name) && domainSize == std::strlen(domain));
    DWORD size = 1;
    EXPECT_ERROR(ERROR_BUFFER_OVERFLOW, GetComputerNameA(name, &size));
    size = sizeof(name);
    EXPECT_TRUE(GetComputerNameA(name, &size));
    EXPECT_EQ(size, std::strlen(name));
}

// Starts a program and gives the last error, 0 if it ran and ended.
static DWORD Start(const char* program, const char* line, const char* directory = nullptr) {
    char commandLine[600];
    std::snprintf(commandLine, sizeof(commandLine), "%s", line);
    STARTUPINFOA startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION made = {};
    SetLastError(contract::NoError);
    if (!CreateProcessA(program, commandLine, nullptr, nullptr, FALSE, NORMAL_PRIORITY_CLASS, nullptr, directory,
                        &startup, &made)) {
        return GetLastError();
    }
    EXPECT_EQ(WaitForSingleObject(made.hProcess, 30'000), DWORD{WAIT_OBJECT_0});
    DWORD exitCode = 1;
    EXPECT_TRUE(GetExitCodeProcess(made.hProcess, &exitCode));
    EXPECT_EQ(exitCode, 0u);
    EXPECT_ERROR(ERROR_INVALID_PARAMETER, OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, 0x7FFFFFF0) != nullptr);
    EXPECT_TRUE(CloseHandle(made.hThread));
    EXPECT_TRUE(CloseHandle(made.hProcess));
    return 0;
}

TEST(Processes, AProgramIsStartedOrTheErrorSaysWhyNot) {
    char system[MAX_PATH];
    GetSystemDirectoryA(system, sizeof(system));
    const std::string processor = std::string(system) + "\\cmd.exe";
    EXPECT_EQ(Start(processor.c_str(), "cmd.exe /c rem"), 0u);
    EXPECT_EQ(Start(nullptr, "cmd.exe /c rem", system), 0u);
    EXPECT_EQ(Start("C:\\No such folder\\a.exe", "a"), DWORD{ERROR_PATH_NOT_FOUND});
    EXPECT_EQ(Start((std::string(system) + "\\no-such.exe").c_str(), "a"), DWORD{ERROR_FILE_NOT_FOUND});
    EXPECT_EQ(Start(processor.c_str(), "cmd.exe /c rem", "C:\\No such folder"), DWORD{ERROR_DIRECTORY});
}

TEST(Processes, OneIsFoundByItsIdWhileItRuns) {
    DWORD session = contract::NoError;
    EXPECT_TRUE(ProcessIdToSessionId(GetCurrentProcessId(), &session));
    EXPECT_NE(session, contract::NoError);
    EXPECT_ERROR(ERROR_INVALID_PARAMETER, ProcessIdToSessionId(0x7FFFFFF0, &session));
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    ASSERT_NE(snapshot, INVALID_HANDLE_VALUE);
    PROCESSENTRY32 entry = {};
    entry.dwSize = sizeof(entry);
    bool isListed = false;
    for (BOOL more = Process32First(snapshot, &entry); more; more = Process32Next(snapshot, &entry)) {
        isListed = isListed || (entry.th32ProcessID == GetCurrentProcessId() && entry.szExeFile[0] != 0);
    }
    EXPECT_EQ(GetLastError(), DWORD{ERROR_NO_MORE_FILES});
    EXPECT_TRUE(isListed);
    CloseHandle(snapshot);
}
