// The log: what the settings switch on, how a record reads, when the file rotates, closes and gives up.
#include "tests/harness/Harness.h"

#include "simwin/files/Files.h"
#include "simwin/kernel/Call.h"
#include "support/log/LogFile.h"
#include "support/system/ProcessState.h"
#include "support/texts/BoundedText.h"

#include <regex>

constexpr char Ini[] = "C:\\Prog\\Quillmarch.INI";
constexpr char DefaultLog[] = "C:\\_Quillmarch.log";
constexpr char DefaultBackup[] = "C:\\_Quillmarch_bak.log";

namespace {
class Log : public testing::Test {
protected:
    void SetUp() override {
        machine::TheFiles().MakeFolder("C:\\Prog");
        CopyText(szWindowsDir, "C:\\Windows");
        CopyText(szExeDir, "C:\\Prog");
        CopyText(szIniFile, Ini);
        g_Mode = ModeService;
    }

    static void Settings(const std::string& lines) { machine::TheFiles().Write(Ini, "[Settings]\r\n" + lines); }
    static void Start(const std::string& lines = "WriteLogfile=1\r\n", int rotate = 0) {
        Settings(lines);
        LogFile_Init(rotate);
    }
    static std::string Text(const char* file = DefaultLog) {
        return machine::TheFiles().Read(file).value_or("(no file)");
    }
    static bool Has(const std::string& text, const char* file = DefaultLog) {
        return Text(file).find(text) != std::string::npos;
    }
    static bool IsOpenOfTheLog(const char* name, const char* object) {
        return std::string_view(name) == "CreateFileA" && std::string_view(object).ends_with("_Quillmarch.log");
    }
};
} // namespace

TEST_F(Log, SettingsSwitchItOn) {
    using Row = std::tuple<const char*, LONG, DWORD, DWORD, const char*>;
    for (const auto& [lines, level, file, debugger, name] :
         {Row{"", 3, 0, 0, ""}, Row{"LogLevel=12\r\nWriteLogfile=1\r\n", 1, 1, 0, DefaultLog},
          Row{"LogLevel=x\r\nWriteLogfile=1\r\nWriteDebugOutput=1\r\n", 0, 0, 0, ""},
          Row{"LogLevel=0\r\nWriteLogfile=1\r\n", 0, 0, 0, ""}, Row{"WriteLogfile=yes\r\n", 3, 0, 0, DefaultLog},
          Row{"WriteLogfile=1\r\nLogfile=own.log\r\n", 3, 1, 0, "C:\\Prog\\own.log"},
          Row{"WriteLogfile=1\r\nLogfile=\"C:\\Prog\\a b.log\"\r\n", 3, 1, 0, "C:\\Prog\\a b.log"},
          Row{"WriteLogfile=1\r\nLogfile=C:\\Nowhere\\own.log\r\n", 3, 1, 0, DefaultLog},
          Row{"WriteDebugOutput=\r\n", 3, 0, 1, ""}, Row{"WriteDebugOutput=00\r\n", 3, 0, 0, ""}}) {
        SCOPED_TRACE(lines);
        g_log = {};
        Start(lines);
        EXPECT_EQ(g_log.LogLevel, level);
        EXPECT_EQ(g_log.WriteLogfile, file);
        EXPECT_EQ(g_log.WriteDebugOutput, debugger);
        EXPECT_STREQ(g_log.LogFileName, name);
        LogFile_Exit();
    }
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
    EXPECT_FALSE(Has("two"));
    EXPECT_TRUE(std::regex_search(Text(), std::regex(R"(\( 100\) \{\d{4}\} <3> three)"))) << Text();
    LogFile_Exit();
    WriteLog(1, "after the end");
    EXPECT_TRUE(Text().ends_with("<1> last log output\r\n")) << Text();
}

TEST_F(Log, ALongRecordIsCutAndStillEndsItsLine) {
    Start();
    const std::string half(600, 'x');
    WriteLog(1, "%s%s", half.c_str(), half.c_str());
    WriteLog(1, "next");
    const size_t end = Text().find("\r\n");
    EXPECT_LE(end + 2, 1024u);
    EXPECT_GT(end, 1000u);
    EXPECT_NE(Text().find("<1> next", end), std::string::npos);
}

TEST_F(Log, KeepsTheCallersLastErrorUnlessTheFileCannotBeOpened) {
    Start();
    SetLastError(0xDEAD);
    WriteLog(1, "one");
    EXPECT_EQ(GetLastError(), 0xDEADu);
    Sleep(200); // the file is closed by now
    machine::TheFiles().Refuse(DefaultLog, "*");
    WriteLog(1, "two");
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    EXPECT_FALSE(Has("two"));
}

