// Command lines of actions: which program they name, with which parameters, and that a device's own name changes
// neither the program nor the number of arguments.
#include "actions/CommandSplit.h"

#include "simwin/shell/Shell.h"

#include "actions/ProcessCreation.h"
#include "actions/ProgramLauncher.h"
#include "inventory/ports/CComPorts.h"
#include "support/texts/StringTools.h"
#include "tests/unit/Log.h"

#include <gtest/gtest.h>

constexpr const char* Notepad = "C:\\Windows\\notepad.exe";
constexpr const char* Python = "C:\\Python\\python.exe";
constexpr const char* Tool = "C:\\Tools\\x.exe";
constexpr const char* Foo = "C:\\Program Files\\Foo Bar\\x.exe";

namespace {
struct Disk : testing::Test {
    void SetUp() override {
        CopyText(szWindowsDir, "C:\\Windows");
        for (const char* file :
             {Notepad, Python, Tool, Foo, "C:\\Tools\\y.COM", "C:\\Tools\\run.cmd", "C:\\Work\\local.exe",
              "C:\\Work\\note.txt", "C:\\Data\\log.txt", "C:\\Data\\my log.txt", "C:\\Data\\none.zzz",
              "C:\\Scripts\\port.py", "C:\\My Scripts\\all ports.py", "C:\\Windows\\System32\\cmd.exe"}) {
            machine::TheFiles().Write(file, "MZ");
        }
        machine::SetAssociation(".txt", Notepad);
        machine::SetAssociation(".py", Python);
    }
    char exe[MAX_PATH], params[MaxProgramParams];
};
} // namespace

// The result of a split line: the command line of the program itself, and that of the copy which starts it.
static void ExpectLaunch(const char* exe, const char* params) {
    const std::string tail = *params ? std::string(" ") + params : "";
    char line[MaxProcessLine], copyLine[MaxExecuteLine];
    BuildProcessLine(exe, params, line);
    EXPECT_EQ(line, (StrChrA(exe, ' ') ? "\"" + std::string(exe) + "\"" : std::string(exe)) + tail);
    OpenParams open = {};
    CopyText(open.szExe, exe);
    CopyText(open.szParams, params);
    CopyText(open.szWorkDir, "C:\\Work");
    BuildExecuteLine(open, /*wait=*/true, /*windowNumber=*/7, copyLine);
    // The copy takes parameters that begin with the program for a whole line, so then it gets one.
    const std::string passed = BeginsWithProgram(params, exe) ? line : params;
    EXPECT_EQ(copyLine,
              "-exec=\"" + std::string(exe) + "\" -dir=\"C:\\Work\" -wait=1 -windownumber=7 -params=" + passed);
}

