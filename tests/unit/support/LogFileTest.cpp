// The log: what the settings switch on, how a record reads, when the file rotates, closes and gives up.
#include "tests/harness/Harness.h"

#include "simwin/files/Files.h"
#include "simwin/kernel/Call.h"
#include "simwin/kernel/Process.h"
#include "support/BoundedText.h"
#include "support/LogFile.h"
#include "support/ProcessState.h"

namespace {

constexpr char kIni[] = "C:\\Prog\\Quillmarch.INI";
constexpr char kDefaultLog[] = "C:\\_Quillmarch.log";
constexpr char kDefaultBackup[] = "C:\\_Quillmarch_bak.log";
constexpr DWORD kNobodysError = 0xDEAD;

class Log : public testing::Test {
protected:
    void SetUp() override {
        machine::TheFiles().MakeFolder("C:\\Prog");
        CopyText(szWindowsDir, "C:\\Windows");
        CopyText(szExeDir, "C:\\Prog");
        CopyText(szIniFile, kIni);
        g_Mode = ModeService;
    }
    void TearDown() override {
        LogFile_Exit();
        g_Log = {};
        machine::ClearFaults();
    }

    static void Settings(const std::string& lines) { machine::TheFiles().Write(kIni, "[Settings]\r\n" + lines); }
    static void Start(const std::string& lines, int rotate = 0) {
        Settings(lines);
        LogFile_Init(rotate);
    }
    static std::string Text(const char* file = kDefaultLog) {
        return machine::TheFiles().Read(file).value_or("(no file)");
    }
    static bool Exists(const char* file) { return machine::TheFiles().Exists(file); }
    static std::string Tag() {
        char tag[32];
        FormatText(tag, "{%4.4i}", static_cast<LONG>(GetCurrentThreadId()));
        return tag;
    }
};

TEST_F(Log, SettingsSwitchItOn) {
    struct Row {
        const char* lines;
        LONG level;
        DWORD file, debugger;
        const char* name;
    };
    for (const Row& row : {
             Row{"", 3, 0, 0, ""},
             Row{"LogLevel=12\r\nWriteLogfile=1\r\n", 1, 1, 0, kDefaultLog},
             Row{"LogLevel=x\r\nWriteLogfile=1\r\nWriteDebugOutput=1\r\n", 0, 0, 0, ""},
             Row{"LogLevel=0\r\nWriteLogfile=1\r\n", 0, 0, 0, ""},
             Row{"WriteLogfile=yes\r\n", 3, 0, 0, kDefaultLog},
             Row{"WriteLogfile=1\r\nLogfile=own.log\r\n", 3, 1, 0, "C:\\Prog\\own.log"},
             Row{"WriteLogfile=1\r\nLogfile=\"C:\\Prog\\with blank.log\"\r\n", 3, 1, 0, "C:\\Prog\\with blank.log"},
             Row{"WriteLogfile=1\r\nLogfile=C:\\Nowhere\\own.log\r\n", 3, 1, 0, kDefaultLog},
             Row{"WriteDebugOutput=\r\n", 3, 0, 1, ""},
             Row{"WriteDebugOutput=00\r\n", 3, 0, 0, ""},
         }) {
        g_Log = {};
        Start(row.lines);
        EXPECT_EQ(g_Log.LogLevel, row.level) << row.lines;
        EXPECT_EQ(g_Log.WriteLogfile, row.file) << row.lines;
        EXPECT_EQ(g_Log.WriteDebugOutput, row.debugger) << row.lines;
        EXPECT_STREQ(g_Log.LogFileName, row.name) << row.lines;
        LogFile_Exit();
    }
}

TEST_F(Log, ARecordReadsFieldByField) {
    Start("WriteLogfile=1\r\n");
    WriteLog(1, "first");
    Sleep(125);
    WriteLog(2, "TickCount=%u", 912345u);
    g_Mode = ModeBalloon;
    WriteLog(3, "from a child");
    const std::string text = Text();
    EXPECT_NE(text.find(" (9999) " + Tag() + " <1> first\r\n"), std::string::npos) << text;
    EXPECT_NE(text.find(" ( 125) " + Tag() + " <2> TickCount=912345\r\n"), std::string::npos) << text;
    char child[32];
    FormatText(child, "[ba%2.2u] <3> ", GetCurrentProcessId() & 0xFF);
    EXPECT_NE(text.find(" (   0) " + std::string(child) + "from a child\r\n"), std::string::npos) << text;
    EXPECT_EQ(text.substr(0, 6), "14:03:") << "local time in front";
    EXPECT_EQ(text.find(' '), std::string("14:03:22.7").size());
}

TEST_F(Log, ARecordAboveTheLevelLeavesNoTraceAndEvaluatesNothing) {
    int evaluated = 0;
    const auto count = [&] { return ++evaluated; };
    WriteLog(1, "before the start %i", count());
    Start("WriteLogfile=1\r\nLogLevel=3\r\n");
    WriteLog(3, "one");
    Sleep(40);
    WriteLog(4, "two %i", count());
    Sleep(60);
    WriteLog(3, "three");
    EXPECT_EQ(evaluated, 0);
    EXPECT_EQ(Text().find("two"), std::string::npos);
    EXPECT_NE(Text().find("( 100) " + Tag() + " <3> three"), std::string::npos) << Text();
    LogFile_Exit();
    const std::string atEnd = Text();
    WriteLog(1, "behind the end");
    EXPECT_EQ(Text(), atEnd);
    EXPECT_NE(atEnd.find("<1> last log output\r\n"), std::string::npos);
}

TEST_F(Log, ALongRecordIsCutAndStillEndsItsLine) {
    Start("WriteLogfile=1\r\n");
    const std::string half(600, 'x');
    WriteLog(1, "%s%s", half.c_str(), half.c_str());
    WriteLog(1, "next");
    const std::string text = Text();
    const size_t end = text.find("\r\n");
    ASSERT_NE(end, std::string::npos);
    EXPECT_LE(end + 2, 1024u);
    EXPECT_GT(end, 1000u);
    EXPECT_NE(text.find("<1> next", end), std::string::npos);
}

TEST_F(Log, TheDebuggerGetsItsOwnForm) {
    machine::CurrentProcess()->debugOutput.clear();
    Start("WriteDebugOutput=1\r\n");
    WriteLog(1, "first");
    WriteLog(1, "port %s", "COM7");
    EXPECT_NE(machine::CurrentProcess()->debugOutput.find("(   0)[QUILLMARCH]  port COM7\n"), std::string::npos)
        << machine::CurrentProcess()->debugOutput;
    EXPECT_FALSE(Exists(kDefaultLog));
}

TEST_F(Log, KeepsTheCallersLastErrorUnlessTheFileCannotBeOpened) {
    Start("WriteLogfile=1\r\nWriteDebugOutput=1\r\n");
    SetLastError(kNobodysError);
    WriteLog(1, "one");
    EXPECT_EQ(GetLastError(), kNobodysError);
    Sleep(200); // the file is closed by now
    machine::TheFiles().Refuse(kDefaultLog, "*");
    WriteLog(1, "two");
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    EXPECT_EQ(Text().find("two"), std::string::npos);
}

TEST_F(Log, TheFileIsLeftToOthersFiftyMillisecondsAfterTheLastRecord) {
    Start("WriteLogfile=1\r\n");
    for (int i = 0; i < 5; ++i) {
        WriteLog(1, "burst %i", i);
        Sleep(30);
    }
    EXPECT_FALSE(MoveFileA(kDefaultLog, "C:\\taken.log"));
    EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION);
    Sleep(60);
    EXPECT_TRUE(MoveFileA(kDefaultLog, "C:\\taken.log"));
    WriteLog(1, "later");
    EXPECT_NE(Text().find("later"), std::string::npos);
    EXPECT_EQ(Text().find("burst"), std::string::npos);
}

