// What a process of the executable becomes, and what the executable does as a tool.
#include "tests/unit/host/HostSetup.h"

#include "simwin/registry/Registry.h"
#include "simwin/shell/Shell.h"

#include "host/CommandTable.h"
#include "host/DriveTests.h"
#include "host/Quillmarch.h"
#include "host/StartModes.h"
#include "support/WindowDpi.h"

namespace {

using namespace hosttest;

TEST(StartMode, TheAccountDecidesFirstThenTheBeginningOfTheCommandLine) {
    constexpr const char* System = "S-1-5-18";
    constexpr const char* User = "S-1-5-21-1-2-3-1001";
    struct Row {
        const char* sid;
        bool isUserSession;
        const char* line;
        LONG mode;
    };
    for (const Row& row : {
             Row{System, false, "", ModeService},
             Row{"S-1-5-20", false, "-balloon", ModeService},
             Row{System, true, "-ini", ModeDebug},
             Row{"S-1-5-1", false, "", ModeNul}, // not one of the system's own
             Row{"S-1-5-180", false, "-ini", ModeIni},
             Row{User, true, "", ModeNul},
             Row{User, true, "-debug", ModeDebug},
             Row{User, true, " -debug", ModeNonservice},
             Row{User, true, "-DEBUG", ModeNonservice},
             Row{User, true, "/debug", ModeNonservice},
             Row{User, true, "-exec=\"x\"", ModeExec},
             Row{User, true, "-ex", ModeNonservice},
             Row{User, true, "-initial", ModeIni},
             Row{User, true, "-balloon -bt=1", ModeBalloon},
             Row{User, true, "-setregarbiter", ModeSetRegArbiter},
             Row{User, true, "-register", ModeNonservice},
         })
        EXPECT_EQ(ChooseStartMode(row.sid, row.isUserSession, row.line), row.mode)
            << row.sid << " '" << row.line << "'";
}

// --- The commands, from the command line to what is left on the machine.

constexpr const char* ServiceKey = "HKLM\\SYSTEM\\CurrentControlSet\\Services\\Quillmarch";
constexpr const char* EventSource = "HKLM\\SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\Quillmarch";

constexpr DWORD NotRegistered = 0, Stopped = SERVICE_STOPPED, Running = SERVICE_RUNNING;
constexpr DWORD States[] = {NotRegistered, Stopped, Running};
constexpr UINT Stop = 16, Warning = 48, Information = 64;

// What a command comes to for an administrator: the box's beginning, its flags, the exit code, the state afterwards.
struct Outcome {
    const char* box;
    UINT flags;
    int exitCode;
    DWORD state;
};
// By the state in front of it: not registered, stopped, running.
using Outcomes = Outcome[3];

constexpr const char* UsageBegins = "Quillmarch -register \t  registers Quillmarch as Win32 service and starts the "
                                    "service (Admin privileges required)\nQuillmarch -unregister\t  unregisters the "
                                    "Quillmarch service\n";
constexpr Outcomes Usages = {
    {UsageBegins, Stop, 1, NotRegistered}, {UsageBegins, Stop, 1, Stopped}, {UsageBegins, Stop, 1, Running}};
constexpr Outcomes Debugs = {{"", 0, 0, NotRegistered}, // until its window is closed
                             {"", 0, 0, Stopped},
                             {"Cannot run while another instance is running as service", Stop, 1, Running}};
constexpr Outcomes Registers = {
    {"Service registered and started", Information, 0, Running},
    {"Error registering the service: SERVICE_EXISTS -> ", Stop, 1, Stopped},
    {"Error registering the service: SERVICE_EXISTS -> ", Stop, 1, Running},
};
constexpr Outcomes Deregisters = {
    {"Error opening the service.\r\nSERVICE_DOES_NOT_EXIST -> ", Warning, 1, NotRegistered},
    {"Service deregistered", Information, 0, NotRegistered},
    {"Service deregistered", Information, 0, NotRegistered},
};
constexpr Outcomes Starts = {{"Service is not registered", Warning, 1, NotRegistered},
                             {"Service successfully started", Information, 0, Running},
                             {"Service is already running", Warning, 0, Running}};
constexpr Outcomes Stops = {{"Service is not registered", Warning, 1, NotRegistered},
                            {"Service is not running", Warning, 0, Stopped},
                            {"Service successfully stopped", Information, 0, Stopped}};

struct CommandCase {
    const char* line;
    const char* elevated; // what the copy with more rights is given; null: the command needs none
    bool isVerbose;
    const Outcomes& outcomes;
};
constexpr CommandCase CommandCases[] = {
    {"-?", nullptr, true, Usages},
    {"/?x", "/?x", true, Usages},
    {"--", nullptr, true, Usages},
    {"/-/", nullptr, true, Usages},
    {"-debug", nullptr, true, Debugs},
    {"/DEBUG", nullptr, true, Debugs},
    {"-debug-x", nullptr, true, Debugs},
    {"-debug x", "-debug x", true, Usages},
    {"-install", "-install", true, Registers},
    {"-register", "-register", true, Registers},
    {"/Register", "/register", true, Registers},
    {"register", "register", true, Registers},
    {"-register-x", "-register", true, Registers},
    {"-register x", "-register x", true, Usages},
    {"-silentinstall", "-silentinstall", false, Registers},
    {"-silentregister", "-silentregister", false, Registers},
    {"-uninstall", "-uninstall", true, Deregisters},
    {"-deregister", "-deregister", true, Deregisters},
    {"/DEREGISTER/", "/deregister", true, Deregisters},
    {"-silentuninstall", "-silentuninstall", false, Deregisters},
    {"-silentderegister", "-silentderegister", false, Deregisters},
    {"-unregister", "-unregister", true, Usages},
    {"-start", "-start", true, Starts},
    {"-START", "-start", true, Starts},
    {"-start/x", "-start", true, Starts},
    {"/start", "/start", true, Usages},
    {"--start", "--start", true, Usages},
    {"start", "start", true, Usages},
    {"-silentstart", "-silentstart", false, Starts},
    {"-startsilent", "-startsilent", false, Starts},
    {"-stop", "-stop", true, Stops},
    {"/stop", "/stop", true, Usages},
    {"-silentstop", "-silentstop", false, Stops},
    {"-stopsilent", "-stopsilent", false, Stops},
    {"/silentstop", "/silentstop", true, Usages},
    {"-setregarbiter", "-setregarbiter", true, Usages},
    {"-balloon -time=5", "-balloon ", true, Usages},
    {"-exec=\"x\"", "-exec=\"x\"", true, Usages},
};

// The machine with the service in one of the three states, and nothing left of the last case.
void BringServiceTo(DWORD state) {
    if (machine::ServiceProcess(Name)) {
        machine::PostServiceControl(Name, SERVICE_CONTROL_STOP, 0, {});
        machine::SleepMs(1000);
    }
    machine::RemoveService(Name);
    machine::TheRegistry().DeleteTree(EventSource);
    if (state == NotRegistered)
        return;
    DefineTheService();
    g_pService->AddEventSource(Name, 0);
    if (state == Running) {
        machine::StartServiceByMachine(Name);
        machine::SleepMs(1000);
    }
    ASSERT_EQ(machine::ServiceState(Name), state);
}

// What one case may not do and must do, whoever runs it.
void Judge(const CommandCase& command, const Outcome& wanted, bool isAdministrator) {
    const std::size_t boxesBefore = machine::MessageBoxes().size(), callsBefore = machine::ShellCalls().size();
    const Ended ended = RunProgram(command.line, isAdministrator);
    machine::SleepMs(1000);
    const std::string box = command.isVerbose ? wanted.box : "";
    EXPECT_EQ(ended.exitCode, wanted.exitCode) << ended.box;
    EXPECT_EQ(ended.box.substr(0, box.size()), box);
    EXPECT_EQ(machine::MessageBoxes().size() - boxesBefore, box.empty() ? 0u : 1u) << LastBox();
    if (!box.empty()) {
        EXPECT_EQ(machine::MessageBoxes().back().flags, wanted.flags | MB_SYSTEMMODAL);
        EXPECT_EQ(machine::MessageBoxes().back().title, "Quill-March-Ward");
    }
    EXPECT_EQ(machine::ServiceState(Name), wanted.state);
    EXPECT_EQ(machine::TheRegistry().FindKey(ServiceKey) != nullptr, wanted.state != NotRegistered);
    EXPECT_EQ(machine::TheRegistry().FindKey(EventSource) != nullptr, wanted.state != NotRegistered);
    const bool isLifted = !isAdministrator && command.elevated;
    ASSERT_EQ(machine::ShellCalls().size() - callsBefore, isLifted ? 1u : 0u);
    if (isLifted) {
        EXPECT_EQ(machine::ShellCalls().back().verb, "runas");
        EXPECT_EQ(machine::ShellCalls().back().file, ProgramPath());
        EXPECT_EQ(machine::ShellCalls().back().parameters, command.elevated);
    }
}

TEST(Command, EachOneInEachStateOfTheServiceWithAndWithoutRights) {
    StartOfProgram();
    machine::SetConsent(false);
    for (const CommandCase& command : CommandCases)
        for (std::size_t i = 0; i < std::size(States); ++i)
            for (const bool isAdministrator : {true, false}) {
                SCOPED_TRACE(std::string(command.line) + (isAdministrator ? ", administrator" : ", user") +
                             ", service in state " + std::to_string(States[i]));
                BringServiceTo(States[i]);
                // Without rights only the wish for more remains, and the user refuses it.
                const Outcome refused = {"", 0, 1, States[i]};
                Judge(command, isAdministrator || !command.elevated ? command.outcomes[i] : refused, isAdministrator);
            }
}

TEST(ProgramStart, WithoutACommandLineThereIsNothingToDo) {
    EXPECT_EQ(WinMain(nullptr, nullptr, nullptr, 1), ExitNoCommandLine);
}

TEST(ProgramStart, TheSystemAccountWithoutARegisteredServiceGetsTheUsage) {
    const Ended ended = RunProgram("", /*isAdministrator=*/true, "NT AUTHORITY\\SYSTEM", /*session=*/0);
    EXPECT_EQ(ended.exitCode, ExitRefused);
    EXPECT_EQ(ended.box.rfind("Quillmarch -register", 0), 0u) << ended.box;
}

TEST(ProgramStart, ASecondInstanceIsRefusedWhileTheWindowOfADebugRunIsThere) {
    DefineTheService();
    machine::TheFiles().Write(ProgramPath(), "");
    machine::Process* other = machine::StartScripted({});
    machine::AddScriptedWindow(other, "Quillmarch_MainWndClass", "Quillmarch");
    EXPECT_EQ(RunProgram("-debug", true).box, "Cannot run while another instance is running");
    EXPECT_EQ(machine::StartServiceByMachine(Name), 0u);
    machine::SleepMs(1000);
    EXPECT_EQ(LastBox(), "Cannot run while another instance is running");
    EXPECT_EQ(machine::ServiceState(Name), SERVICE_STOPPED);
}

TEST(ProgramStart, ADebugRunWithoutItsWindowEndsInGoodOrder) {
    machine::AddFault({.call = "CreateWindowExA", .on = "*", .error = ERROR_NOT_ENOUGH_MEMORY});
    const Ended ended = RunProgram("-debug", true);
    EXPECT_EQ(ended.exitCode, ExitRefused);
    EXPECT_EQ(ended.box.rfind("Error creating the main window err=", 0), 0u) << ended.box;
}

// The last call of the shell as "verb file".
std::string LastShellCall() {
    if (machine::ShellCalls().empty())
        return "";
    return machine::ShellCalls().back().verb + " " + machine::ShellCalls().back().file;
}

TEST(HelpFile, OpensInTheUsersLanguageAndAsksForRightsOnlyToTakeTheMarkOff) {
    const std::string folder = machine::TheSetup().directory + "\\Quillmarch_";
    machine::SetConsent(false);
    EXPECT_EQ(RunProgram("", false).box, "Quillmarch is a windows service, read the help file about how to use it");
    EXPECT_EQ(machine::MessageBoxes().back().title, "Quillmarch");
    EXPECT_EQ(machine::MessageBoxes().back().flags, Stop);

    machine::TheFiles().Write("C:\\Windows\\hh.exe", "");
    machine::SetAssociation(".chm", "C:\\Windows\\hh.exe");
    for (const char* language : {"ger", "eng"})
        machine::TheFiles().Write(folder + language + ".chm", "help");
    struct Row {
        unsigned language;
        const char* file;
    };
    for (const Row& row : {Row{0x0407, "ger"}, Row{0x0807, "ger"}, Row{0x0C07, "ger"}, Row{0x1007, "ger"},
                           Row{0x1407, "ger"}, Row{0x1807, "eng"}, Row{0x0007, "eng"}, Row{0x040C, "eng"}}) {
        const_cast<machine::Setup&>(machine::TheSetup()).language = row.language;
        const Ended ended = RunProgram("", false);
        EXPECT_EQ(ended.exitCode, ExitRefused);
        EXPECT_EQ(ended.box, "");
        EXPECT_EQ(LastShellCall(), "open " + folder + row.file + ".chm") << row.language;
    }

    // Who may write takes the mark off and shows the file; who may not asks for a copy of the program that may.
    const std::string mark = folder + "eng.chm:Zone.Identifier";
    machine::TheFiles().Write(mark, "[ZoneTransfer]");
    EXPECT_EQ(RunProgram("", false).exitCode, ExitRefused);
    EXPECT_EQ(LastShellCall(), "runas " + ProgramPath());
    EXPECT_EQ(machine::ShellCalls().back().parameters, "");
    EXPECT_TRUE(machine::TheFiles().Exists(mark));
    EXPECT_EQ(RunProgram("", true).exitCode, ExitRefused);
    EXPECT_EQ(LastShellCall(), "open " + folder + "eng.chm");
    EXPECT_FALSE(machine::TheFiles().Exists(mark));
    EXPECT_FALSE(machine::TheFiles().Exists("C:\\_Quillmarch.log")) << "nobody switched the log on";
}

TEST(ExeDrive, OnlyADriveOfTheMachineItselfWillDo) {
    machine::TheFiles().SetDrive('N', {.type = DRIVE_REMOTE, .substitutedFor = ""});
    machine::TheFiles().SetDrive('D', {});
    DefineDosDeviceA(DDD_RAW_TARGET_PATH, "S:", "\\??\\C:\\Tools");
    machine::TheFiles().SetDrive('S', {.type = DRIVE_FIXED, .substitutedFor = "C:\\Tools"});
    EXPECT_EQ(FindExeDrive("D:\\q\\Quillmarch.exe"), ExeDrive::Local);
    EXPECT_EQ(FindExeDrive("X:\\Quillmarch.exe"), ExeDrive::NotLocal) << "no such drive";
    const std::string refusal = "Quillmarch service must be registered on a local drive";
    struct Row {
        const char* path;
        std::string box;
    };
    for (const Row& row : {
             Row{"N:\\q\\Quillmarch.exe", refusal},
             Row{"n:\\q\\Quillmarch.exe", refusal},
             Row{"S:\\Quillmarch.exe", refusal},
             Row{"\\\\server\\share\\Quillmarch.exe", ""},
         }) {
        const Ended ended = RunProgram("-register", true, "LAB\\anna", 1, row.path);
        EXPECT_EQ(ended.exitCode, ExitRefused) << row.path;
        EXPECT_EQ(ended.box, row.box) << row.path;
        EXPECT_EQ(machine::ServiceState(Name), NotRegistered) << row.path;
    }
    EXPECT_EQ(machine::MessageBoxes().back().flags, Stop | MB_SYSTEMMODAL);
}

TEST(WindowDpi, EveryVersionOfWindowsHasAnAnswer) {
    struct Row {
        machine::WindowsVersion version;
        const char* asked;
    };
    StartOfProgram();
    auto& setup = const_cast<machine::Setup&>(machine::TheSetup());
    setup.dpi = 144;
    WNDCLASSA windowClass = {};
    windowClass.lpfnWndProc = DefWindowProcA;
    windowClass.lpszClassName = "any";
    RegisterClassA(&windowClass);
    const HWND window = CreateWindowExA(0, "any", "", 0, 0, 0, 9, 9, nullptr, nullptr, nullptr, nullptr);
    for (const Row& row : {Row{{10, 0, 19045}, "GetDpiForWindow"}, Row{{10, 0, 10240}, "GetDpiForMonitor"},
                           Row{{6, 3, 9600}, "GetDpiForMonitor"}, Row{{6, 1, 7601}, "GetDeviceCaps"}}) {
        setup.version = row.version;
        GetOsVersion(&g_Os);
        const std::uint64_t before = machine::FindOperation(row.asked)->count;
        EXPECT_EQ(GetWindowDpi(window), 144u) << row.asked;
        EXPECT_EQ(machine::FindOperation(row.asked)->count, before + 1) << row.asked;
    }
}

} // namespace
