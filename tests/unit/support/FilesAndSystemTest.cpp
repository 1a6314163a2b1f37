// Paths, files and opens that may hang; the allocator; what the record of the Windows version says.
#include "tests/unit/Log.h"

#include "simwin/kernel/Call.h"
#include "simwin/registry/Registry.h"
#include "simwin/texts/Environment.h"
#include "support/system/CRTreplace.h"
#include "support/system/CreateFileTimeout.h"
#include "support/system/FileTools.h"
#include "support/system/OsVersion.h"
#include "support/system/ThreadTools.h"
#include "support/texts/PathTools.h"
#include "support/texts/StringTools.h"

using namespace logtest;

// Windows 11, whose stored name is that of its predecessor.
const harness::WithSetup Windows11([](machine::Setup& setup) { setup.version = {10, 0, 22631}; });

static void Write(const std::string& path) {
    machine::TheFiles().Write(path, "x");
}

TEST(PathTools, AFullPathIsMadeOfEveryKindOfPath) {
    machine::SetEnvironment("QMTEMP", "C:\\Temp");
    using Row = std::tuple<const char*, const char*, const char*>;
    for (const auto& [path, base, result] :
         {Row{"\\Temp\\x.log", "D:\\Prog", "D:\\Temp\\x.log"}, Row{"x.log", "D:\\Prog\\", "D:\\Prog\\x.log"},
          Row{"x.log", "D:\\Prog", "D:\\Prog\\x.log"}, Row{"\\\\srv\\s\\x", "D:\\Prog", "\\\\srv\\s\\x"},
          Row{"c:\\a\\..\\x", "D:\\Prog", "c:\\x"}, Row{"\"C:\\a b\\x\"", "D:\\Prog", "C:\\a b\\x"},
          Row{"%QMTEMP%\\x", "D:\\Prog", "C:\\Temp\\x"}, Row{"x", "%QMTEMP%", "C:\\Temp\\x"},
          Row{"", "D:\\Prog", "before"}, Row{"x", nullptr, "before"}}) {
        char out[64] = "before";
        MakeFullPath(path, base, out);
        EXPECT_STREQ(out, result) << path;
    }
    char folder[32];
    EXPECT_EQ(GetDirectoryOfPath("b.txt", folder), 0);
    // "D:\Prog" and a backslash and 8 characters fill an array of 17 with its zero.
    struct {
        char out[17] = "";
        char next = '#';
    } room;
    MakeFullPath("12345678", "D:\\Prog", room.out);
    EXPECT_STREQ(room.out, "D:\\Prog\\12345678");
    MakeFullPath("123456789", "D:\\Prog", room.out);
    EXPECT_STREQ(room.out, "123456789") << "too long together: as it came in";
    EXPECT_EQ(room.next, '#');
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

TEST(FileTools, WhatCountsAsAnExistingFile) {
    Write("C:\\Dir\\a b.txt");
    Write("C:\\Secret\\s.txt");
    machine::TheFiles().Refuse("C:\\Secret\\s.txt", "*");
    machine::SetEnvironment("QMDIR", "C:\\Dir");
    using Row = std::tuple<std::string, int, bool>;
    for (const auto& [path, exists, isLookedFor] :
         {Row{"C:\\Dir\\a b.txt", 1, true}, Row{"%QMDIR%\\a b.txt", 1, true}, Row{"C:\\Secret\\s.txt", 1, true},
          Row{"C:\\", 1, true}, Row{"C:\\Dir\\none", 0, true}, Row{"\\\\?\\C:\\Dir\\a b.txt", 1, true},
          Row{"\\\\?\\", 0, true}, Row{"", 0, false}, Row{"C:\\a:b", 0, false}, Row{"C:\\Dir\\*", 0, false},
          Row{"\\\\?\\C:\\a:b", 0, false}, Row{"C:\\" + std::string(517, 'n'), 0, true},
          Row{"C:\\" + std::string(518, 'n'), 0, false}}) {
        int looks = 0;
        machine::WatchCalls(
            [&](const char* name, const char*) { looks += std::string_view(name) == "GetFileAttributesA"; });
        EXPECT_EQ(FileExists(path.c_str()), exists) << path;
        machine::WatchCalls({});
        EXPECT_EQ(looks > 0, isLookedFor) << path;
    }
    EXPECT_EQ(IsFolder("\"C:\\Dir\""), 1);
    EXPECT_EQ(IsFolder("C:\\Dir\\a b.txt"), 0);
}

TEST(CreateFileTimeout, TheCallerNeverWaitsLongerThanItSaid) {
    StartLog();
    Write("C:\\slow.dat");
    // 0: a handle
    using Row = std::tuple<DWORD, DWORD, DWORD, DWORD, bool>;
    for (const auto& [openMs, timeoutMs, waitedMs, error, isTooLate] :
         {Row{300, 500, 300, 0, false}, Row{400, 500, 400, 0, false},
          Row{450, 500, 450, ERROR_TIMEOUT, true},                            // into the margin
          Row{900, 500, 500, ERROR_TIMEOUT, true}, Row{70, 80, 70, 0, false}, // a short wait has no margin
          Row{80, 80, 80, ERROR_TIMEOUT, false},                              // just as it ends
          Row{90, 80, 80, ERROR_TIMEOUT, true}}) {
        SCOPED_TRACE(openMs);
        ClearLog();
        machine::AddFault({.call = "CreateFileA", .on = "C:\\slow.dat", .delayMs = openMs});
        const DWORD start = GetTickCount();
        SetLastError(0);
        const HANDLE file = CreateFileTimeout("C:\\slow.dat", GENERIC_READ, 0, OPEN_EXISTING, 0, timeoutMs);
        EXPECT_EQ(file == INVALID_HANDLE_VALUE ? GetLastError() : 0, error);
        EXPECT_EQ(GetTickCount() - start, waitedMs);
        if (error == 0) {
            CloseHandle(file);
        }
        Sleep(2000);
        EXPECT_EQ(Logged("  too late -> CloseHandle\n"), isTooLate);
        EXPECT_TRUE(machine::TheFiles().Find("C:\\slow.dat")->holders.empty()) << "the handle is closed";
    }
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

static DWORD WINAPI Nothing_ThreadProc(LPVOID) {
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
    constexpr char Key[] = "HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
    machine::TheRegistry().SetString(Key, "ProductName", "Windows 10 Home");
    machine::TheRegistry().SetString(Key, "DisplayVersion", "");
    machine::TheRegistry().SetString(Key, "ReleaseId", "2009");
    OsVersion os;
    GetOsVersion(&os);
    EXPECT_EQ(os.VersionBcd, 0x1000u);
    EXPECT_EQ(os.CanCycleUsbPort, 1u);
    EXPECT_STREQ(os.ProductName, "Windows 11 Home");
    EXPECT_STREQ(os.DisplayVersion, "2009");
    EXPECT_EQ(PackVersion(10, 12), 0x1012u);
}
