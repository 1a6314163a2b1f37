// What a process of the executable becomes, and what the executable does as a tool.
#include "tests/unit/host/HostSetup.h"

#include "simwin/registry/Registry.h"

#include "host/CommandTable.h"
#include "host/DriveTests.h"
#include "host/Quillmarch.h"
#include "host/StartModes.h"

using namespace hosttest;

TEST(StartMode, TheAccountDecidesFirstThenTheBeginningOfTheCommandLine) {
    EXPECT_EQ(ChooseStartMode("S-1-5-18", false, ""), ModeService);
    EXPECT_EQ(ChooseStartMode("S-1-5-20", false, "-balloon"), ModeService);
    EXPECT_EQ(ChooseStartMode("S-1-5-18", true, "-ini"), ModeDebug);
    EXPECT_EQ(ChooseStartMode("S-1-5-1", false, ""), ModeNul) << "not one of the system's own";
    EXPECT_EQ(ChooseStartMode("S-1-5-180", false, "-ini"), ModeIni);
    const auto ofUser = [](const char* line) { return ChooseStartMode("S-1-5-21-1-2-3-1001", true, line); };
    for (const char* line : {" -debug", "-DEBUG", "/debug", "-ex", "-register"}) {
        EXPECT_EQ(ofUser(line), ModeNonservice) << line;
    }
    EXPECT_EQ(ofUser(""), ModeNul);
    EXPECT_EQ(ofUser("-debug"), ModeDebug);
    EXPECT_EQ(ofUser("-exec=x"), ModeExec);
    EXPECT_EQ(ofUser("-initial"), ModeIni);
    EXPECT_EQ(ofUser("-balloon -bt=1"), ModeBalloon);
    EXPECT_EQ(ofUser("-setregarbiter"), ModeSetRegArbiter);
}

// --- The commands, from the command line to what is left on the machine.

constexpr const char* ServiceKey = "HKLM\\SYSTEM\\CurrentControlSet\\Services\\Quillmarch";
constexpr const char* EventSource = "HKLM\\SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\Quillmarch";

constexpr DWORD NotRegistered = 0, Stopped = SERVICE_STOPPED, Running = SERVICE_RUNNING;
constexpr DWORD States[] = {NotRegistered, Stopped, Running};
constexpr UINT Stop = 16, Warning = 48, Information = 64;

namespace {
// The result of a command for an administrator: the box's beginning, its flags, the exit code, the state afterwards.
struct Outcome {
    const char* box;
    UINT flags;
    int exitCode;
    DWORD state;
};
} // namespace
// By the state before it: not registered, stopped, running.
using Outcomes = Outcome[3];

constexpr const char* UsageBegins = "Quillmarch -register \t  registers Quillmarch as Win32 service and starts the "
                                    "service (Admin privileges required)\nQuillmarch -unregister\t  unregisters the "
                                    "Quillmarch service\n";
constexpr Outcomes Usages = {
    {UsageBegins, Stop, 1, NotRegistered}, {UsageBegins, Stop, 1, Stopped}, {UsageBegins, Stop, 1, Running}};
constexpr Outcomes Debugs = {{"", 0, 0, NotRegistered}, // until its window is closed
                             {"", 0, 0, Stopped},
                             {"Cannot run while another instance is running as service", Stop, 1, Running}};
constexpr Outcomes Registers = {{"Service registered and started", Information, 0, Running},
                                {"Error registering the service: SERVICE_EXISTS -> ", Stop, 1, Stopped},
                                {"Error registering the service: SERVICE_EXISTS -> ", Stop, 1, Running}};
constexpr Outcomes Deregisters = {
    {"Error opening the service.\r\nSERVICE_DOES_NOT_EXIST -> ", Warning, 1, NotRegistered},
    {"Service deregistered", Information, 0, NotRegistered},
    {"Service deregistered", Information, 0, NotRegistered}};
constexpr Outcomes Starts = {{"Service is not registered", Warning, 1, NotRegistered},
                             {"Service successfully started", Information, 0, Running},
                             {"Service is already running", Warning, 0, Running}};
constexpr Outcomes Stops = {{"Service is not registered", Warning, 1, NotRegistered},
                            {"Service is not running", Warning, 0, Stopped},
                            {"Service successfully stopped", Information, 0, Stopped}};

namespace {
struct CommandCase {
    const char *line, *elevated; // what the copy with more rights is given; null: the command needs none
    CommandCase(const char* same) : line(same), elevated(same) {}
    CommandCase(const char* from, const char* to) : line(from), elevated(to) {}
};
struct CommandGroup {
    const Outcomes& outcomes;
    bool isVerbose;
    std::vector<CommandCase> commands;
};
} // namespace
const CommandGroup CommandGroups[] = {
    {Usages, true, {{"-?", nullptr}, {"--", nullptr}, {"/-/", nullptr}}},
    {Usages, true, {"/?x", "-debug x", "-register x", "-unregister", "/start", "--start", "start", "/stop"}},
    {Usages, true, {"/silentstop", "-setregarbiter"}},
    {Debugs, true, {{"-debug", nullptr}, {"/DEBUG", nullptr}, {"-debug-x", nullptr}}},
    {Registers, true, {"-install", "-register", {"/Register", "/register"}, "register", {"-register-x", "-register"}}},
    {Registers, false, {"-silentinstall", "-silentregister"}},
    {Deregisters, true, {"-uninstall", "-deregister", {"/DEREGISTER/", "/deregister"}}},
    {Deregisters, false, {"-silentuninstall", "-silentderegister"}},
    {Starts, true, {"-start", {"-START", "-start"}, {"-start/x", "-start"}}},
    {Starts, false, {"-silentstart", "-startsilent"}},
    {Stops, true, {"-stop"}},
    {Stops, false, {"-silentstop", "-stopsilent"}}};

