// What the start of the program relies on: the process's user, its session, the list of processes.
#include "tests/contract/Contract.h"

#include <cstring>

namespace {

TEST(Accounts, TheTokenNamesTheUserByItsSid) {
    HANDLE token = nullptr;
    ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token));
    DWORD needed = 0;
    EXPECT_EQ(contract::ErrorOf([&] { return GetTokenInformation(token, TokenUser, nullptr, 0, &needed); }),
              DWORD{ERROR_INSUFFICIENT_BUFFER});
    alignas(void*) char buffer[256];
    ASSERT_LE(needed, sizeof(buffer));
    ASSERT_TRUE(GetTokenInformation(token, TokenUser, buffer, sizeof(buffer), &needed));
    LPSTR text = nullptr;
    ASSERT_TRUE(ConvertSidToStringSidA(reinterpret_cast<TOKEN_USER*>(buffer)->User.Sid, &text));
    EXPECT_EQ(std::strncmp(text, "S-1-5-", 6), 0) << text;
    EXPECT_EQ(LocalFree(text), nullptr);
    EXPECT_TRUE(CloseHandle(token));
    EXPECT_FALSE(GetTokenInformation(token, TokenUser, buffer, sizeof(buffer), &needed)) << "the handle is closed";
}

TEST(Accounts, AProcessIsFoundByItsIdWhileItRuns) {
    DWORD session = contract::NoError;
    EXPECT_TRUE(ProcessIdToSessionId(GetCurrentProcessId(), &session));
    EXPECT_NE(session, contract::NoError);
    EXPECT_EQ(contract::ErrorOf([&] { return ProcessIdToSessionId(0x7FFFFFF0, &session); }),
              DWORD{ERROR_INVALID_PARAMETER});

    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    ASSERT_NE(snapshot, INVALID_HANDLE_VALUE);
    PROCESSENTRY32 entry = {};
    entry.dwSize = sizeof(entry);
    bool isListed = false;
    for (BOOL more = Process32First(snapshot, &entry); more; more = Process32Next(snapshot, &entry))
        isListed = isListed || (entry.th32ProcessID == GetCurrentProcessId() && entry.szExeFile[0] != 0);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_NO_MORE_FILES});
    EXPECT_TRUE(isListed);
    CloseHandle(snapshot);
}

} // namespace