TEST_F(Log, WaitsAShortTimeForAWriterThatDoesNotShare) {
    Start("WriteLogfile=1\r\n");
    HANDLE holder = CreateFileA(kDefaultLog, GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(holder, INVALID_HANDLE_VALUE);
    DWORD start = GetTickCount();
    WriteLog(1, "lost");
    EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION);
    EXPECT_GE(GetTickCount() - start, 190u);
    EXPECT_LE(GetTickCount() - start, 200u);
    CloseHandle(holder);
    WriteLog(1, "kept");
    EXPECT_EQ(Text().find("lost"), std::string::npos);
    EXPECT_NE(Text().find("kept"), std::string::npos);
}

TEST_F(Log, AStartThatRotatesKeepsOneBackup) {
    machine::TheFiles().Write(kDefaultLog, "former\r\n");
    machine::TheFiles().Write(kDefaultBackup, "oldest\r\n");
    Start("WriteLogfile=1\r\n", /*rotate=*/1);
    EXPECT_EQ(Text(kDefaultBackup), "former\r\n");
    EXPECT_EQ(Text(), "");
    WriteLog(1, "fresh");
    EXPECT_EQ(Text(kDefaultBackup), "former\r\n");
    const machine::FileNode* log = machine::TheFiles().Find(kDefaultLog);
    ASSERT_TRUE(log && log->security);
    EXPECT_NE(machine::ToSddl(*log->security).find(";;;WD)"), std::string::npos) << machine::ToSddl(*log->security);
}

TEST_F(Log, WithoutRotationItAppends) {
    machine::TheFiles().Write(kDefaultLog, "former\r\n");
    Start("WriteLogfile=1\r\n");
    WriteLog(1, "appended");
    EXPECT_EQ(Text().find("former\r\n"), 0u);
    EXPECT_NE(Text().find("appended"), std::string::npos);
    EXPECT_FALSE(Exists(kDefaultBackup));
}

