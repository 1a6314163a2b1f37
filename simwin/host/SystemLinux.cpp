#include "simwin/host/System.h"

#include <csignal>
#include <cstring>
#include <initializer_list>

#include <sys/ioctl.h>
#include <sys/time.h>
#include <unistd.h>

namespace host {

static char g_signalStack[64 * 1024];
static void (*g_report)(const char* what, const void* address);
static int g_exitCode;
static void (*g_tick)();

void BeginProgram(int*, char***) {
    // If the reader has gone, a write fails instead of ending the program.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN); // likewise a file at its size limit
}

// Runs on the alternate stack; only what is safe in a signal handler.
static void OnCrash(int signal, siginfo_t* info, void*) {
    g_report(strsignal(signal), info->si_addr);
    _exit(g_exitCode);
}

void CatchCrashes(void (*report)(const char* what, const void* address), int exitCode) {
    g_report = report;
    g_exitCode = exitCode;
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

void WriteError(const char* text) {
    (void)!write(STDERR_FILENO, text, std::strlen(text)); // nothing is left to report a failure to
}

Terminal TerminalOfOutput() {
    winsize size{};
    Terminal terminal;
    terminal.isThere = isatty(STDOUT_FILENO) != 0;
    if (terminal.isThere && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0) {
        terminal.columns = size.ws_col;
    }
    return terminal;
}

bool IsErrorTerminal() {
    return isatty(STDERR_FILENO) != 0;
}

static void SetTimer(long seconds) {
    const itimerval timer = {{seconds, 0}, {seconds, 0}};
    setitimer(ITIMER_REAL, &timer, nullptr);
}

static void OnAlarm(int) {
    g_tick();
}

void StartTicks(void (*tick)()) {
    g_tick = tick;
    struct sigaction action = {};
    action.sa_handler = OnAlarm;
    action.sa_flags = SA_RESTART | SA_ONSTACK;
    sigaction(SIGALRM, &action, nullptr);
    SetTimer(1);
}

void StopTicks() {
    SetTimer(0);
}

} // namespace host
