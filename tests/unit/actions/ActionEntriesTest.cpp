// The entries of an action section, and the command line between the service and its copy in execute mode.
#include "actions/ActionEntries.h"
#include "actions/ExecuteMode.h"
#include "support/system/OsVersion.h"
#include "support/texts/CommandLine.h"
#include "tests/unit/config/ConfigOnMachine.h"

#include "simwin/kernel/Process.h"

using namespace configtest;

TEST(ActionEntries, WordsAndTimes) {
    struct Row {
        const char* keys;
        WORD show;
        DWORD delayMs;
    };
    const Row rows[] = {Row{"", ShowNotConfigured, 0},
                        Row{"WindowStyle3=\nOpenStyle3=Maximized\n", 3, 0},
                        Row{"WindowStyle3=MINIMIZED\nOpenStyle3=max\n", 7, 0},
                        Row{"WindowStyle3=NoActivate\n", 4, 0},
                        Row{"WindowStyle3=na\n", 4, 0},
                        Row{"WindowStyle3=hidden\n", 0, 0},
                        Row{"WindowStyle3=maxmin\n", 7, 0}, // the order of the words, not that of the text
                        Row{"WindowStyle3=else\ndelay3=1m\n", 1, 60000},
                        Row{"delay3=1000\n", ShowNotConfigured, 1000},
                        Row{"delay3=24h\n", ShowNotConfigured, 86400000},
                        Row{"delay3=86400001\n", ShowNotConfigured, 86400000},
                        Row{"delay3=30d\n", ShowNotConfigured, 86400000},
                        Row{"delay3=-5\n", ShowNotConfigured, 0}};
    for (const auto& row : rows) {
        UseIni("[OnArrival7]\nopen3=x.exe\n" + std::string(row.keys) + "open=last\nmd5= A B\tc \n");
        OpenParams params;
        EXPECT_EQ(GetOpenParamsByCfgSection(OnArrival, 7, &params, 1), 0);
        ASSERT_EQ(GetOpenParamsByCfgSection(OnArrival, 7, &params, 3), 1) << row.keys;
        EXPECT_EQ(params.ShowWindow, row.show) << row.keys;
        EXPECT_EQ(params.Delay, row.delayMs) << row.keys;
        EXPECT_EQ(params.Force, 0) << "before Windows 6.0";
        EXPECT_EQ(params.userType, UserType::normal);
        g_os.MajorVersion = 6;
        ASSERT_EQ(GetOpenParamsByCfgSection(OnArrival, 7, &params, 10), 1);
        EXPECT_EQ(params.Force, 1);
        g_os.MajorVersion = 5;
        EXPECT_STREQ(params.szOpen, "last");
        EXPECT_STREQ(params.szMd5, "abc");
    }
}

TEST(ExecuteLine, TheCopyStartsWhatWasSent) {
    const struct {
        const char *exe, *params, *started;
    } rows[] = {
        {"C:\\t.exe", "", "C:\\t.exe"},
        {"C:\\t.exe", "/a \"b c\"", "C:\\t.exe /a \"b c\""},
        {"C:\\my t.exe", "-exec=\"C:\\evil.exe\" -wait=1 -params=x",
         "\"C:\\my t.exe\" -exec=\"C:\\evil.exe\" -wait=1 -params=x"},
        {"C:\\t.exe", "\"-dir=D:\\\"", "C:\\t.exe \"-dir=D:\\\""},
        {"C:\\t.exe", "\" unclosed -windownumber=9", "C:\\t.exe \" unclosed -windownumber=9"},
        // Named like the program itself, in quotes and without.
        {"C:\\my t.exe", "\"c:\\MY t.exe\"", "\"C:\\my t.exe\" \"c:\\MY t.exe\""},
        {"C:\\t.exe", "C:\\t.exe /x", "C:\\t.exe C:\\t.exe /x"},
        {"C:\\t.exe", "C:\\t.exe.bak", "C:\\t.exe C:\\t.exe.bak"},
    };
    for (const auto& row : rows) {
        OpenParams params = {};
        CopyText(params.szExe, row.exe);
        CopyText(params.szParams, row.params);
        CopyText(params.szWorkDir, "C:\\my dir\\");
        char sent[MaxExecuteLine];
        BuildExecuteLine(params, /*wait=*/false, 12, sent);
        machine::CurrentProcess()->commandLine = std::string("q.exe ") + sent;
        char* tokens[8] = {};
        LONG count = 0;
        TokenizeCommandLine(&count, tokens);
        ExecuteRequest request;
        char directory[MAX_PATH] = "";
        ReadExecuteRequest(count, tokens, GetCommandLineA(), &request, directory);
        char started[MaxProcessLine];
        BuildRequestLine(request, started);
        EXPECT_STREQ(request.program, row.exe);
        EXPECT_STREQ(started, row.started);
        EXPECT_STREQ(directory, "C:\\my dir\\");
        EXPECT_FALSE(request.wait);
    }
}
