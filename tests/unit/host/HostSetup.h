// The basis of the host's tests: the paths that the start of the program fills in, a log that can be read back,
// and the program run whole as a process of its own.
#pragma once

#include "tests/unit/Log.h"

#include "simwin/desktop/Desktop.h"
#include "simwin/kernel/Call.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/kernel/Setup.h"
#include "simwin/services/Services.h"
#include "simwin/shell/Shell.h"

#include "host/CService.h"
#include "support/system/OsVersion.h"
#include "support/system/SupportLocks.h"

namespace hosttest {

using namespace logtest;

// The service's name in the machine's own words.
inline constexpr const char* Name = "Quillmarch";

inline std::string ProgramPath() {
    return machine::TheSetup().directory + "\\" + machine::TheSetup().executable;
}

// What WinMain does before a role is chosen, and a log of all levels that goes to the debugger's output.
inline void StartOfProgram() {
    machine::TheFiles().Write(ProgramPath(), "");
    CopyText(szExePath, ProgramPath().c_str());
    CopyText(szExeDir, machine::TheSetup().directory.c_str());
    GetWindowsDirectoryA(szWindowsDir, sizeof(szWindowsDir));
    GetSystemDirectoryA(szSystemDir, sizeof(szSystemDir));
    CopyText(szIniFile, (machine::TheSetup().directory + "\\Quillmarch.INI").c_str());
    CopyText(szUserSid, "S-1-5-18");
    GetOsVersion(&g_os);
    InitSupportLocks();
    LogFile_Init(/*rotate=*/0);
    g_log.LogLevel = 5;
    g_log.WriteDebugOutput = 1;
    g_pService = new CService;
    g_pService->Init(Name, Name);
}

inline void SetLanguage(unsigned language) {
    const_cast<machine::Setup&>(machine::TheSetup()).language = language;
}

// The last call of the shell as "verb file".
inline std::string LastShellCall() {
    const auto& calls = machine::ShellCalls();
    return calls.empty() ? "" : calls.back().verb + " " + calls.back().file;
}

inline std::string LastBox() {
    return machine::MessageBoxes().empty() ? "" : machine::MessageBoxes().back().text;
}

inline void DefineTheService(const std::string& path = "\"" + ProgramPath() + "\"") {
    machine::DefineService({Name, Name, path});
}

struct Ended {
    int exitCode = 0;
    std::string box; // text of the last box that the process showed
};

// Runs the program as a user would start it, to its end or for at most a virtual minute.
inline Ended RunProgram(const std::string& arguments, bool isAdministrator, const char* user = "LAB\\anna",
                        unsigned session = 1, const std::string& path = ProgramPath()) {
    machine::ProcessStart start;
    start.imagePath = path;
    start.commandLine = "\"" + start.imagePath + "\"" + (arguments.empty() ? "" : " ") + arguments;
    start.currentDirectory = machine::TheSetup().directory;
    start.user = user;
    start.session = session;
    start.rights = isAdministrator ? machine::Rights::Elevated : machine::Rights::User;
    start.administrator = isAdministrator;
    const machine::Process* process = machine::StartProduct(start);
    for (int step = 0; step < 600 && !process->ended; ++step) {
        machine::SleepMs(100);
        machine::CloseWindowsOf(process); // so ends a debug run
    }
    Ended ended;
    ended.exitCode = static_cast<int>(process->exitCode);
    for (const machine::MessageBoxRecord& box : machine::MessageBoxes()) {
        if (box.processId == process->id) {
            ended.box = box.text;
        }
    }
    return ended;
}

} // namespace hosttest
