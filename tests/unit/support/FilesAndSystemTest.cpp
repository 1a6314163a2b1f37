// Paths, files and opens that may hang; the allocator; what the record of the Windows version says.
#include "tests/unit/Log.h"

#include "simwin/kernel/Call.h"
#include "simwin/registry/Registry.h"
#include "support/Accounts.h"
#include "support/CRTreplace.h"
#include "support/CreateFileTimeout.h"
#include "support/FileTools.h"
#include "support/OsVersion.h"
#include "support/PathTools.h"
#include "support/StringTools.h"
#include "support/ThreadTools.h"

using namespace logtest;

namespace {

// Windows 11, whose stored name is that of its predecessor.
const harness::WithSetup windows11([](machine::Setup& setup) { setup.version = {10, 0, 22631}; });

void Write(const std::string& path) {
    machine::TheFiles().Write(path, "x");
}

TEST(PathTools, AFullPathIsMadeOfEveryKindOfPath) {
    machine::SetEnvironment("QMTEMP", "C:\\Temp");
    const struct {
        const char *path, *base, *result;
    } rows[] = {{"\\Temp\\x.log", "D:\\Prog", "D:\\Temp\\x.log"},
                {"x.log", "D:\\Prog\\", "D:\\Prog\\x.log"},
                {"x.log", "D:\\Prog", "D:\\Prog\\x.log"},
                {"\\\\srv\\s\\x", "D:\\Prog", "\\\\srv\\s\\x"},
                {"c:\\a\\..\\x", "D:\\Prog", "c:\\x"},
                {"\"C:\\a b\\x\"", "D:\\Prog", "C:\\a b\\x"},
                {"%QMTEMP%\\x", "D:\\Prog", "C:\\Temp\\x"},
                {"x", "%QMTEMP%", "C:\\Temp\\x"},
                {"", "D:\\Prog", "before"},
                {"x", nullptr, "before"}};
    for (const auto& row : rows) {
        char out[64] = "before";
        MakeFullPath(row.path, row.base, out);
        EXPECT_STREQ(out, row.result) << row.path;
    }
    // "D:\Prog" and a backslash and 8 characters fill an array of 17 with its zero.
    struct {
        char out[17] = "";
        char behind = '#';
    } room;
    MakeFullPath("12345678", "D:\\Prog", room.out);
    EXPECT_STREQ(room.out, "D:\\Prog\\12345678");
    MakeFullPath("123456789", "D:\\Prog", room.out);
    EXPECT_STREQ(room.out, "123456789") << "too long together: as it came in";
    EXPECT_EQ(room.behind, '#');
}

TEST(PathTools, VariablesAreExpandedWithinTheLimit) {
    machine::SetEnvironment("QMLONG", std::string(200, 'v'));
    char text[300] = "%QMLONG%";
    EXPECT_EQ(ExpandEnvInPlace(text, 200), 0) << "the limit counts the final zero";
    EXPECT_STREQ(text, "%QMLONG%");
    EXPECT_EQ(ExpandEnvInPlace(text, 201), 1);
    EXPECT_EQ(TextLength(text), 200u);
    CopyText(text, "%QMLONG%%QMLONG%");
    EXPECT_EQ(ExpandEnvInPlace(text, 300), 0) << "no result of more than 259 characters is taken";
    EXPECT_STREQ(text, "%QMLONG%%QMLONG%");
}

TEST(PathTools, TheDirectoryOfAPath) {
    const std::pair<const char*, const char*> rows[] = {
        {"C:\\a\\b.txt", "C:\\a"}, {"C:\\a\\b\\", "C:\\a"}, {"C:\\b", "C:"}, {"C:\\", ""}, {"\\b", ""}, {"b.txt", ""}};
    for (const auto& [path, directory] : rows) {
        char out[32] = "before";
        EXPECT_EQ(GetDirectoryOfPath(path, out), directory[0] != '\0') << path;
        EXPECT_STREQ(out, directory) << path;
    }
}

TEST(FileTools, WhatCountsAsAnExistingFile) {
    Write("C:\\Dir\\a b.txt");
    Write("C:\\Secret\\s.txt");
    machine::TheFiles().Refuse("C:\\Secret\\s.txt", "*");
    machine::SetEnvironment("QMDIR", "C:\\Dir");
    const struct {
        std::string path;
        int exists;
        bool isLookedFor;
    } rows[] = {{"C:\\Dir\\a b.txt", 1, true},
                {"%QMDIR%\\a b.txt", 1, true},
                {"C:\\Secret\\s.txt", 1, true},
                {"C:\\", 1, true},
                {"C:\\Dir\\none", 0, true},
                {"\\\\?\\C:\\Dir\\a b.txt", 1, true},
                {"\\\\?\\", 0, true},
                {"", 0, false},
                {"C:\\a:b", 0, false},
                {"C:\\Dir\\*", 0, false},
                {"\\\\?\\C:\\a:b", 0, false},
                {"C:\\" + std::string(517, 'n'), 0, true},
                {"C:\\" + std::string(518, 'n'), 0, false}};
    for (const auto& row : rows) {
        int looks = 0;
        machine::WatchCalls(
            [&](const char* name, const char*) { looks += std::string_view(name) == "GetFileAttributesA"; });
        EXPECT_EQ(FileExists(row.path.c_str()), row.exists) << row.path;
        machine::WatchCalls({});
        EXPECT_EQ(looks > 0, row.isLookedFor) << row.path;
    }
    EXPECT_EQ(IsFolder("\"C:\\Dir\""), 1);
    EXPECT_EQ(IsFolder("C:\\Dir\\a b.txt"), 0);
    EXPECT_EQ(CanOpen("C:\\Dir"), 1);
    EXPECT_EQ(CanOpen("C:\\none"), 0);
}

TEST(FileTools, TheWriteTimeIsReadPastThoseWhoHoldTheFile) {
    Write("C:\\t.ini");
    const ULONGLONG first = GetFileWriteTime("C:\\t.ini");
    Write("C:\\t.ini");
    HANDLE holder = CreateFileA("C:\\t.ini", GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_GT(GetFileWriteTime("C:\\t.ini"), first);
    CloseHandle(holder);
    EXPECT_EQ(GetFileWriteTime("C:\\none.ini"), 0u);
}

TEST(FileTools, ZoneMarksAreTakenOffTheFilesOfOneFolder) {
    for (const char* file : {"C:\\Help\\a.chm", "C:\\Help\\b.chm", "C:\\Help\\a.chm:Zone.Identifier",
                             "C:\\Help\\Sub\\c.chm", "C:\\Help\\Sub\\c.chm:Zone.Identifier"})
        Write(file);
    EXPECT_EQ(RemoveZoneIdentifiers("C:\\Help\\"), 1);
    EXPECT_EQ(CanOpen("C:\\Help\\a.chm:Zone.Identifier"), 0);
    EXPECT_EQ(CanOpen("C:\\Help\\Sub\\c.chm:Zone.Identifier"), 1);
    EXPECT_EQ(CanOpen("C:\\Help\\a.chm"), 1);
    EXPECT_EQ(RemoveZoneIdentifiers("C:\\Help"), 0) << "nothing is left";
    EXPECT_EQ(RemoveZoneIdentifiers("C:\\Nowhere"), 0);
}

HANDLE Open(const char* path, DWORD timeoutMs = 500) {
    return CreateFileTimeout(path, GENERIC_READ, 0, OPEN_EXISTING, 0, timeoutMs);
}

TEST(CreateFileTimeout, TheCallerNeverWaitsLongerThanItSaid) {
    StartLog();
    Write("C:\\slow.dat");
    const struct {
        DWORD openMs, timeoutMs, waitedMs, error; // 0: a handle
        bool isTooLate;
    } rows[] = {{300, 500, 300, 0, false},
                {400, 500, 400, 0, false},
                {450, 500, 450, ERROR_TIMEOUT, true}, // into the margin
                {900, 500, 500, ERROR_TIMEOUT, true},
                {70, 80, 70, 0, false},             // a short wait has no margin
                {80, 80, 80, ERROR_TIMEOUT, false}, // just as it ends
                {90, 80, 80, ERROR_TIMEOUT, true}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.openMs);
        ClearLog();
        machine::AddFault({.call = "CreateFileA", .on = "C:\\slow.dat", .delayMs = row.openMs});
        const DWORD start = GetTickCount();
        const HANDLE file = Open("C:\\slow.dat", row.timeoutMs);
        EXPECT_EQ(file == INVALID_HANDLE_VALUE ? GetLastError() : 0, row.error);
        EXPECT_EQ(GetTickCount() - start, row.waitedMs);
        if (row.error == 0)
            CloseHandle(file);
        Sleep(2000);
        EXPECT_EQ(Logged("  too late -> CloseHandle\n"), row.isTooLate);
        EXPECT_TRUE(machine::TheFiles().Find("C:\\slow.dat")->holders.empty()) << "the handle is closed";
    }
}

TEST(CreateFileTimeout, AFailureIsThatOfTheOpenOrOfItsThread) {
    EXPECT_EQ(Open("C:\\none.dat"), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    Write("C:\\held.dat");
    CreateFileA("C:\\held.dat", GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_EQ(Open("C:\\held.dat"), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION);
    machine::AddFault({.call = "CreateThread", .on = "*", .error = ERROR_NOT_ENOUGH_MEMORY});
    EXPECT_EQ(Open("C:\\held.dat"), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_NOT_ENOUGH_MEMORY);
}

TEST(Allocator, TriesAgainUntilThereIsMemory) {
    StartLog();
    const LONG before = AllocatedBytes();
    machine::AddFault({.call = "HeapAlloc", .on = "*", .error = ERROR_NOT_ENOUGH_MEMORY, .times = 2});
    const DWORD start = GetTickCount();
    EXPECT_STREQ(StrDupNew("COM7"), "COM7");
    EXPECT_EQ(GetTickCount() - start, 1000u);
    EXPECT_TRUE(Logged("HeapAlloc(5) failed\n"));
    EXPECT_EQ(AllocatedBytes() - before, 5);
    EXPECT_STREQ(StrDupNew(nullptr), "");
}

DWORD WINAPI Nothing_ThreadProc(LPVOID) {
    WriteLog(1, "the thread runs");
    return 0;
}

TEST(ThreadTools, ALoggedStartStandsInFrontOfTheThreadsFirstLine) {
    StartLog();
    EXPECT_EQ(StartThreadLogged("Nothing_ThreadProc", Nothing_ThreadProc, nullptr), 1);
    Sleep(10);
    const std::string& text = machine::CurrentProcess()->debugOutput;
    EXPECT_LT(text.find("thread Nothing_ThreadProc created ThreadId="), text.find("the thread runs"));
    EXPECT_TRUE(Logged("the thread runs"));
}

TEST(OsVersion, TellsElevenByItsBuild) {
    constexpr char key[] = "HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
    machine::TheRegistry().SetString(key, "ProductName", "Windows 10 Home");
    machine::TheRegistry().SetString(key, "DisplayVersion", "");
    machine::TheRegistry().SetString(key, "ReleaseId", "2009");
    OsVersion os;
    GetOsVersion(&os);
    EXPECT_EQ(os.VersionBcd, 0x1000u);
    EXPECT_EQ(os.CanCycleUsbPort, 1u);
    EXPECT_STREQ(os.ProductName, "Windows 11 Home");
    EXPECT_STREQ(os.DisplayVersion, "2009");
    machine::TheRegistry().SetString(key, "ProductName", "Server");
    machine::TheRegistry().SetString(key, "DisplayVersion", "23H2");
    GetOsVersion(&os);
    EXPECT_STREQ(os.ProductName, "Server");
    EXPECT_STREQ(os.DisplayVersion, "23H2");
    EXPECT_EQ(PackVersion(10, 12), 0x1012u);
}

TEST(Accounts, OnlyTheSystemsOwnAccountsAreToldByTheirSid) {
    EXPECT_EQ(IsSystemSidText("S-1-5-19"), 1);
    EXPECT_EQ(IsSystemSidText("S-1-5-180"), 0);
    EXPECT_EQ(IsSystemSidText("S-1-1-18"), 0);
}

} // namespace
