#include "rehearse/Progress.h"

#include "simwin/kernel/Scheduler.h"

#include <fmt/format.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>

#include <sys/time.h>
#include <unistd.h>

namespace rehearse {

static char g_what[256];
static volatile std::sig_atomic_t g_seconds;
static std::uint64_t g_lastMs;

constexpr std::uint64_t Whole = 100;

static void Put(const char* text) {
    (void)!write(STDERR_FILENO, text, std::strlen(text));
}

static void PutNumber(std::uint64_t number) {
    char digits[24];
    char* at = digits + sizeof(digits) - 1;
    *at = 0;
    do {
        *--at = static_cast<char>('0' + number % 10);
    } while (number /= 10);
    Put(at);
}

// Runs between two instructions of the machine: only operations that are safe in a signal handler.
static void OnTimer(int) {
    g_seconds = g_seconds + 1;
    Put("\rrehearsing ");
    Put(g_what);
    const std::uint64_t percent = g_lastMs ? std::min(machine::Now() * Whole / g_lastMs, Whole - 1) : 0;
    if (percent) {
        Put(": ");
        PutNumber(percent);
        Put(" %, about ");
        PutNumber(static_cast<std::uint64_t>(g_seconds) * (Whole - percent) / percent + 1);
        Put(" s left   ");
    }
}

static void SetTimer(long seconds) {
    const itimerval timer = {{seconds, 0}, {seconds, 0}};
    setitimer(ITIMER_REAL, &timer, nullptr);
}

Progress::Progress(const std::string& what, std::uint64_t lastMs) {
    if (!isatty(STDERR_FILENO)) {
        return;
    }
    m_isOn = true;
    what.copy(g_what, sizeof(g_what) - 1);
    g_lastMs = lastMs;
    struct sigaction action = {};
    action.sa_handler = OnTimer;
    action.sa_flags = SA_RESTART | SA_ONSTACK;
    sigaction(SIGALRM, &action, nullptr);
    SetTimer(1);
}

Progress::~Progress() {
    if (!m_isOn) {
        return;
    }
    SetTimer(0);
    if (g_seconds) {
        fmt::print(stderr, "\r\x1b[K");
    }
}

} // namespace rehearse
