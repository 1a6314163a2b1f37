#include "rehearse/run/Progress.h"

#include "simwin/host/System.h"
#include "simwin/kernel/Scheduler.h"

#include <fmt/format.h>

#include <algorithm>
#include <csignal>
#include <cstdio>

namespace rehearse {

static char g_what[256];
static volatile std::sig_atomic_t g_seconds;
static std::uint64_t g_lastMs;

constexpr std::uint64_t Whole = 100;

static void PutNumber(std::uint64_t number) {
    char digits[24];
    char* at = digits + sizeof(digits) - 1;
    *at = 0;
    do {
        *--at = static_cast<char>('0' + number % 10);
    } while (number /= 10);
    host::WriteError(at);
}

// Runs between two instructions of the machine: only operations that are safe in a signal handler.
static void OnTick() {
    g_seconds = g_seconds + 1;
    host::WriteError("\rrehearsing ");
    host::WriteError(g_what);
    const std::uint64_t percent = g_lastMs ? std::min(machine::Now() * Whole / g_lastMs, Whole - 1) : 0;
    if (percent) {
        host::WriteError(": ");
        PutNumber(percent);
        host::WriteError(" %, about ");
        PutNumber(static_cast<std::uint64_t>(g_seconds) * (Whole - percent) / percent + 1);
        host::WriteError(" s left   ");
    }
}

Progress::Progress(const std::string& what, std::uint64_t lastMs) {
    if (!host::IsErrorTerminal()) {
        return;
    }
    m_isOn = true;
    what.copy(g_what, sizeof(g_what) - 1);
    g_lastMs = lastMs;
    host::StartTicks(OnTick);
}

Progress::~Progress() {
    if (!m_isOn) {
        return;
    }
    host::StopTicks();
    if (g_seconds) {
        fmt::print(stderr, "\r\x1b[K");
    }
}

} // namespace rehearse
