#include "rehearse/Progress.h"

#include <fmt/format.h>

#include <csignal>
#include <cstdio>

#include <sys/time.h>
#include <unistd.h>

namespace rehearse {

namespace {

char g_what[256];
volatile std::sig_atomic_t g_seconds;

// Runs between two instructions of the machine: only what is safe in a signal handler.
void OnTimer(int) {
    constexpr char text[] = "\rrehearsing ";
    (void)!write(STDERR_FILENO, text, sizeof(text) - 1);
    std::size_t length = 0;
    while (g_what[length])
        ++length;
    (void)!write(STDERR_FILENO, g_what, length);
    g_seconds = g_seconds + 1;
    for (int i = 0; i < (g_seconds < 40 ? g_seconds : 40); ++i)
        (void)!write(STDERR_FILENO, ".", 1);
}

void SetTimer(long seconds) {
    const itimerval timer = {{seconds, 0}, {seconds, 0}};
    setitimer(ITIMER_REAL, &timer, nullptr);
}

} // namespace

Progress::Progress(const std::string& what) {
    if (!isatty(STDERR_FILENO))
        return;
    m_isOn = true;
    what.copy(g_what, sizeof(g_what) - 1);
    struct sigaction action = {};
    action.sa_handler = OnTimer;
    action.sa_flags = SA_RESTART | SA_ONSTACK;
    sigaction(SIGALRM, &action, nullptr);
    SetTimer(1);
}

Progress::~Progress() {
    if (!m_isOn)
        return;
    SetTimer(0);
    if (g_seconds)
        fmt::print(stderr, "\r\x1b[K");
}

} // namespace rehearse
