// The benchmarks of the product's own code: they run as the first thread of a process on a simulated machine, with the
// host's own copy of the product, as the unit tests do.
#include "bench/Marks.h"

#include "simwin/kernel/Machine.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Scheduler.h"

#include "support/BoundedText.h"
#include "support/CRTreplace.h"
#include "support/OsVersion.h"
#include "support/ProcessState.h"
#include "support/SupportLocks.h"

#include <cstdio>
#include <cstdlib>

namespace {

constexpr int StoppedExitCode = 3;
constexpr char ProductFolder[] = "C:\\Program Files\\Quillmarch";

// What the start of the program does before anything else; the log stays off.
void StartOfProgram() {
    InitAllocator();
    InitSupportLocks();
    GetOsVersion(&g_Os);
    GetWindowsDirectoryA(szWindowsDir, sizeof(szWindowsDir));
    CopyText(szExeDir, ProductFolder);
    CopyText(szExePath, (machine::TheSetup().directory + "\\" + machine::TheSetup().executable).c_str());
    CopyText(szIniFile, (machine::TheSetup().directory + "\\Quillmarch.INI").c_str());
    InitializeCriticalSection(&CS_main);
    InitializeCriticalSection(&CS_assign);
    g_Mode = ModeService;
}

int RunOnMachine() {
    machine::Setup setup;
    setup.imageFile = QM_IMAGE_FILE;
    setup.resourceFile = QM_RESOURCE_FILE;
    setup.directory = ProductFolder;
    machine::InstallCrashHandler();
    machine::CreateMachine(setup);
    machine::ProcessStart start;
    start.imagePath = setup.directory + "\\" + setup.executable;
    start.commandLine = "\"" + start.imagePath + "\"";
    start.currentDirectory = "C:\\Windows\\System32";
    start.user = "NT AUTHORITY\\SYSTEM";
    const machine::Process* process = machine::StartHosted(start, [] {
        StartOfProgram();
        return bench::RunAndJudge();
    });
    const machine::RunOutcome outcome = machine::RunMachine({});
    if (outcome.verdict != machine::Verdict::Done || !process->ended) {
        std::fprintf(stderr, "%s\n", machine::OutcomeLine(outcome).c_str());
        std::_Exit(StoppedExitCode);
    }
    const int exitCode = static_cast<int>(process->exitCode);
    machine::DestroyMachine();
    return exitCode;
}

} // namespace

int main(int count, char** arguments) {
    return bench::TakeArguments(count, arguments) ? RunOnMachine() : 2;
}
