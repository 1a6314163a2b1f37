// The real Quillmarch.exe, started as a user starts it; its windows are read and answered from here. Each test has a
// copy of its own in a folder whose name has a blank.
#include "tests/windows/Patience.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <iterator>
#include <regex>
#include <string>
#include <vector>

static std::string ReadAll(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

static void WriteAll(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

namespace {
// A top-level window that shows, with what can be read from it.
struct Seen {
    HWND window = nullptr;
    std::string className, title;
    std::string text; // of its labels
};
} // namespace

static BOOL CALLBACK AddLabel(HWND child, LPARAM seen) {
    char className[64] = "", text[2048] = "";
    GetClassNameA(child, className, sizeof(className));
    if (lstrcmpiA(className, "Static") == 0 && GetDlgCtrlID(child) == 0xFFFF) {
        SendMessageA(child, WM_GETTEXT, sizeof(text), reinterpret_cast<LPARAM>(text));
        reinterpret_cast<Seen*>(seen)->text += text;
    }
    return TRUE;
}

namespace {
struct Search {
    const char* className;
    DWORD process;     // 0: of any
    const char* title; // a part of it; a window may get its title only after it shows
    Seen found;
};
} // namespace

static BOOL CALLBACK Look(HWND window, LPARAM parameter) {
    auto* search = reinterpret_cast<Search*>(parameter);
    DWORD process = 0;
    GetWindowThreadProcessId(window, &process);
    char className[64] = "", title[512] = "";
    GetClassNameA(window, className, sizeof(className));
    if (!IsWindowVisible(window) || (search->process && process != search->process) ||
        lstrcmpA(className, search->className) != 0) {
        return TRUE;
    }
    GetWindowTextA(window, title, sizeof(title));
    if (StrStrA(title, search->title) == nullptr) {
        return TRUE;
    }
    search->found = {window, className, title, ""};
    EnumChildWindows(window, AddLabel, reinterpret_cast<LPARAM>(&search->found));
    return FALSE;
}

// Waits for a window of the class. Returns: without a handle when none came.
static Seen WaitForWindow(const char* className, DWORD process, const char* title) {
    Search search = {className, process, title, {}};
    WaitUntil([&] { return !EnumWindows(Look, reinterpret_cast<LPARAM>(&search)) && search.found.window; });
    return search.found;
}

// Waits for the editor with the settings file, and closes it.
static void CloseEditor() {
    const Seen editor = WaitForWindow("Notepad", /*process=*/0, "Quillmarch.INI");
    ASSERT_NE(editor.window, nullptr) << "no editor has opened the file";
    PostMessageA(editor.window, WM_CLOSE, 0, 0);
    EXPECT_TRUE(WaitUntil([&] { return !IsWindow(editor.window); }));
}

namespace {
// One start of the program.
struct Started {
    HANDLE process = nullptr;
    DWORD id = 0;

    // Reads the one message box, presses OK. Returns: what was in it.
    Seen AnswerBox() const {
        const Seen box = WaitForWindow("#32770", id, "Quill-March-Ward");
        EXPECT_NE(box.window, nullptr) << "no message box came";
        PostMessageA(box.window, WM_COMMAND, IDOK, 0);
        return box;
    }
    // Waits for the end. Returns: the exit code.
    DWORD End() {
        DWORD code = 0xDEAD;
        EXPECT_EQ(WaitForSingleObject(process, PatienceMs), static_cast<DWORD>(WAIT_OBJECT_0));
        GetExitCodeProcess(process, &code);
        CloseHandle(process);
        process = nullptr;
        return code;
    }
};

class Executable : public testing::Test {
protected:
    void SetUp() override {
        char self[MAX_PATH], temp[MAX_PATH];
        GetModuleFileNameA(nullptr, self, sizeof(self));
        const std::string built = std::string(self).substr(0, std::string(self).rfind('\\')) + "\\Quillmarch.exe";
        ASSERT_NE(ExpandEnvironmentStringsA("%TEMP%", temp, sizeof(temp)), 0u);
        const std::string test = testing::UnitTest::GetInstance()->current_test_info()->name();
        m_folder = std::string(temp) + "\\Quillmarch " + test;
        CreateDirectoryA(m_folder.c_str(), nullptr);
        m_ini = m_folder + "\\Quillmarch.INI";
        m_log = m_folder + "\\trace.log";
        ASSERT_TRUE(CopyFileA(built.c_str(), Program().c_str(), /*failIfExists=*/FALSE)) << built << GetLastError();

        // Whatever a test starts ends with it.
        m_job = CreateJobObjectA(nullptr, nullptr);
        JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
        limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
        ASSERT_TRUE(SetInformationJobObject(m_job, JobObjectExtendedLimitInformation, &limits, sizeof(limits)));
    }
    void TearDown() override {
        TerminateJobObject(m_job, 1);
        CloseHandle(m_job);
    }

    std::string Program() const { return m_folder + "\\Quillmarch.exe"; }

    Started Start(const std::string& arguments, const std::string& program) {
        std::string line = "\"" + program + "\" " + arguments;
        STARTUPINFOA startup = {};
        startup.cb = sizeof(startup);
        PROCESS_INFORMATION started = {};
        const BOOL isStarted = CreateProcessA(program.c_str(), line.data(), nullptr, nullptr, FALSE, CREATE_SUSPENDED,
                                              nullptr, m_folder.c_str(), &startup, &started);
        EXPECT_TRUE(isStarted) << GetLastError();
        EXPECT_TRUE(AssignProcessToJobObject(m_job, started.hProcess));
        ResumeThread(started.hThread);
        CloseHandle(started.hThread);
        return {started.hProcess, started.dwProcessId};
    }
    Started Start(const std::string& arguments) { return Start(arguments, Program()); }

    void WriteLogSettings(int level) const {
        WriteAll(m_ini,
                 "[Settings]\r\nWriteLogFile=1\r\nLogFile=trace.log\r\nLogLevel=" + std::to_string(level) + "\r\n");
    }

    // The log's records: each line whole, in the form that the tag asks for. Returns: the messages.
    std::vector<std::string> Records(const std::string& tag) const {
        const std::string text = ReadAll(m_log);
        const std::regex form("[0-2]\\d:[0-5]\\d:[0-5]\\d\\.\\d \\([ \\d]{3}\\d\\) " + tag + " <[1-9]> ([^\\r\\n]*)");
        std::vector<std::string> messages;
        size_t start = 0;
        for (size_t end; (end = text.find("\r\n", start)) != std::string::npos; start = end + 2) {
            const std::string line = text.substr(start, end - start);
            std::smatch parts;
            EXPECT_TRUE(std::regex_match(line, parts, form)) << line;
            messages.push_back(parts.size() > 1 ? parts[1].str() : line);
        }
        EXPECT_EQ(start, text.size()) << "the last record is not whole";
        EXPECT_FALSE(messages.empty());
        return messages;
    }

    std::string m_folder, m_ini, m_log;
    HANDLE m_job = nullptr;
};
} // namespace

// Expects the texts in this order, each at the beginning of a record.
static void ExpectInOrder(const std::vector<std::string>& records, const std::vector<std::string>& texts) {
    size_t next = 0;
    for (const std::string& record : records) {
        if (next < texts.size() && record.compare(0, texts[next].size(), texts[next]) == 0) {
            ++next;
        }
    }
    EXPECT_EQ(next, texts.size()) << "missing or out of order: " << (next < texts.size() ? texts[next] : "");
}

TEST_F(Executable, ShowsTheUsage) {
    WriteLogSettings(1);
    for (const char* command : {"-?", "-unregister", "/start", "-setregarbiter"}) {
        SCOPED_TRACE(command);
        DeleteFileA(m_log.c_str());
        Started run = Start(command);
        EXPECT_EQ(run.AnswerBox().text,
                  "Quillmarch -register \t  registers Quillmarch as Win32 service and starts the service (Admin "
                  "privileges required)\nQuillmarch -unregister\t  unregisters the Quillmarch service\n");
        EXPECT_EQ(run.End(), 1u);

        char tag[16];
        std::snprintf(tag, sizeof(tag), "%2.2u", static_cast<unsigned>(run.id & 0xFF));
        const bool isArbiter = std::string(command) == "-setregarbiter";
        ExpectInOrder(Records("\\[" + std::string(isArbiter ? "sa" : "ns") + tag + "\\]"),
                      {"------------------ Quillmarch WinMain ------------------", "Path=" + Program(),
                       "CmdLine='" + std::string(command) + "'",
                       "<---------------- /Quillmarch WinMain ------------------"});
    }
}

TEST_F(Executable, WritesTheSampleOnceAndOpensItInAnEditor) {
    const std::string sample = ReadAll(QM_RESOURCE_FOLDER "sample_eng.ini");
    ASSERT_GT(sample.size(), 1000u);
    Started first = Start("-ini");
    EXPECT_EQ(first.End(), 0u);
    EXPECT_EQ(ReadAll(m_ini), sample);
    CloseEditor();

    const std::string own = "[Settings]\n; not the sample's line ends\nLogLevel=0";
    WriteAll(m_ini, own);
    WIN32_FILE_ATTRIBUTE_DATA before = {}, after = {};
    ASSERT_TRUE(GetFileAttributesExA(m_ini.c_str(), GetFileExInfoStandard, &before));
    Started second = Start("-ini");
    EXPECT_EQ(second.End(), 0u);
    CloseEditor();
    EXPECT_EQ(ReadAll(m_ini), own);
    ASSERT_TRUE(GetFileAttributesExA(m_ini.c_str(), GetFileExInfoStandard, &after));
    EXPECT_EQ(CompareFileTime(&before.ftLastWriteTime, &after.ftLastWriteTime), 0);
}

TEST_F(Executable, CarriesBothSamples) {
    HMODULE image = LoadLibraryExA(Program().c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
    ASSERT_NE(image, nullptr);
    for (const auto& [id, file] : {std::pair{500, "sample_eng.ini"}, std::pair{501, "sample_ger.ini"}}) {
        HRSRC resource = FindResourceA(image, MAKEINTRESOURCEA(id), MAKEINTRESOURCEA(400));
        ASSERT_NE(resource, nullptr) << file;
        const auto* bytes = static_cast<const char*>(LockResource(LoadResource(image, resource)));
        EXPECT_EQ(std::string(bytes, SizeofResource(image, resource)), ReadAll(std::string(QM_RESOURCE_FOLDER) + file));
    }
    FreeLibrary(image);
}

static bool IsRegistered() {
    SC_HANDLE manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT);
    SC_HANDLE service = OpenServiceA(manager, "Quillmarch", SERVICE_QUERY_CONFIG);
    const bool isThere = service != nullptr;
    CloseServiceHandle(service);
    CloseServiceHandle(manager);
    return isThere;
}

static std::string MachineText(const char* key, const char* name) {
    char text[1024] = "";
    DWORD size = sizeof(text);
    RegGetValueA(HKEY_LOCAL_MACHINE, key, name, RRF_RT_REG_SZ | RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND, nullptr, text,
                 &size);
    return text;
}

// The service runs under the user's account here, which the program rightly does not take for the system's: it never
// enters the dispatcher, and the start fails.
TEST_F(Executable, IsRegisteredAndTakenAway) {
    constexpr char ServiceKey[] = "SYSTEM\\CurrentControlSet\\Services\\Quillmarch";
    constexpr char EventKey[] = "SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\Quillmarch";
    ASSERT_FALSE(IsRegistered());
    Started run = Start("-register");
    EXPECT_EQ(run.AnswerBox().text, "Service registered but failed to start");
    EXPECT_EQ(run.End(), 1u);
    EXPECT_TRUE(IsRegistered());
    EXPECT_EQ(MachineText(ServiceKey, "ImagePath"), "\"" + Program() + "\"");
    EXPECT_EQ(MachineText(ServiceKey, "Description"), "Quill-March-Ward; Gives control over COM-port assignments");
    EXPECT_EQ(MachineText(EventKey, "EventMessageFile"), Program());

    run = Start("-stop");
    EXPECT_EQ(run.AnswerBox().text, "Service is not running");
    EXPECT_EQ(run.End(), 0u);

    run = Start("-deregister");
    EXPECT_EQ(run.AnswerBox().text, "Service deregistered");
    EXPECT_EQ(run.End(), 0u);
    EXPECT_FALSE(IsRegistered());
    EXPECT_EQ(MachineText(EventKey, "EventMessageFile"), "");

    run = Start("-stop");
    EXPECT_EQ(run.AnswerBox().text, "Service is not registered");
    EXPECT_EQ(run.End(), 1u);
}

TEST_F(Executable, RunsWithAWindowUntilItIsClosed) {
    WriteLogSettings(4);
    WriteAll(m_log, "the former run\r\n");
    Started run = Start("-debug");
    const Seen window = WaitForWindow("Quillmarch_MainWndClass", run.id, "Quillmarch");
    ASSERT_NE(window.window, nullptr);
    EXPECT_EQ(window.title, "Quillmarch");
    RECT place = {};
    GetWindowRect(window.window, &place);
    EXPECT_EQ(place.right - place.left, 256);
    EXPECT_EQ(place.bottom - place.top, 96);
    EXPECT_TRUE(WaitUntil([&] { return ReadAll(m_log).find("enter ServiceMsgLoop") != std::string::npos; }));

    // A second one, from elsewhere, is refused.
    const std::string elsewhere = m_folder + "\\Other.exe";
    ASSERT_TRUE(CopyFileA(Program().c_str(), elsewhere.c_str(), FALSE));
    Started other = Start("-debug", elsewhere);
    EXPECT_EQ(other.AnswerBox().text, "Cannot run while another instance is running");
    EXPECT_EQ(other.End(), 1u);

    // Meanwhile two more processes write to its log, each with its tag. None starts a fresh one.
    Started tool = Start("-silentstop");
    Started copy = Start(R"(-exec="%WINDIR%\system32\cmd.exe" -wait=1 -windownumber=9 -params=/c exit)");
    EXPECT_EQ(tool.End(), 1u);
    EXPECT_EQ(copy.End(), 0u);
    for (const auto& [name, id] : {std::pair{"ns", tool.id}, std::pair{"ex", copy.id}}) {
        char tag[16];
        std::snprintf(tag, sizeof(tag), "[%s%2.2u]", name, static_cast<unsigned>(id & 0xFF));
        EXPECT_NE(ReadAll(m_log).find(tag), std::string::npos) << tag;
    }

    PostMessageA(window.window, WM_CLOSE, 0, 0);
    EXPECT_EQ(run.End(), 0u);
    EXPECT_EQ(ReadAll(m_folder + "\\trace_bak.log"), "the former run\r\n");
    const std::vector<std::string> records = Records("(?:\\{\\d{4,}\\}|\\[(?:ns|ex)\\d{2,3}\\])");
    ExpectInOrder(records, {"------------------ Quillmarch WinMain ------------------", "Quillmarch.EXE V1.0.0",
                            "CmdLine='-debug'", "sid=S-1-5-", "OS version=", "CCfgReader::CreateSnapshot(main)...",
                            "CreateMainWindowProc", "CUsbHubs::CreateSnapshot()...", "CComPorts::CreateSnapshot(0)...",
                            "CService::Run -> enter ServiceMsgLoop", "CService::Run -> after ServiceMsgLoop",
                            "<---------------- /Quillmarch WinMain ------------------"});
    EXPECT_EQ(records.back(), "<---------------- /Quillmarch WinMain ------------------");
    for (const std::string& record : records) {
        EXPECT_EQ(record.find("INT3"), std::string::npos) << record;
    }
}

// The copy that starts a program in the user's session: what it passes on, and how long it waits.
TEST_F(Executable, StartsAProgramInExecuteMode) {
    WriteLogSettings(4);
    DeleteFileA(m_log.c_str()); // a child adds to the log that is there
    const std::string parameters = R"(/c echo "a  b" -exec="c d" -params=\\ > out.txt)";
    Started run = Start(R"(-exec="%WINDIR%\system32\cmd.exe" -dir=")" + m_folder +
                        R"(" -wait=1 -windownumber=7 -params=)" + parameters);
    EXPECT_EQ(run.End(), 0u);
    EXPECT_NE(ReadAll(m_folder + "\\out.txt").find(R"("a  b" -exec="c d" -params=\\ )"), std::string::npos)
        << ReadAll(m_folder + "\\out.txt");
    char tag[16];
    std::snprintf(tag, sizeof(tag), "\\[ex%2.2u\\]", static_cast<unsigned>(run.id & 0xFF));
    ExpectInOrder(Records(tag), {"Quillmarch in execute mode  cmdln=", "MyForeWin='7' <Quillmarch_ForeWndClass>",
                                 "AutoRunByCommandLine exe='C:\\windows\\system32\\cmd.exe' params='" + parameters,
                                 " CreateProcess OK  pid=", " waiting 11000 ms", " waitres=0 after ",
                                 "Quillmarch in execute mode return 0"});

    DeleteFileA(m_log.c_str());
    run = Start(R"(-exec="%WINDIR%\system32\notepad.exe" -dir=")" + m_folder + R"(" -wait=1 -windownumber=8 -params=)");
    EXPECT_NE(WaitForWindow("Quillmarch_ForeWndClass", run.id, "8").window, nullptr);
    EXPECT_EQ(run.End(), 0u);
    EXPECT_EQ(FindWindowA("Quillmarch_ForeWndClass", nullptr), nullptr);
    const std::string log = ReadAll(m_log);
    std::smatch wait;
    ASSERT_TRUE(std::regex_search(log, wait, std::regex(" waitres=258 after (\\d+) ms"))) << log;
    EXPECT_GE(std::stoi(wait[1]), 11000);
    EXPECT_LT(std::stoi(wait[1]), 12000);
}