TEST_F(Disk, ALineNamesAProgramAndItsParameters) {
    struct Row {
        const char *line, *exe, *params; // a null exe: the line cannot be split
    };
    const Row rows[] = {
        // Programs, with and without quotes and parameters.
        Row{"C:\\Tools\\x.exe", Tool, ""}, Row{"  C:\\Tools\\x.exe\t", Tool, ""}, Row{"\"C:\\Tools\\x.exe\"", Tool, ""},
        Row{"C:\\Tools\\x.exe /a /b", Tool, "/a /b"}, Row{"C:\\Tools\\x.exe  /a", Tool, " /a"},
        Row{"\"C:\\Tools\\x.exe\" /a \"b c\"", Tool, "/a \"b c\""},
        Row{"C:\\Tools\\x.exe \"\" %NoSuchName%", Tool, "\"\" %NoSuchName%"},
        Row{"C:\\TOOLS\\X.EXE -exec=y", Tool, "-exec=y"}, Row{"C:\\Tools\\y.com 1", "C:\\Tools\\y.COM", "1"},
        Row{"C:\\Tools\\.\\sub\\..\\x.exe q", Tool, "q"},
        // Blanks in the path.
        Row{"C:\\Program Files\\Foo Bar\\x.exe", Foo, ""}, Row{"C:\\Program Files\\Foo Bar\\x.exe /a /b", Foo, "/a /b"},
        Row{"\"C:\\Program Files\\Foo Bar\\x.exe\"", Foo, ""},
        Row{"\"C:\\Program Files\\Foo Bar\\x.exe\" /a /b", Foo, "/a /b"},
        Row{"C:\\Program Files\\Foo Bar\\x.exe \"C:\\Program Files\\Foo Bar\\x.exe\"", Foo,
            "\"C:\\Program Files\\Foo Bar\\x.exe\""},
        Row{"C:\\Program Files\\Foo Bar\\gone.exe /a", nullptr, ""},
        // Names without a folder, and relative ones, below the directory of the call.
        Row{"notepad.exe", Notepad, ""}, Row{"notepad.exe C:\\a.txt", Notepad, "C:\\a.txt"},
        Row{"local.exe /x", "C:\\Work\\local.exe", "/x"}, Row{".\\local.exe", "C:\\Work\\local.exe", ""},
        Row{"..\\Tools\\x.exe 1", Tool, "1"}, Row{"\\Tools\\x.exe 1", Tool, "1"},
        Row{"note.txt", Notepad, "\"C:\\Work\\note.txt\""},
        // Variables, in the program's path alone.
        Row{"%windir%\\notepad.exe %windir%", Notepad, "%windir%"}, Row{"\"%windir%\\notepad.exe\" a", Notepad, "a"},
        Row{"%NoSuchName%\\notepad.exe", nullptr, ""},
        // Documents.
        Row{"C:\\Data\\log.txt", Notepad, "\"C:\\Data\\log.txt\""},
        Row{"\"C:\\Data\\log.txt\"", Notepad, "\"C:\\Data\\log.txt\""},
        Row{"C:\\Data\\my log.txt", Notepad, "\"C:\\Data\\my log.txt\""},
        Row{"C:\\Data\\my log.txt /p", Notepad, "\"C:\\Data\\my log.txt\" /p"},
        Row{"C:\\Scripts\\port.py COM7", Python, "\"C:\\Scripts\\port.py\" COM7"},
        Row{"\"C:\\My Scripts\\all ports.py\" COM7", Python, "\"C:\\My Scripts\\all ports.py\" COM7"},
        Row{"C:\\My Scripts\\all ports.py COM7 \"a b\"", Python, "\"C:\\My Scripts\\all ports.py\" COM7 \"a b\""},
        Row{"C:\\Data\\none.zzz", nullptr, ""}, Row{"C:\\Data\\none.zzz /a", nullptr, ""},
        Row{"C:\\Tools\\run.cmd a", "C:\\Tools\\run.cmd", "a"},
        // Folders and missing files.
        Row{"C:\\Data", nullptr, ""}, Row{"C:\\Data x", nullptr, ""}, Row{"C:\\Tools\\gone.exe", nullptr, ""},
        Row{"C:\\Tools\\gone.exe /a", nullptr, ""}, Row{"Q:\\x.exe", nullptr, ""},
        Row{"\"C:\\Tools\\x.exe /a", nullptr, ""}, Row{"", nullptr, ""}, Row{" \t ", nullptr, ""},
        Row{"\"\"", nullptr, ""}};
    static_assert(sizeof(rows) / sizeof(rows[0]) >= 40);
    for (const auto& row : rows) {
        EXPECT_EQ(SplitCommandLine(row.line, "C:\\Work", exe, params), row.exe ? 1 : 0) << row.line;
        EXPECT_TRUE(lstrcmpiA(exe, row.exe ? row.exe : "") == 0) << row.line << " gave " << exe;
        EXPECT_STREQ(params, row.params) << row.line;
        if (row.exe) {
            ExpectLaunch(exe, params);
        }
    }
    char directory[MAX_PATH];
    GetCurrentDirectoryA(sizeof(directory), directory);
    EXPECT_STREQ(directory, "C:\\Windows");
    EXPECT_EQ(SplitCommandLine("C:\\Tools\\x.exe 1", nullptr, exe, params), 1);
}

TEST_F(Disk, LongLines) {
    const std::string walked = std::string(Foo) + " ", plain = std::string(Tool) + " ";
    const auto filled = [](const std::string& start, size_t length) {
        return start + std::string(length - start.size(), 'p');
    };
    const struct {
        std::string line;
        int isSplit;
    } rows[] = {
        {filled(walked, 1023), 1},
        {filled(walked, 1024), 0}, // the path is only found by looking at each blank
        {filled(plain, 1024), 1},
        {filled(plain, 2048), 1},
        {filled(plain, 2049), 0},
        {filled("C:\\Scripts\\port.py ", 2045), 1}, // 2026 characters after a quoted name of 20 and a blank
        {filled("C:\\Scripts\\port.py ", 2046), 0},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(SplitCommandLine(row.line.c_str(), "", exe, params), row.isSplit) << row.line.size();
        if (row.isSplit) {
            const bool isDocument = params[0] == '"';
            EXPECT_TRUE(row.line.ends_with(params + (isDocument ? 21 : 0)));
            EXPECT_EQ(TextLength(params), isDocument ? row.line.size() + 2 : row.line.size() - 1 - TextLength(exe));
        }
    }
}

