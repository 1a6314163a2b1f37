// Where the simulated machine is known to give something else than Windows. Each stands here until somebody needs it.
#include "tests/contract/Contract.h"

using contract::ErrorOf;
using contract::NoError;

TEST(MachineDifferences, Files) {
    WIN32_FIND_DATAA found;
    const auto search = [&](const char* pattern) {
        return ErrorOf([&] {
            const HANDLE handle = FindFirstFileA(pattern, &found);
            if (handle == INVALID_HANDLE_VALUE)
                return false;
            FindClose(handle);
            return true;
        });
    };
    MACHINE_DIFFERS("a folder that is not there is an unknown file", search("C:\\Absent\\") == ERROR_PATH_NOT_FOUND);
    MACHINE_DIFFERS("devices are not found in folders", search("C:\\nul") == 0);
    const std::string name = contract::TempFile("case.txt"), other = contract::TempFile("CASE.txt");
    CloseHandle(CreateFileA(name.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    EXPECT_TRUE(MoveFileA(name.c_str(), other.c_str()));
    EXPECT_EQ(search(other.c_str()), 0u);
    KNOWN_DIFFERENCE("a change of case alone renames nothing",
                     std::string(found.cFileName).find("CASE") != std::string::npos);
    DeleteFileA(other.c_str());
    SetLastError(NoError);
    char path[MAX_PATH];
    GetModuleFileNameA(nullptr, path, MAX_PATH);
    MACHINE_DIFFERS("a success leaves the last error alone", GetLastError() == 0);
}

TEST(MachineDifferences, Others) {
    MACHINE_DIFFERS("threads by their pseudo handle cannot be waited for",
                    WaitForSingleObject(GetCurrentThread(), 0) == WAIT_TIMEOUT);
    char target[MAX_PATH] = "";
    EXPECT_TRUE(DefineDosDeviceA(0, "QuillmarchSlash", "C:/Nowhere"));
    QueryDosDeviceA("QuillmarchSlash", target, sizeof(target));
    MACHINE_DIFFERS("a slash in a target stays one", std::string(target).find("C:\\Nowhere") != std::string::npos);
    EXPECT_TRUE(DefineDosDeviceA(DDD_REMOVE_DEFINITION, "QuillmarchSlash", nullptr));
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    const BOOL isRead =
        ConvertStringSecurityDescriptorToSecurityDescriptorA("D: (A;;GA;;;WD)", SDDL_REVISION_1, &descriptor, nullptr);
    MACHINE_DIFFERS("a list must not have blanks", isRead != FALSE);
    if (isRead)
        LocalFree(descriptor);
}

TEST(MachineDifferences, Registry) {
    HKEY key = nullptr, below = nullptr;
    ASSERT_EQ(RegCreateKeyExA(HKEY_CURRENT_USER, "Software\\QuillmarchContractVolatile", 0, nullptr,
                              REG_OPTION_VOLATILE, KEY_ALL_ACCESS, nullptr, &key, nullptr),
              0);
    // What is gone with its parent cannot be lasting.
    EXPECT_EQ(RegCreateKeyExA(key, "Lasting", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &below, nullptr),
              ERROR_CHILD_MUST_BE_VOLATILE);
    const char text[] = "data";
    RegSetValueExA(key, "Text", 0, REG_SZ, reinterpret_cast<const BYTE*>(text), sizeof(text));
    DWORD longest = 0;
    RegQueryInfoKeyA(key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &longest, nullptr,
                     nullptr);
    MACHINE_DIFFERS("the longest data is counted in ANSI", longest == 10);
    // Too short for the name: the size of the data is given, the rest is left alone.
    char name[8] = "#";
    DWORD chars = 2, size = 0;
    EXPECT_EQ(RegEnumValueA(key, 0, name, &chars, nullptr, nullptr, nullptr, &size), ERROR_MORE_DATA);
    EXPECT_EQ(size, 5u);
    EXPECT_EQ(chars, 2u);
    KNOWN_DIFFERENCE("a name that does not fit is put in by part", std::string(name) == "#");
    RegCloseKey(key);
    RegDeleteKeyA(HKEY_CURRENT_USER, "Software\\QuillmarchContractVolatile");
}
