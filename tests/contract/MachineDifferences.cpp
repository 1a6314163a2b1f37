// Where the simulated machine is known to differ from Windows. Each difference stays here until the product needs it.
#include "tests/contract/Contract.h"

using contract::ErrorOf;
using contract::NoError;

TEST(MachineDifferences, Files) {
    WIN32_FIND_DATAA found;
    const auto search = [&](const char* pattern) {
        return ErrorOf([&] {
            const HANDLE handle = FindFirstFileA(pattern, &found);
            if (handle == INVALID_HANDLE_VALUE) {
                return false;
            }
            FindClose(handle);
            return true;
        });
    };
    KNOWN_DIFFERENCE("an absent folder is an unknown file", search("C:\\Absent\\") == ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(search("C:\\nul"), 0u) << "devices are found in folders";
    const std::string name = contract::TempFile("case.txt"), other = contract::TempFile("CASE.txt");
    CloseHandle(CreateFileA(name.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    EXPECT_TRUE(MoveFileA(name.c_str(), other.c_str()));
    EXPECT_EQ(search(other.c_str()), 0u);
    KNOWN_DIFFERENCE("a change of case alone renames nothing",
                     std::string(found.cFileName).find("CASE") != std::string::npos);
    for (const char* pattern : {"CASE.t??????", "CASE?????.txt", "C<.txt"}) {
        KNOWN_DIFFERENCE("wildcards are plain ones", search(contract::TempFile(pattern).c_str()) == 0);
    }
    KNOWN_DIFFERENCE("wildcards are plain ones", search(contract::TempFile("CASE*.").c_str()) != 0);
    EXPECT_EQ(search(contract::TempFile("CASE.txt. ").c_str()), 0u);
    EXPECT_NE(search(contract::TempFile("CASE.?").c_str()), 0u);
    DeleteFileA(other.c_str());
    SetLastError(NoError);
    char path[MAX_PATH];
    GetModuleFileNameA(nullptr, path, MAX_PATH);
    EXPECT_EQ(GetLastError(), 0u) << "a success takes the last error away";
}

TEST(MachineDifferences, Others) {
    EXPECT_EQ(WaitForSingleObject(GetCurrentThread(), 0), DWORD{WAIT_TIMEOUT});
    char target[MAX_PATH] = "";
    const std::string folder = contract::TempFolder();
    EXPECT_TRUE(DefineDosDeviceA(0, "QuillmarchSlash", "C:/Nowhere"));
    QueryDosDeviceA("QuillmarchSlash", target, sizeof(target));
    KNOWN_DIFFERENCE("a slash in a target stays one", std::string(target) == "\\??\\C:\\Nowhere");
    EXPECT_TRUE(DefineDosDeviceA(DDD_REMOVE_DEFINITION, "QuillmarchSlash", nullptr));
    EXPECT_TRUE(DefineDosDeviceA(0, "QuillmarchFolder", folder.c_str()));
    const std::string name = contract::TempFile("below.txt");
    CloseHandle(CreateFileA(name.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    const std::string below = "\\\\.\\QuillmarchFolder" + name.substr(folder.size());
    const HANDLE file = CreateFileA(below.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    MACHINE_DIFFERS("nothing is opened below a name that leads to a folder", file != INVALID_HANDLE_VALUE);
    CloseHandle(file);
    DeleteFileA(name.c_str());
    EXPECT_TRUE(DefineDosDeviceA(DDD_REMOVE_DEFINITION, "QuillmarchFolder", nullptr));
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    const auto read = [&](const char* list, DWORD revision = SDDL_REVISION_1) {
        const DWORD error = ErrorOf(
            [&] { return ConvertStringSecurityDescriptorToSecurityDescriptorA(list, revision, &descriptor, nullptr); });
        if (!error) {
            LocalFree(descriptor);
        }
        return error;
    };
    EXPECT_EQ(read(" D: ( A;; GA;;;WD)"), 0u);
    EXPECT_EQ(read("D:(A;;GA;;;WD)", 7), 1305u);
    EXPECT_EQ(read("D:(A;;??;;;WD)"), 1336u);
}

// What callers rely on that pass nothing, or more than they know.
TEST(MachineDifferences, OddArguments) {
    char text[256];
    EXPECT_NE(FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, 0x80070005, 0x400, text, sizeof(text), nullptr), 0u);
    LPSTR sid = nullptr;
    const DWORD error = ErrorOf([&] { return ConvertSidToStringSidA(nullptr, &sid); });
    EXPECT_TRUE(error == ERROR_INVALID_PARAMETER || error == 1337) << error;
    EXPECT_ERROR(ERROR_PROC_NOT_FOUND, GetProcAddress(nullptr, "QuillmarchNone") != nullptr);
    const HANDLE event = CreateEventA(nullptr, TRUE, TRUE, nullptr);
    const auto marked = reinterpret_cast<HANDLE>(reinterpret_cast<ULONG_PTR>(event) | 3);
    EXPECT_EQ(WaitForSingleObject(marked, 0), DWORD{WAIT_OBJECT_0}) << "the low two bits do not count";
    CloseHandle(event);
    const SC_HANDLE manager = OpenSCManagerA(nullptr, nullptr, GENERIC_READ | SC_MANAGER_CONNECT);
    EXPECT_NE(manager, nullptr);
    CloseServiceHandle(manager);
    HKEY key = nullptr;
    const auto narrow = reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0x80000002));
    EXPECT_EQ(RegOpenKeyExA(narrow, "SOFTWARE", 0, KEY_READ, &key), 0) << "a root by its low half";
    DWORD both = sizeof(text);
    EXPECT_NE(RegQueryValueExA(key, "QuillmarchNone", nullptr, &both, reinterpret_cast<BYTE*>(text), &both), 0);
    RegCloseKey(key);
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
    EXPECT_EQ(longest, 10u) << "in UTF-16";
    // Too short for the name: the size of the data is given, the rest is left alone.
    char name[8] = "#";
    DWORD chars = 2, size = 0;
    EXPECT_EQ(RegEnumValueA(key, 0, name, &chars, nullptr, nullptr, nullptr, &size), ERROR_MORE_DATA);
    EXPECT_EQ(size, 5u);
    EXPECT_EQ(chars, 2u);
    KNOWN_DIFFERENCE("a name that does not fit is put in by part", std::string(name) == "#");
    RegCloseKey(key);
    RegDeleteKeyA(HKEY_CURRENT_USER, "Software\\QuillmarchContractVolatile");
    EXPECT_EQ(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "", 0, KEY_READ, &key), 0);
    EXPECT_EQ(key, HKEY_LOCAL_MACHINE) << "a root is its own result";
    EXPECT_EQ(RegOpenKeyExA(HKEY_CLASSES_ROOT, "\\", 0, KEY_READ, &key), 0);
    RegCloseKey(key);
    MACHINE_DIFFERS("classes of interfaces are not there",
                    RegOpenKeyExA(HKEY_CLASSES_ROOT, "Interface", 0, KEY_READ, &key) == 0);
    // A user's own class takes precedence over the machine's.
    ASSERT_EQ(RegCreateKeyExA(HKEY_CURRENT_USER, "Software\\Classes\\QuillmarchOwn", 0, nullptr, 0, KEY_ALL_ACCESS,
                              nullptr, &key, nullptr),
              0);
    KNOWN_DIFFERENCE("a user's own classes are not there",
                     RegOpenKeyExA(HKEY_CLASSES_ROOT, "QuillmarchOwn", 0, KEY_READ, &below) == 0);
    bool isListed = false;
    char listed[MAX_PATH];
    chars = sizeof(listed);
    for (DWORD i = 0; RegEnumKeyExA(HKEY_CLASSES_ROOT, i, listed, &chars, nullptr, nullptr, nullptr, nullptr) == 0;
         ++i) {
        isListed = isListed || std::string(listed) == "QuillmarchOwn";
        chars = sizeof(listed);
    }
    MACHINE_DIFFERS("a user's own classes are opened, but not listed", isListed);
    RegCloseKey(below);
    RegCloseKey(key);
    RegDeleteKeyA(HKEY_CURRENT_USER, "Software\\Classes\\QuillmarchOwn");
}