// The arguments as the run-time library of a program takes them apart.
static std::vector<std::string> ArgumentsOf(const char* line) {
    std::vector<std::string> arguments;
    bool isQuoted = false, isInside = false;
    for (size_t slashes = 0; *line; ++line) {
        if ((*line == ' ' || *line == '\t') && !isQuoted) {
            isInside = false;
            continue;
        }
        if (!isInside) {
            arguments.emplace_back();
        }
        isInside = true;
        slashes = *line == '\\' ? slashes + 1 : slashes;
        if (*line == '"') {
            arguments.back().resize(arguments.back().size() - (slashes + 1) / 2);
            if (slashes % 2 == 0) {
                isQuoted = !isQuoted;
            }
        }
        if (*line != '"' || slashes % 2 == 1) {
            arguments.back() += *line;
        }
        slashes = *line == '\\' ? slashes : 0;
    }
    return arguments;
}

TEST_F(Disk, NoNameOfADeviceBreaksOut) {
    const std::string long127(127, '"'), slashes(127, '\\');
    const struct {
        const char *name, *argument, *inScript;
    } rows[] = {
        {"Quad Port", "Quad Port", nullptr},
        {"a\" b", "a' b", nullptr},
        {"\" /admin \"", "' /admin '", nullptr},
        {"ends\\", "ends\\", nullptr},
        {"ends\\\\", "ends\\\\", nullptr},
        {"\\\" x", "\\' x", nullptr},
        {"\" -exec=\"C:\\evil.exe", "' -exec='C:\\evil.exe", nullptr},
        {"-params=/x", "-params=/x", nullptr},
        {"C:\\Tools\\x.exe", "C:\\Tools\\x.exe", nullptr},
        {"\"C:\\Tools\\x.exe\"", "'C:\\Tools\\x.exe'", nullptr},
        {"&calc", "&calc", " calc"},
        {"\"&calc&\"", "'&calc&'", "' calc '"},
        {"a|b<c>d", "a|b<c>d", "a b c d"},
        {"^&!x!", "^&!x!", "   x "},
        {"%PATH%", "%PATH%", " PATH "},
        {"%ComPortNumber%", "%ComPortNumber%", " ComPortNumber "}, // its row has been used by then
        {"line\r\nend", "line  end", nullptr},
        {"\t\x01\x7F", "   ", nullptr},
        {"x\\..\\..\\Tools\\x.exe", "x\\..\\..\\Tools\\x.exe", nullptr},
        {"", "", nullptr},
        {long127.c_str(), nullptr, nullptr},
        {slashes.c_str(), slashes.c_str(), nullptr},
    };
    CComPort port;
    port.BusTypeName = "";
    const std::string single(127, '\'');
    for (const auto& row : rows) {
        CopyText(port.FriendlyName, row.name);
        const std::string argument = row.argument ? row.argument : single;
        const std::string inScript = row.inScript ? row.inScript : argument;
        for (const auto& [line, program, document] :
             {std::tuple{"C:\\Tools\\x.exe", Tool, ""}, std::tuple{"C:\\Program Files\\Foo Bar\\x.exe", Foo, ""},
              std::tuple{"C:\\Scripts\\port.py", Python, "C:\\Scripts\\port.py"},
              std::tuple{"C:\\Tools\\run.cmd", "C:\\Tools\\run.cmd", ""}}) {
            const std::string value = std::string(program).ends_with("cmd") ? inScript : argument;
            std::vector<std::string> expected = {"/a", value, "C:\\" + value, value, "/b"};
            if (*document) {
                expected.insert(expected.begin(), document);
            }
            const std::string configured =
                std::string(line) + " /a \"%FriendlyName%\" \"C:\\%friendlyname%\" \"%FRIENDLYNAME%%Location%\" /b";
            ASSERT_EQ(SplitPortCommandLine(port, configured.c_str(), UserType::normal, "", exe, params), 1) << row.name;
            EXPECT_STREQ(exe, program);
            EXPECT_EQ(ArgumentsOf(params), expected) << params;
        }
        // Not in quotes it may be several arguments, but never another program.
        ASSERT_EQ(SplitPortCommandLine(port, "C:\\Tools\\x.exe %FriendlyName%", UserType::system, "", exe, params), 1);
        EXPECT_STREQ(exe, Tool) << row.name;
    }
}