TEST_F(Log, TheFileIsLeftToOthersFiftyMillisecondsAfterTheLastRecord) {
    Start();
    for (int i = 0; i < 5; ++i) {
        WriteLog(1, "burst %i", i);
        Sleep(30);
    }
    EXPECT_FALSE(MoveFileA(DefaultLog, "C:\\taken.log"));
    Sleep(60);
    EXPECT_TRUE(MoveFileA(DefaultLog, "C:\\taken.log"));
    WriteLog(1, "later");
    EXPECT_TRUE(Has("later"));
    EXPECT_FALSE(Has("burst"));
}

TEST_F(Log, WaitsAShortTimeForAWriterThatDoesNotShare) {
    Start();
    HANDLE holder = CreateFileA(DefaultLog, GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(holder, INVALID_HANDLE_VALUE);
    const DWORD start = GetTickCount();
    WriteLog(1, "lost");
    EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION);
    EXPECT_GE(GetTickCount() - start, 190u);
    EXPECT_LE(GetTickCount() - start, 200u);
    CloseHandle(holder);
    WriteLog(1, "kept");
    EXPECT_FALSE(Has("lost"));
    EXPECT_TRUE(Has("kept"));
}

// Everybody may open the log, so a program that holds it unshared must not slow the service down.
TEST_F(Log, OneWhoKeepsTheFileCostsAttemptsOnlyEveryFiveSeconds) {
    Start();
    HANDLE holder = CreateFileA(DefaultLog, GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(holder, INVALID_HANDLE_VALUE);
    const auto cost = [] {
        const DWORD start = GetTickCount();
        WriteLog(1, "lost");
        return GetTickCount() - start;
    };
    EXPECT_GE(cost(), 190u);
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(cost(), 0u);
    }
    Sleep(4900);
    EXPECT_EQ(cost(), 0u);
    Sleep(200);
    EXPECT_GE(cost(), 190u);
    EXPECT_EQ(cost(), 0u);
    CloseHandle(holder);
    WriteLog(1, "kept");
    EXPECT_TRUE(Has("kept"));
    Sleep(100);
    holder = CreateFileA(DefaultLog, GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_GE(cost(), 190u) << "the next holder may be one of a moment";
    CloseHandle(holder);
}

// An oplock that its holder never gives up. The second open of the log is the first record's.
TEST_F(Log, AnOpenThatNeverComesBackCostsOneRecordItsWait) {
    machine::AddFault({.call = "CreateFileA", .on = DefaultLog, .delayMs = 3600000, .after = 1, .times = 1});
    Start();
    const DWORD start = GetTickCount();
    for (int i = 0; i < 1000; ++i) {
        WriteLog(1, "lost");
    }
    EXPECT_EQ(GetTickCount() - start, 190u);
    Sleep(3600000);
    WriteLog(1, "kept");
    EXPECT_TRUE(Has("<1> kept\r\n")) << Text();
    EXPECT_FALSE(Has("lost"));
}

// Whoever may write the log's folder could let the service write to any file through it.
TEST_F(Log, NothingIsWrittenThroughALink) {
    CopyText(szSystemDir, "C:\\Windows\\system32");
    const char target[] = "C:\\Secret\\target.log", backup[] = "C:\\Secret\\target_bak.log";
    const auto tryPath = [&](const std::string& path, int rotate = 0) {
        Start("WriteLogfile=1\r\nLogfile=" + path + "\r\n", rotate);
        WriteLog(1, "of the service");
        const bool isOn = g_log.WriteLogfile && g_log.LogFileName == path;
        LogFile_Exit();
        return isOn;
    };
    machine::FileNode* file = machine::TheFiles().Write(target, "");
    machine::TheFiles().MakeFolder("C:\\Logs");
    EXPECT_TRUE(tryPath("C:\\Logs\\own.log"));
    machine::TheFiles().Write("C:\\Logs\\link.log", "")->link = target;
    EXPECT_FALSE(tryPath("C:\\Logs\\link.log"));
    machine::TheFiles().MakeFolder("C:\\Junction")->link = "C:\\Secret";
    machine::TheFiles().Write(backup, "not ours");
    EXPECT_FALSE(tryPath("C:\\Junction\\target.log", /*rotate=*/1));
    EXPECT_EQ(Text(backup), "not ours") << "nor is anything deleted";
    file->names = 2;
    EXPECT_FALSE(tryPath(target));
    EXPECT_EQ(Text(target), "");
    file->names = 1;
    machine::AddFault({.call = "GetFileInformationByHandle", .on = "*", .error = ERROR_GEN_FAILURE, .times = 1});
    EXPECT_TRUE(tryPath("C:\\Logs\\own.log")) << "one question without an answer loses one record";
}

TEST_F(Log, AStartThatRotatesKeepsOneBackup) {
    machine::TheFiles().Write(DefaultLog, "former\r\n");
    machine::TheFiles().Write(DefaultBackup, "oldest\r\n");
    machine::AddFault({.call = "DeleteFileA", .on = "*_bak.log", .error = ERROR_ACCESS_DENIED, .times = 1});
    Start("WriteLogfile=1\r\n", /*rotate=*/1);
    EXPECT_EQ(Text(DefaultBackup), "former\r\n");
    EXPECT_FALSE(machine::TheFiles().Exists("C:\\_Quillmarch_bak.log_1")) << "renamed, and deleted then";
    EXPECT_EQ(Text(), "");
    const machine::FileNode* log = machine::TheFiles().Find(DefaultLog);
    ASSERT_TRUE(log && log->security);
    EXPECT_NE(machine::ToSddl(*log->security).find(";;;WD)"), std::string::npos) << machine::ToSddl(*log->security);
}

// Deleted or renamed while an oplock is never answered: the start waits a second, and what hangs changes nothing
// later.
TEST_F(Log, ARotationThatNeverComesBackIsGivenUp) {
    for (const auto& [call, file] : {std::pair{"DeleteFileA", DefaultBackup}, std::pair{"MoveFileA", DefaultLog}}) {
        machine::TheFiles().Write(DefaultLog, "former\r\n");
        machine::TheFiles().Write(DefaultBackup, "oldest\r\n");
        machine::AddFault({.call = call, .on = file, .delayMs = 3600000, .times = 1});
        const DWORD start = GetTickCount();
        Start("WriteLogfile=1\r\n", /*rotate=*/1);
        EXPECT_EQ(GetTickCount() - start, 1000u) << call;
        EXPECT_TRUE(Text().starts_with("former\r\n") && Has("could not be kept")) << Text();
        LogFile_Exit();
        Sleep(3600000);
    }
}

TEST_F(Log, ANameThatGivesNoBackupNameIsNeverLost) {
    const std::string tooLong = "C:\\Prog\\" + std::string(245, 'n') + ".log"; // with "_bak" no path any more
    for (const std::string& name : {std::string("C:\\Prog\\quill.txt"), tooLong}) {
        machine::TheFiles().Write(name, "former\r\n");
        machine::TheFiles().Write(name + "_bak", "not ours");
        Start("WriteLogfile=1\r\nLogfile=" + name + "\r\n", /*rotate=*/1);
        WriteLog(1, "appended");
        EXPECT_EQ(Text(name.c_str()).find("former\r\n"), 0u) << name;
        EXPECT_TRUE(Has("appended", name.c_str())) << name;
        EXPECT_EQ(Text((name + "_bak").c_str()), "not ours");
        LogFile_Exit();
    }
}

TEST_F(Log, FollowsTheSettingsWhileItRuns) {
    const auto change = [](const char* lines) {
        Settings(lines);
        LogFile_ReadSettings();
    };
    constexpr char Other[] = "C:\\Prog\\other.log";
    Start("LogLevel=3\r\n");
    EXPECT_EQ(Text(), "(no file)");
    change("LogLevel=2\r\nWriteLogfile=1\r\n");
    WriteLog(3, "too detailed");
    WriteLog(2, "switched on");
    EXPECT_TRUE(Has("switched on"));
    EXPECT_FALSE(Has("too detailed"));
    change("LogLevel=2\r\nWriteLogfile=1\r\nLogfile=other.log\r\n");
    WriteLog(2, "elsewhere");
    change("LogLevel=2\r\nWriteLogfile=0\r\n");
    WriteLog(2, "still on");
    change("LogLevel=0\r\n");
    WriteLog(1, "silent");
    EXPECT_FALSE(Has("elsewhere"));
    EXPECT_TRUE(Has("elsewhere", Other));
    EXPECT_TRUE(Has("still on", Other));
    EXPECT_FALSE(Has("silent", Other));
}

TEST_F(Log, AFileThatCannotBeMadeIsGivenUpAfterAHundredAttempts) {
    machine::AddFault({.call = "CreateFileA", .on = "*_Quillmarch.log", .error = ERROR_SHARING_VIOLATION, .times = 0});
    int creations = 0;
    machine::WatchCalls([&](const char* name, const char* object) { creations += IsOpenOfTheLog(name, object); });
    Start("WriteLogfile=1\r\nLogLevel=1\r\n");
    machine::WatchCalls({});
    EXPECT_EQ(creations, 100 + 20) << "the attempts, and those of the fatal line's own record";
}

TEST_F(Log, AFileThatAnotherProcessMakesMeanwhileIsKept) {
    machine::WatchCalls([&](const char* name, const char* object) {
        if (IsOpenOfTheLog(name, object)) {
            machine::WatchCalls({});
            machine::TheFiles().Write(DefaultLog, "of the other\r\n");
        }
    });
    Start();
    WriteLog(1, "of this one");
    EXPECT_EQ(Text().find("of the other\r\n"), 0u);
    EXPECT_TRUE(Has("of this one\r\n"));
    EXPECT_FALSE(Has("creating log err"));
}

TEST_F(Log, AFatalStopNamesItsPlaceAndWaits) {
    Start();
    const DWORD start = GetTickCount();
    FATAL_SOFT_AT("CService", 77, "CService::Run");
    EXPECT_EQ(GetTickCount() - start, 100u);
    EXPECT_TRUE(Has("<1> INT3 in .\\CService line 77, function CService::Run\r\n")) << Text();
}