TEST_F(Log, ABackupThatCannotBeDeletedIsRenamedAndDeletedThen) {
    machine::TheFiles().Write(kDefaultLog, "former\r\n");
    machine::TheFiles().Write(kDefaultBackup, "held\r\n");
    machine::AddFault({.call = "DeleteFileA", .on = "*_bak.log", .error = ERROR_ACCESS_DENIED, .times = 1});
    Start("WriteLogfile=1\r\n", /*rotate=*/1);
    EXPECT_EQ(Text(kDefaultBackup), "former\r\n");
    EXPECT_FALSE(Exists("C:\\_Quillmarch_bak.log_1"));
}

TEST_F(Log, ANameThatGivesNoBackupNameIsNeverLost) {
    const std::string tooLong = "C:\\Prog\\" + std::string(245, 'n') + ".log"; // with "_bak" no path any more
    for (const std::string& name : {std::string("C:\\Prog\\quill.txt"), tooLong}) {
        machine::TheFiles().Write(name, "former\r\n");
        machine::TheFiles().Write(name + "_bak", "not ours");
        Start("WriteLogfile=1\r\nLogfile=" + name + "\r\n", /*rotate=*/1);
        ASSERT_STREQ(g_Log.LogFileName, name.c_str());
        WriteLog(1, "appended");
        EXPECT_EQ(Text(name.c_str()).find("former\r\n"), 0u) << name;
        EXPECT_NE(Text(name.c_str()).find("appended"), std::string::npos) << name;
        EXPECT_EQ(Text((name + "_bak").c_str()), "not ours");
        LogFile_Exit();
    }
}

TEST_F(Log, FollowsTheSettingsWhileItRuns) {
    Start("LogLevel=3\r\n");
    EXPECT_FALSE(Exists(kDefaultLog));
    Settings("LogLevel=2\r\nWriteLogfile=1\r\n");
    LogFile_ReadSettings();
    WriteLog(3, "too detailed");
    WriteLog(2, "switched on");
    EXPECT_NE(Text().find("switched on"), std::string::npos);
    EXPECT_EQ(Text().find("too detailed"), std::string::npos);
    Sleep(60);
    EXPECT_TRUE(MoveFileA(kDefaultLog, "C:\\moved.log")) << "the file is closed when idle, err " << GetLastError();
    Settings("LogLevel=2\r\nWriteLogfile=1\r\nLogfile=other.log\r\n");
    LogFile_ReadSettings();
    WriteLog(2, "elsewhere");
    EXPECT_NE(Text("C:\\Prog\\other.log").find("elsewhere"), std::string::npos);
    Settings("LogLevel=2\r\nWriteLogfile=0\r\n");
    LogFile_ReadSettings();
    WriteLog(2, "still on");
    EXPECT_NE(Text("C:\\Prog\\other.log").find("still on"), std::string::npos);
    Settings("LogLevel=0\r\n");
    LogFile_ReadSettings();
    WriteLog(1, "silent");
    EXPECT_EQ(Text("C:\\Prog\\other.log").find("silent"), std::string::npos);
}

TEST_F(Log, AFolderWithoutAccessLeavesTheProcessWithoutALog) {
    machine::AddFault({.call = "CreateFileA", .on = "*_Quillmarch.log", .error = ERROR_ACCESS_DENIED, .times = 0});
    const DWORD start = GetTickCount();
    Start("WriteLogfile=1\r\n");
    WriteLog(1, "nowhere");
    EXPECT_EQ(GetTickCount() - start, 0u) << "nothing is tried again";
    EXPECT_FALSE(Exists(kDefaultLog));
}

TEST_F(Log, AFileThatCannotBeMadeIsGivenUpAfterAHundredAttempts) {
    machine::AddFault({.call = "CreateFileA", .on = "*_Quillmarch.log", .error = ERROR_SHARING_VIOLATION, .times = 0});
    int creations = 0;
    machine::WatchCalls([&](const char* name, const char* object) {
        creations += std::string_view(name) == "CreateFileA" && std::string_view(object).ends_with("_Quillmarch.log");
    });
    Start("WriteLogfile=1\r\nLogLevel=1\r\n");
    machine::WatchCalls({});
    EXPECT_EQ(creations, 100 + 20) << "the attempts, and those of the fatal line's own record";
}

TEST_F(Log, AFatalStopNamesItsPlaceAndWaits) {
    Start("WriteLogfile=1\r\n");
    const DWORD start = GetTickCount();
    FATAL_SOFT_AT("CService", 77, "CService::Run");
    EXPECT_EQ(GetTickCount() - start, 100u);
    EXPECT_NE(Text().find("<1> INT3 in .\\CService line 77, function CService::Run\r\n"), std::string::npos) << Text();
}

} // namespace
