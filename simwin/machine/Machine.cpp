#include "simwin/machine/Machine.h"

#include "simwin/kernel/Call.h"
#include "simwin/kernel/Fiber.h"
#include "simwin/kernel/Image.h"
#include "simwin/kernel/Process.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include <unistd.h>

namespace machine {

static Setup g_setup;
static Room* g_rooms; // sorted by order

static char g_signalStack[64 * 1024];

static void WriteText(const char* text) {
    (void)!write(STDERR_FILENO, text, std::strlen(text)); // nothing is left to report it to
}

// Runs on the alternate stack; only what is safe in a signal handler.
static void OnCrash(int signal, siginfo_t* info, void*) {
    WriteText("crash: ");
    WriteText(IsStackGuard(info->si_addr) ? "stack overflow" : strsignal(signal));
    if (const Thread* thread = CurrentThread()) {
        WriteText(" in ");
        WriteText(thread->process ? thread->process->imagePath.c_str() : "the machine");
        WriteText(", last call ");
        WriteText(thread->call);
    }
    WriteText("\n");
    RemoveImageFiles();
    _exit(CrashExitCode);
}

Room::Room(int roomOrder, void (*createRoom)(), void (*destroyRoom)())
    : order(roomOrder), create(createRoom), destroy(destroyRoom), next(nullptr) {
    Room** at = &g_rooms;
    while (*at && (*at)->order <= order) {
        at = &(*at)->next;
    }
    next = *at;
    *at = this;
}

const Setup& TheSetup() {
    return g_setup;
}

void CreateMachine(const Setup& setup) {
    g_setup = setup;
    for (const Room* room = g_rooms; room; room = room->next) {
        room->create();
    }
}

void DestroyMachine() {
    std::vector<const Room*> rooms;
    for (const Room* room = g_rooms; room; room = room->next) {
        rooms.push_back(room);
    }
    for (std::size_t i = rooms.size(); i-- > 0;) {
        rooms[i]->destroy();
    }
    ClearFaults();
}

void InstallCrashHandler() {
    stack_t stack = {};
    stack.ss_sp = g_signalStack;
    stack.ss_size = sizeof(g_signalStack);
    sigaltstack(&stack, nullptr);
    struct sigaction action = {};
    action.sa_sigaction = OnCrash;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) {
        sigaction(signal, &action, nullptr);
    }
}

int RunHosted(const Setup& setup, std::function<int()> entry) {
    InstallCrashHandler();
    CreateMachine(setup);
    ProcessStart start;
    start.imagePath = setup.directory + "\\" + setup.executable;
    start.commandLine = "\"" + start.imagePath + "\"";
    start.currentDirectory = "C:\\Windows\\System32";
    start.user = "NT AUTHORITY\\SYSTEM";
    const Process* process = StartHosted(start, std::move(entry));
    const RunOutcome outcome = RunMachine({});
    if (outcome.verdict != Verdict::Done) {
        std::fprintf(stderr, "%s\n", OutcomeLine(outcome).c_str());
        std::_Exit(CrashExitCode);
    }
    const int exitCode = process->ended ? static_cast<int>(process->exitCode) : CrashExitCode;
    DestroyMachine();
    return exitCode;
}

} // namespace machine