// The machine with the service in one of the three states, and nothing left of the last case.
static void BringServiceTo(DWORD state) {
    if (machine::ServiceProcess(Name)) {
        machine::PostServiceControl(Name, SERVICE_CONTROL_STOP, 0, {});
        machine::SleepMs(1000);
    }
    machine::RemoveService(Name);
    machine::TheRegistry().DeleteTree(EventSource);
    if (state == NotRegistered) {
        return;
    }
    DefineTheService();
    g_pService->AddEventSource(Name, 0);
    if (state == Running) {
        machine::StartServiceByMachine(Name);
        machine::SleepMs(1000);
    }
    ASSERT_EQ(machine::ServiceState(Name), state);
}

// What one case may not do and must do, whoever runs it.
static void Judge(const CommandCase& command, bool isVerbose, const Outcome& wanted, bool isAdministrator) {
    const std::size_t boxesBefore = machine::MessageBoxes().size(), callsBefore = machine::ShellCalls().size();
    const Ended ended = RunProgram(command.line, isAdministrator);
    machine::SleepMs(1000);
    const std::string box = isVerbose ? wanted.box : "";
    EXPECT_EQ(ended.exitCode, wanted.exitCode) << ended.box;
    EXPECT_EQ(ended.box.substr(0, box.size()), box);
    EXPECT_EQ(machine::MessageBoxes().size() - boxesBefore, box.empty() ? 0u : 1u) << LastBox();
    if (!box.empty()) {
        EXPECT_EQ(machine::MessageBoxes().back().flags, wanted.flags | MB_SYSTEMMODAL);
        EXPECT_EQ(machine::MessageBoxes().back().title, "Quill-March-Ward");
    }
    EXPECT_EQ(machine::ServiceState(Name), wanted.state);
    for (const char* key : {ServiceKey, EventSource}) {
        EXPECT_EQ(machine::TheRegistry().FindKey(key) != nullptr, wanted.state != NotRegistered) << key;
    }
    const bool isLifted = !isAdministrator && command.elevated;
    ASSERT_EQ(machine::ShellCalls().size() - callsBefore, isLifted ? 1u : 0u);
    if (isLifted) {
        EXPECT_EQ(LastShellCall(), "runas " + ProgramPath());
        EXPECT_EQ(machine::ShellCalls().back().parameters, command.elevated);
    }
}

TEST(Command, EachOneInEachStateOfTheServiceWithAndWithoutRights) {
    StartOfProgram();
    machine::SetConsent(false);
    for (const CommandGroup& group : CommandGroups) {
        for (const CommandCase& command : group.commands) {
            for (std::size_t i = 0; i < std::size(States); ++i) {
                for (const bool isAdministrator : {true, false}) {
                    SCOPED_TRACE(std::string(command.line) + (isAdministrator ? ", administrator" : ", user") +
                                 ", service in state " + std::to_string(States[i]));
                    BringServiceTo(States[i]);
                    // Without rights only the wish for more remains, and the user refuses it.
                    const Outcome refused = {"", 0, 1, States[i]};
                    const bool isRefused = !isAdministrator && command.elevated;
                    Judge(command, group.isVerbose, isRefused ? refused : group.outcomes[i], isAdministrator);
                }
            }
        }
    }
}

TEST(HelpFile, OpensInTheUsersLanguageAndAsksForRightsOnlyToTakeTheMarkOff) {
    const std::string folder = machine::TheSetup().directory + "\\Quillmarch_";
    machine::SetConsent(false);
    EXPECT_EQ(RunProgram("", false).box, "Quillmarch is a windows service, read the help file about how to use it");
    EXPECT_EQ(machine::MessageBoxes().back().title, "Quillmarch");
    EXPECT_EQ(machine::MessageBoxes().back().flags, Stop);

    const std::string mark = folder + "eng.chm:Zone.Identifier";
    machine::SetAssociation(".chm", "C:\\Windows\\hh.exe");
    for (const std::string& file : {std::string("C:\\Windows\\hh.exe"), folder + "ger.chm", folder + "eng.chm"}) {
        machine::TheFiles().Write(file, "");
    }
    const std::pair<unsigned, const char*> rows[] = {{0x0407, "ger"}, {0x0807, "ger"}, {0x1407, "ger"},
                                                     {0x1807, "eng"}, {0x0007, "eng"}, {0x040C, "eng"}};
    for (const auto& [language, file] : rows) {
        SetLanguage(language);
        const Ended ended = RunProgram("", false);
        EXPECT_EQ(ended.exitCode, ExitRefused);
        EXPECT_EQ(ended.box, "");
        EXPECT_EQ(LastShellCall(), "open " + folder + file + ".chm") << language;
    }

    // With write access the mark is removed and the file shown; without it, a copy of the program with more rights is
    // started.
    machine::TheFiles().Write(mark, "[ZoneTransfer]");
    EXPECT_EQ(RunProgram("", false).exitCode, ExitRefused);
    EXPECT_EQ(LastShellCall(), "runas " + ProgramPath());
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
    for (const std::string path : {"n:\\q\\Quillmarch.exe", "S:\\Quillmarch.exe", "\\\\server\\s\\Quillmarch.exe"}) {
        const Ended ended = RunProgram("-register", true, "LAB\\anna", 1, path);
        EXPECT_EQ(ended.exitCode, ExitRefused) << path;
        EXPECT_EQ(ended.box, path[0] == '\\' ? "" : refusal) << path;
        EXPECT_EQ(machine::ServiceState(Name), NotRegistered) << path;
    }
    EXPECT_EQ(machine::MessageBoxes().back().flags, Stop | MB_SYSTEMMODAL);
}
