// Paths, files and opens that may hang; the allocator; what the record of the Windows version says.
#include "tests/harness/Harness.h"

#include "simwin/files/Files.h"
#include "simwin/kernel/Call.h"
#include "simwin/kernel/Process.h"
#include "simwin/registry/Registry.h"
#include "support/Accounts.h"
#include "support/BoundedText.h"
#include "support/CRTreplace.h"
#include "support/CreateFileTimeout.h"
#include "support/FileTools.h"
#include "support/LogFile.h"
#include "support/OsVersion.h"
#include "support/PathTools.h"
#include "support/ProcessState.h"
#include "support/StringTools.h"
#include "support/SystemTools.h"
#include "support/ThreadTools.h"

namespace {

// Windows 11, whose stored name is that of its predecessor.
const harness::WithSetup windows11([](machine::Setup& setup) { setup.version = {10, 0, 22631}; });

// The log as text of the debugger's output, for lines that prove which road was taken.
struct LogText {
    LogText() {
        machine::CurrentProcess()->debugOutput.clear();
        g_Log.WriteDebugOutput = 0;
        machine::TheFiles().Write("C:\\Prog\\Quillmarch.INI", "[Settings]\r\nLogLevel=3\r\nWriteDebugOutput=1\r\n");
        CopyText(szIniFile, "C:\\Prog\\Quillmarch.INI");
        LogFile_Init(0);
    }
    ~LogText() {
        LogFile_Exit();
        g_Log = {};
        machine::ClearFaults();
    }
    bool Has(const char* text) const { return machine::CurrentProcess()->debugOutput.find(text) != std::string::npos; }
};

TEST(PathTools, AFullPathIsMadeOfEveryKindOfPath) {
    machine::SetEnvironment("QMTEMP", "C:\\Temp");
    struct Row {
        const char* path;
        const char* base;
        const char* result;
    };
    for (const Row& row : {
             Row{"\\Temp\\x.log", "D:\\Prog", "D:\\Temp\\x.log"},
             Row{"x.log", "D:\\Prog\\", "D:\\Prog\\x.log"},
             Row{"x.log", "D:\\Prog", "D:\\Prog\\x.log"},
             Row{"\\\\srv\\s\\x", "D:\\Prog", "\\\\srv\\s\\x"},
             Row{"c:\\a\\..\\x", "D:\\Prog", "c:\\x"},
             Row{"\"C:\\a b\\x\"", "D:\\Prog", "C:\\a b\\x"},
             Row{"%QMTEMP%\\x", "D:\\Prog", "C:\\Temp\\x"},
             Row{"x", "%QMTEMP%", "C:\\Temp\\x"},
             Row{"", "D:\\Prog", "before"},
             Row{"x", nullptr, "before"},
         }) {
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
    CopyText(text, "plain");
    EXPECT_EQ(ExpandEnvInPlace(text, 300), 0);
    CopyText(text, "%QMLONG%");
    EXPECT_EQ(ExpandEnvInPlace(text, 1025), 0);
}

TEST(PathTools, TheDirectoryOfAPath) {
    for (const auto& [path, directory] :
         std::initializer_list<std::pair<const char*, const char*>>{{"C:\\a\\b.txt", "C:\\a"},
                                                                    {"C:\\a\\b\\", "C:\\a"},
                                                                    {"C:\\b", "C:"},
                                                                    {"C:\\", ""},
                                                                    {"\\b", ""},
                                                                    {"b.txt", ""}}) {
        char out[32] = "before";
        EXPECT_EQ(GetDirectoryOfPath(path, out), directory[0] != '\0') << path;
        EXPECT_STREQ(out, directory) << path;
    }
}

TEST(FileTools, WhatCountsAsAnExistingFile) {
    machine::TheFiles().Write("C:\\Dir\\a b.txt", "x");
    machine::TheFiles().Write("C:\\Secret\\s.txt", "x");
    machine::TheFiles().Refuse("C:\\Secret\\s.txt", "*");
    machine::SetEnvironment("QMDIR", "C:\\Dir");
    struct Row {
        std::string path;
        int exists;
        bool looked; // on the disk
    };
    for (const Row& row : {
             Row{"C:\\Dir\\a b.txt", 1, true},
             Row{"c:\\dir", 1, true},
             Row{"%QMDIR%\\a b.txt", 1, true},
             Row{"C:\\Secret\\s.txt", 1, true},
             Row{"C:\\", 1, true},
             Row{"C:\\Dir\\none", 0, true},
             Row{"\\\\?\\C:\\Dir\\a b.txt", 1, true},
             Row{"\\\\?\\", 0, false},
             Row{"", 0, false},
             Row{"C:\\a:b", 0, false},
             Row{"C:\\Dir\\*", 0, false},
             Row{"\\\\?\\C:\\a:b", 0, false},
             Row{"C:\\" + std::string(518, 'n'), 0, false},
         }) {
        int looks = 0;
        machine::WatchCalls(
            [&](const char* name, const char*) { looks += std::string_view(name) == "GetFileAttributesA"; });
        EXPECT_EQ(FileExists(row.path.c_str()), row.exists) << row.path;
        machine::WatchCalls({});
        EXPECT_EQ(looks > 0, row.looked) << row.path;
    }
    LogText log;
    FileExists("C:\\a:b");
    EXPECT_TRUE(log.Has("  invalid file name\n"));
    EXPECT_EQ(IsFolder("\"C:\\Dir\""), 1);
    EXPECT_EQ(IsFolder("C:\\Dir\\a b.txt"), 0);
    EXPECT_EQ(CanOpen("C:\\Dir"), 1);
    EXPECT_EQ(CanOpen("C:\\none"), 0);
    EXPECT_TRUE(log.Has("CanOpen(C:\\none)...\n"));
    EXPECT_TRUE(log.Has("  err=FILE_NOT_FOUND\n"));
}

TEST(FileTools, TheWriteTimeIsReadPastThoseWhoHoldTheFile) {
    machine::TheFiles().Write("C:\\Dir\\t.ini", "x");
    const ULONGLONG first = GetFileWriteTime("C:\\Dir\\t.ini");
    EXPECT_NE(first, 0u);
    Sleep(10);
    machine::TheFiles().Write("C:\\Dir\\t.ini", "x");
    HANDLE holder = CreateFileA("C:\\Dir\\t.ini", GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_GT(GetFileWriteTime("C:\\Dir\\t.ini"), first);
    CloseHandle(holder);
    EXPECT_EQ(GetFileWriteTime("C:\\Dir\\none.ini"), 0u);
}

TEST(FileTools, ZoneMarksAreTakenOffTheFilesOfOneFolder) {
    for (const char* file : {"C:\\Help\\a.chm", "C:\\Help\\b.chm", "C:\\Help\\Sub\\c.chm"}) {
        machine::TheFiles().Write(file, "help");
        if (file[8] != 'b') {
            machine::TheFiles().Write(std::string(file) + ":Zone.Identifier", "[ZoneTransfer]");
        }
    }
    EXPECT_EQ(RemoveZoneIdentifiers("C:\\Help\\"), 1);
    EXPECT_EQ(CanOpen("C:\\Help\\a.chm:Zone.Identifier"), 0);
    EXPECT_EQ(CanOpen("C:\\Help\\Sub\\c.chm:Zone.Identifier"), 1);
    EXPECT_EQ(CanOpen("C:\\Help\\a.chm"), 1);
    EXPECT_EQ(RemoveZoneIdentifiers("C:\\Help"), 0) << "nothing is left";
    EXPECT_EQ(RemoveZoneIdentifiers("C:\\Nowhere"), 0);
}

TEST(CreateFileTimeout, TheCallerNeverWaitsLongerThanItSaid) {
    machine::TheFiles().Write("C:\\slow.dat", "x");
    struct Row {
        const char* what;
        DWORD openMs, timeoutMs, waitedMs;
        DWORD error; // 0: a handle
        bool tooLate;
    };
    for (const Row& row : {
             Row{"in time", 300, 500, 300, 0, false},
             Row{"just in time", 400, 500, 400, 0, false},
             Row{"into the margin", 450, 500, 450, ERROR_TIMEOUT, true},
             Row{"too late", 900, 500, 500, ERROR_TIMEOUT, true},
             Row{"a short wait has no margin", 70, 80, 70, 0, false},
             Row{"just as a short wait ends", 80, 80, 80, ERROR_TIMEOUT, false},
             Row{"too late for a short wait", 90, 80, 80, ERROR_TIMEOUT, true},
         }) {
        LogText log;
        machine::AddFault({.call = "CreateFileA", .on = "C:\\slow.dat", .delayMs = row.openMs});
        const size_t open = machine::TheFiles().Find("C:\\slow.dat")->holders.size();
        const DWORD start = GetTickCount();
        const HANDLE file = CreateFileTimeout("C:\\slow.dat", GENERIC_READ, 0, OPEN_EXISTING, 0, row.timeoutMs);
        const DWORD error = GetLastError();
        EXPECT_EQ(GetTickCount() - start, row.waitedMs) << row.what;
        EXPECT_EQ(file != INVALID_HANDLE_VALUE, row.error == 0) << row.what;
        if (file != INVALID_HANDLE_VALUE) {
            CloseHandle(file);
        } else {
            EXPECT_EQ(error, row.error) << row.what;
        }
        Sleep(2000);
        EXPECT_EQ(log.Has("  too late -> CloseHandle\n"), row.tooLate) << row.what;
        EXPECT_EQ(machine::TheFiles().Find("C:\\slow.dat")->holders.size(), open)
            << row.what << ": the handle is closed";
    }
}

TEST(CreateFileTimeout, AFailureIsThatOfTheOpen) {
    HANDLE file = CreateFileTimeout("C:\\none.dat", GENERIC_READ, 0, OPEN_EXISTING, 0, 500);
    EXPECT_EQ(file, INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    machine::TheFiles().Write("C:\\held.dat", "x");
    HANDLE holder = CreateFileA("C:\\held.dat", GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    file = CreateFileTimeout("C:\\held.dat", GENERIC_READ, 0, OPEN_EXISTING, 0, 500);
    EXPECT_EQ(file, INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION);
    CloseHandle(holder);
    machine::AddFault({.call = "CreateThread", .on = "*", .error = ERROR_NOT_ENOUGH_MEMORY});
    EXPECT_EQ(CreateFileTimeout("C:\\held.dat", GENERIC_READ, 0, OPEN_EXISTING, 0, 500), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_NOT_ENOUGH_MEMORY);
    machine::ClearFaults();
}

TEST(Allocator, TriesAgainUntilThereIsMemory) {
    LogText log;
    const LONG before = AllocatedBytes();
    machine::AddFault({.call = "HeapAlloc", .on = "*", .error = ERROR_NOT_ENOUGH_MEMORY, .times = 2});
    const DWORD start = GetTickCount();
    const char* copy = StrDupNew("COM7");
    EXPECT_STREQ(copy, "COM7");
    EXPECT_EQ(GetTickCount() - start, 1000u);
    EXPECT_TRUE(log.Has("HeapAlloc(5) failed\n"));
    EXPECT_EQ(AllocatedBytes() - before, 5);
    EXPECT_STREQ(StrDupNew(nullptr), "");
}

DWORD WINAPI Nothing_ThreadProc(LPVOID) {
    WriteLog(1, "the thread runs");
    return 0;
}

TEST(ThreadTools, ALoggedStartStandsInFrontOfTheThreadsFirstLine) {
    LogText log;
    EXPECT_EQ(StartThreadLogged("Nothing_ThreadProc", Nothing_ThreadProc, nullptr), 1);
    Sleep(10);
    const std::string& text = machine::CurrentProcess()->debugOutput;
    const size_t created = text.find("thread Nothing_ThreadProc created ThreadId=");
    ASSERT_NE(created, std::string::npos);
    EXPECT_LT(created, text.find("the thread runs"));
    EXPECT_NE(StartThreadForId(nullptr, Nothing_ThreadProc, nullptr), 0u);
    EXPECT_TRUE(log.Has("]  thread created ThreadId="));
    machine::AddFault({.call = "CreateThread", .on = "*", .error = ERROR_NOT_ENOUGH_MEMORY});
    EXPECT_EQ(StartThreadForId(nullptr, Nothing_ThreadProc, nullptr), 0u);
}

TEST(OsVersion, TellsElevenByItsBuild) {
    constexpr char key[] = "HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
    machine::TheRegistry().SetString(key, "ProductName", "Windows 10 Home");
    machine::TheRegistry().SetString(key, "DisplayVersion", "");
    machine::TheRegistry().SetString(key, "ReleaseId", "2009");
    machine::TheRegistry().SetDword(key, "UBR", 4037);
    OsVersion os;
    GetOsVersion(&os);
    EXPECT_EQ(os.MajorVersion, 10u);
    EXPECT_EQ(os.BuildNumber, 22631u);
    EXPECT_EQ(os.VersionBcd, 0x1000u);
    EXPECT_EQ(os.CanCycleUsbPort, 1u);
    EXPECT_STREQ(os.ProductName, "Windows 11 Home");
    EXPECT_STREQ(os.DisplayVersion, "2009");
    EXPECT_STREQ(os.Ubr, "4037");
    machine::TheRegistry().SetString(key, "ProductName", "Server");
    machine::TheRegistry().SetString(key, "DisplayVersion", "23H2");
    GetOsVersion(&os);
    EXPECT_STREQ(os.ProductName, "Server");
    EXPECT_STREQ(os.DisplayVersion, "23H2");
    EXPECT_EQ(PackVersion(6, 3), 0x0603u);
    EXPECT_EQ(PackVersion(10, 12), 0x1012u);
}

TEST(Accounts, TheSystemsOwnAccountsAreToldByTheirSid) {
    char sid[260];
    EXPECT_EQ(GetUserSidText(sid), 1);
    EXPECT_STREQ(sid, "S-1-5-18");
    EXPECT_EQ(IsSystemAccount(), 1);
    EXPECT_EQ(IsSystemSidText("S-1-5-19"), 1);
    EXPECT_EQ(IsSystemSidText("S-1-5-180"), 0);
    EXPECT_EQ(IsSystemSidText("S-1-1-18"), 0);
}

TEST(SystemTools, ASubstitutedDriveIsTold) {
    ASSERT_TRUE(DefineDosDeviceA(DDD_RAW_TARGET_PATH, "S:", "\\??\\C:\\Dir"));
    ASSERT_TRUE(DefineDosDeviceA(DDD_RAW_TARGET_PATH, "T:", "\\Device\\HarddiskVolume9"));
    EXPECT_EQ(IsSubstDrive('T'), 0);
    EXPECT_EQ(IsSubstDrive('S'), 1);
    EXPECT_EQ(IsSubstDrive('Q'), 0);
}

} // namespace
