// A log call that is off must cost what a test of two flags costs; one that is on must not call Windows too often.
#include "bench/Calls.h"
#include "bench/Marks.h"

#include "simwin/files/Files.h"

#include "support/log/LogFile.h"
#include "support/system/ProcessState.h"

namespace bench {

// Two flags like those of the log: any other part of the program may write them.
struct PlainFlags {
    DWORD first;
    DWORD second;
};
extern PlainFlags g_plainFlags;
PlainFlags g_plainFlags;

[[gnu::noinline]] void NeverCalled(LONG level, const char* format, const char* text, int number) {
    benchmark::DoNotOptimize(level);
    benchmark::DoNotOptimize(format);
    benchmark::DoNotOptimize(text);
    benchmark::DoNotOptimize(number);
}

constexpr int CallsInARow = 256;
constexpr int LinesCounted = 100;
constexpr int LinesTimed = 2000; // what is written stays on the machine's disk

static void LogOff(benchmark::State& state) {
    g_log.WriteLogfile = 0;
    g_log.WriteDebugOutput = 0;
    for (auto _ : state) {
        for (int i = 0; i < CallsInARow; ++i) {
            WriteLog(3, "port %s has number %i", szExeDir, i);
            benchmark::ClobberMemory();
        }
    }
}

static void PlainBranch(benchmark::State& state) {
    for (auto _ : state) {
        for (int i = 0; i < CallsInARow; ++i) {
            if (g_plainFlags.first || g_plainFlags.second) {
                NeverCalled(3, "port %s has number %i", szExeDir, i);
            }
            benchmark::ClobberMemory();
        }
    }
}

// The calls of one operation for each line, as "Name 2, Other 1".
static std::string PerLine(const CallCounts& before, const CallCounts& after) {
    std::string text;
    for (const auto& [name, count] : after) {
        const auto earlier = before.find(name);
        const std::uint64_t made = count - (earlier == before.end() ? 0 : earlier->second);
        if (made != 0) {
            text += (text.empty() ? "" : ", ") + name + " " + std::to_string(made / LinesCounted);
        }
    }
    return text;
}

static std::string g_callsOfALine;

// The first line opens the file, and the closer does not run before the count ends.
static void LogOn(benchmark::State& state) {
    machine::TheFiles().Write(szIniFile, "[Settings]\r\nWriteLogfile=1\r\nLogLevel=3\r\n");
    LogFile_Init(/*rotate=*/0);
    WriteLog(1, "the line that opens the file");
    const CallCounts before = CountCalls();
    const std::uint64_t callsBefore = CountAllCalls();
    for (int i = 0; i < LinesCounted; ++i) {
        WriteLog(3, "port %s has number %i", "COM7", i);
    }
    state.counters["calls"] = static_cast<double>(CountAllCalls() - callsBefore) / LinesCounted;
    g_callsOfALine = PerLine(before, CountCalls());
    for (auto _ : state) {
        WriteLog(3, "port %s has number %i", "COM7", 7);
    }
    LogFile_Exit();
    g_log = {};
    GoOnCalling();
}

BENCHMARK(LogOff)->Name("Log/Off")->Apply(Repeated);
BENCHMARK(PlainBranch)->Name("Log/PlainBranch")->Apply(Repeated);
BENCHMARK(LogOn)->Name("Log/On")->Iterations(LinesTimed);

const Mark OffMark("a log call that is off against a branch on two flags", TimeRatio("Log/Off", "Log/PlainBranch"),
                   Wanted::AtMost, 1.1);
const Mark CallsMark(
    "calls to the machine for a log line that is on",
    [](const Measured& measured) {
        return measured.Nanoseconds("Log/On") > 0 ? measured.Counter("Log/On", "calls") : NotMeasured;
    },
    Wanted::AtMost, 12, [](const Measured&) { return "a line makes these calls: " + g_callsOfALine; });
} // namespace bench
