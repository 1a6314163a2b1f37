// The benchmarks of the product's own code: they run as the first thread of a process on a simulated machine, with the
// host's own copy of the product, as the unit tests do.
#include "bench/Marks.h"

#include "simwin/machine/Machine.h"

#include "actions/CallBackTimer.h"
#include "support/system/CRTreplace.h"
#include "support/system/OsVersion.h"
#include "support/system/ProcessState.h"
#include "support/system/SupportLocks.h"
#include "support/texts/BoundedText.h"

constexpr char ProductFolder[] = "C:\\Program Files\\Quillmarch";

// The first steps of a program start; the log stays off.
static void StartOfProgram() {
    InitAllocator();
    InitSupportLocks();
    GetOsVersion(&g_os);
    GetWindowsDirectoryA(szWindowsDir, sizeof(szWindowsDir));
    CopyText(szExeDir, ProductFolder);
    CopyText(szExePath, (machine::TheSetup().directory + "\\" + machine::TheSetup().executable).c_str());
    CopyText(szIniFile, (machine::TheSetup().directory + "\\Quillmarch.INI").c_str());
    InitializeCriticalSection(&CS_main);
    InitializeCriticalSection(&CS_assign);
    InitCallbackTimers(); // an arrival starts the programs and the balloon of its port by timers
    g_Mode = ModeService;
}

static int RunOnMachine() {
    machine::Setup setup;
    setup.directory = ProductFolder;
    return machine::RunHosted(setup, [] {
        StartOfProgram();
        return bench::RunAndJudge();
    });
}

int main(int count, char** arguments) {
    return bench::TakeArguments(count, arguments) ? RunOnMachine() : 2;
}