TEST_F(Disk, AValueInTheProgramPart) {
    machine::TheFiles().Write("C:\\Tools\\COM7.exe", "MZ");
    machine::TheFiles().Write("C:\\evil.exe", "MZ");
    const struct {
        const char *name, *line;
        UserType user;
        const char* exe; // null: nothing is started
    } rows[] = {
        {"COM7", "C:\\Tools\\%FriendlyName%.exe /a \"%DeviceID%\"", UserType::system, "C:\\Tools\\COM7.exe"},
        {"..\\evil", "C:\\Tools\\%FriendlyName%.exe", UserType::normal, "C:\\evil.exe"},
        {"..\\evil", "C:\\Tools\\%FriendlyName%.exe", UserType::system, nullptr},
        {"..\\evil", "\"C:\\Tools\\%FriendlyName%.exe\" /a", UserType::elev, nullptr},
        {"../evil", "C:\\Tools\\%FriendlyName%.exe", UserType::elev, nullptr},
        {"..", "C:\\Tools\\%FriendlyName%\\evil.exe", UserType::elev, nullptr},
        {".", "C:\\Tools\\%FriendlyName%%FriendlyName%\\evil.exe", UserType::elev, nullptr},
        {".\\.", "C:\\Tools\\%FriendlyName%\\evil.exe", UserType::system, nullptr},
        {"%SystemDrive%\\evil", "%FriendlyName%.exe", UserType::system, nullptr},
        {"x\\..\\..\\evil.exe", "C:\\Tools\\%PortName% %FriendlyName% /b", UserType::normal, "C:\\evil.exe"},
        {"x\\..\\..\\evil.exe", "C:\\Tools\\%PortName% %FriendlyName% /b", UserType::system, nullptr},
        {"run.cmd&", "C:\\Tools\\%FriendlyName%", UserType::normal, nullptr},
    };
    CComPort port;
    port.BusTypeName = "";
    CopyText(port.DeviceID, "USB\\VID_1&PID_2");
    for (const auto& row : rows) {
        CopyText(port.FriendlyName, row.name);
        EXPECT_EQ(SplitPortCommandLine(port, row.line, row.user, "", exe, params), row.exe ? 1 : 0) << row.line;
        EXPECT_STREQ(exe, row.exe ? row.exe : "") << row.line;
        if (row.exe && StrStrIA(row.line, "DeviceID")) {
            EXPECT_STREQ(params, "/a \"USB\\VID_1&PID_2\"");
        }
    }
}

TEST_F(Disk, PlaceholdersAndTheirLimits) {
    CComPort port;
    port.BusTypeName = "USB";
    CopyText(port.szPortName, "COM7");
    CopyText(port.PortNumberText, "7");
    CopyText(port.FriendlyName, "<%UsbPort%|%PortName%>");
    CopyText(port.UsbPort, "Hub 1-2");
    const struct {
        const char* text;
        size_t limit;
        const char* result;
    } rows[] = {
        {"%portNAME% %ComPort% %ComPortNumber%%PortNumber% %BusType%", 99, "COM7 COM7 77 USB"},
        {"%FriendlyName%", 99, "<Hub 1-2|%PortName%>"}, // the rows run in their order
        {"%Class%%Nothing% 5% %", 99, "%Nothing% 5% %"},
        {"%UsbPort%", 9, "Hub 1-2"},
        {"%PortName%%PortNumber%", 22, "COM77"},
        {"%BusType%%FriendlyName%", 31, "USB<Hub 1-2|%PortName%>"}, // the name is inserted while %BusType% is still
                                                                    // there
        {"%BusType%%FriendlyName%", 30, "USB%FriendlyName%"},
        {"%FriendlyName%", 14, "%FriendlyName%"},
        {"\\%Location%\"x\" \\\"y\\\"", 99, "\\\\\"x\" \\\"y\\\""}, // text without a value stays
    };
    for (const auto& row : rows) {
        char text[100];
        CopyText(text, row.text);
        EXPECT_TRUE(ExpandPortVariables(port, text, row.limit, {})) << row.text;
        EXPECT_STREQ(text, row.result);
    }
    char text[100] = "%FriendlyName%\"";
    CopyText(port.FriendlyName, "0123456789012\\"); // as long as its placeholder
    EXPECT_FALSE(ExpandPortVariables(port, text, 15, {})) << "no room for the second backslash";
    EXPECT_STREQ(text, "");
}
