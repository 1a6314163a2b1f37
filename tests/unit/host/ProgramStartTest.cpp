// What a process of the executable becomes, and what the executable does as a tool.
#include "tests/unit/host/HostSetup.h"

#include "simwin/shell/Shell.h"

#include "host/CommandTable.h"
#include "host/DriveTests.h"
#include "host/Quillmarch.h"
#include "host/StartModes.h"

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

TEST(Command, TheFirstTokenOrTheLineUpToItsEndDecides) {
    using enum CommandAction;
    struct Row {
        const char* line;
        CommandAction action;
        bool isVerbose, needsAdmin;
    };
    for (const Row& row : {
             Row{"-?", ShowUsage, true, false},
             Row{"--", ShowUsage, true, false},
             Row{"/-/", ShowUsage, true, false},
             Row{"-debug", DebugRun, true, false},
             Row{"/DEBUG", DebugRun, true, false},
             Row{"-debug x", ShowUsage, true, true},
             Row{"-register", Register, true, true},
             Row{"/Install", Register, true, true},
             Row{"register", Register, true, true},
             Row{"-register x", ShowUsage, true, true},
             Row{"-register-x", Register, true, true},
             Row{"-silentregister", Register, false, true},
             Row{"-silentinstall", Register, false, true},
             Row{"-uninstall", Deregister, true, true},
             Row{"-deregister", Deregister, true, true},
             Row{"-silentuninstall", Deregister, false, true},
             Row{"-silentderegister", Deregister, false, true},
             Row{"-unregister", ShowUsage, true, true},
             Row{"-START", StartService, true, true},
             Row{"/start", ShowUsage, true, true},
             Row{"--start", ShowUsage, true, true},
             Row{"start", ShowUsage, true, true},
             Row{"-start/x", StartService, true, true},
             Row{"-start ", ShowUsage, true, true},
             Row{"-silentstart", StartService, false, true},
             Row{"-startsilent", StartService, false, true},
             Row{"-stop", StopService, true, true},
             Row{"-silentstop", StopService, false, true},
             Row{"-stopsilent", StopService, false, true},
             Row{"-setregarbiter", ShowUsage, true, true},
         }) {
        char line[64];
        CopyText(line, row.line);
        const Command command = FindCommand(line);
        EXPECT_EQ(command.action, row.action) << row.line;
        EXPECT_EQ(command.isVerbose, row.isVerbose) << row.line;
        EXPECT_EQ(command.needsAdmin, row.needsAdmin) << row.line;
    }
}

TEST(Command, TheProgramEndsWithTheExitCodeOfItsCommand) {
    machine::TheFiles().Write(ProgramPath(), "");
    machine::SetConsent(false);
    const std::string usage = "Quillmarch -register \t  registers";
    struct Row {
        const char* arguments;
        bool isAdministrator;
        int exitCode;
        std::string box; // how the last box begins; "" no box
    };
    for (const Row& row : {
             Row{"-?", false, 1, usage},
             Row{"//", false, 1, usage},
             Row{"-unregister", true, 1, usage},
             Row{"-stop", false, 1, ""}, // asks for more rights, and the user refuses
             Row{"-start", true, 1, "Service is not registered"},
             Row{"-silentstart", true, 1, ""},
             Row{"-deregister", true, 1, "Error opening the service.\r\nSERVICE_DOES_NOT_EXIST"},
             Row{"-register", true, 0, "Service registered and started"},
             Row{"-register", true, 1, "Error registering the service: SERVICE_EXISTS"},
             Row{"-start", true, 0, "Service is already running"},
             Row{"-stop", true, 0, "Service successfully stopped"},
             Row{"-stop", true, 0, "Service is not running"},
             Row{"-START", true, 0, "Service successfully started"},
             Row{"-debug", true, 1, "Cannot run while another instance is running as service"},
             Row{"-deregister", true, 0, "Service deregistered"},
             Row{"-setregarbiter", true, 1, usage},
             Row{"-balloon -time=5", true, 1, usage},
             Row{"-exec=\"x\"", true, 1, usage},
         }) {
        const Ended ended = RunProgram(row.arguments, row.isAdministrator);
        EXPECT_EQ(ended.exitCode, row.exitCode) << row.arguments << ": " << ended.box;
        EXPECT_EQ(ended.box.substr(0, row.box.size()), row.box) << row.arguments;
        EXPECT_EQ(ended.box.empty(), row.box.empty()) << row.arguments << ": " << ended.box;
    }
    EXPECT_EQ(machine::ServiceState(Name), 0u);
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

TEST(HelpFile, OpensInTheUsersLanguageAndAsksForRightsOnlyToTakeTheMarkOff) {
    const std::string help = machine::TheSetup().directory + "\\Quillmarch_eng.chm";
    machine::SetConsent(false);
    EXPECT_EQ(RunProgram("", false).box.rfind("Quillmarch is a windows service", 0), 0u) << "no help file";

    machine::TheFiles().Write("C:\\Windows\\hh.exe", "");
    machine::TheFiles().Write(help, "help");
    machine::SetAssociation(".chm", "C:\\Windows\\hh.exe");
    const Ended ended = RunProgram("", false);
    EXPECT_EQ(ended.exitCode, ExitRefused);
    EXPECT_EQ(ended.box, "");
    ASSERT_FALSE(machine::ShellCalls().empty());
    EXPECT_EQ(machine::ShellCalls().back().verb, "open");
    EXPECT_EQ(machine::ShellCalls().back().file, help);
}

TEST(ExeDrive, OnlyADriveOfTheMachineItselfWillDo) {
    machine::TheFiles().SetDrive('N', {.type = DRIVE_REMOTE, .substitutedFor = ""});
    machine::TheFiles().SetDrive('D', {});
    DefineDosDeviceA(DDD_RAW_TARGET_PATH, "S:", "\\??\\C:\\Tools");
    machine::TheFiles().SetDrive('S', {.type = DRIVE_FIXED, .substitutedFor = "C:\\Tools"});
    struct Row {
        const char* path;
        ExeDrive drive;
    };
    for (const Row& row : {
             Row{"D:\\q\\Quillmarch.exe", ExeDrive::Local},
             Row{"N:\\q\\Quillmarch.exe", ExeDrive::NotLocal},
             Row{"S:\\Quillmarch.exe", ExeDrive::NotLocal},
             Row{"X:\\Quillmarch.exe", ExeDrive::NotLocal}, // no such drive
             Row{"\\\\server\\share\\Quillmarch.exe", ExeDrive::NoDriveLetter},
         })
        EXPECT_EQ(FindExeDrive(row.path), row.drive) << row.path;
}

} // namespace
