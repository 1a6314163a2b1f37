// The port table on a machine that grows: 64, 512 and 4096 ports. The first snapshot, the listing and both scans, with
// their calls to the machine; between them the arrivals at these sizes.
#include "bench/Calls.h"
#include "bench/EventBench.h"
#include "bench/GrowingMachine.h"
#include "bench/Marks.h"

#include "simwin/files/Files.h"
#include "simwin/kernel/Process.h"

#include "inventory/ports/CComPorts.h"
#include "support/log/LogFile.h"
#include "support/system/ProcessState.h"

#include <string>
#include <vector>

namespace bench {
constexpr int SmallTable = 64, MiddleTable = 512, LargeTable = LargestMachine;

template<typename Work>
static void Measure(benchmark::State& state, Work work) {
    if (!PrepareTable(static_cast<int>(state.range(0)))) {
        state.SkipWithError("the table does not have the ports of the machine");
        return;
    }
    const std::uint64_t callsBefore = CountAllCalls();
    for (auto _ : state) {
        work();
        GoOnCalling();
    }
    const double ports = static_cast<double>(state.range(0)), rounds = static_cast<double>(state.iterations());
    state.counters["calls/port"] = static_cast<double>(CountAllCalls() - callsBefore) / (ports * rounds);
    state.counters["time/port"] =
        benchmark::Counter(ports, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// The first snapshot of a service finds an empty table.
static void Snapshot(benchmark::State& state) {
    Measure(state, [&state] {
        state.PauseTiming();
        g_pComPorts->ClearPorts();
        state.ResumeTiming();
        MakeTables();
    });
}

constexpr std::size_t DetailBytes = 268, TargetBytes = 24;

// As the product's operators do: the whole heap is checked after a new block and before and after a release.
static void* NewBlock(std::size_t bytes) {
    void* block = HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, bytes);
    HeapValidate(GetProcessHeap(), 0, nullptr);
    return block;
}

static void DeleteBlock(void* block) {
    HeapValidate(GetProcessHeap(), 0, nullptr);
    HeapSize(GetProcessHeap(), 0, block);
    HeapFree(GetProcessHeap(), 0, block);
    HeapValidate(GetProcessHeap(), 0, nullptr);
}

// Only the blocks of a snapshot. shared: one for the detail of all interfaces and one for all DOS name targets, as now;
// else one for each, as before.
static void Blocks(benchmark::State& state, bool shared) {
    if (!PrepareTable(static_cast<int>(state.range(0)))) {
        state.SkipWithError("the table does not have the ports of the machine");
        return;
    }
    const auto count = static_cast<std::size_t>(state.range(0));
    g_pComPorts->ClearPorts();
    std::vector<void*> records(count), targets(shared ? 1 : count);
    const auto take = [](std::vector<void*>& blocks, std::size_t bytes) {
        for (void*& block : blocks) {
            block = NewBlock(bytes);
        }
    };
    const auto giveBack = [](std::vector<void*>& blocks) {
        for (void* block : blocks) {
            DeleteBlock(block);
        }
    };
    for (auto _ : state) {
        std::vector<void*> detail(1);
        take(detail, DetailBytes);
        for (void*& record : records) {
            record = NewBlock(sizeof(CComPort));
            if (!shared) {
                giveBack(detail);
                take(detail, DetailBytes);
            }
        }
        giveBack(detail);
        take(targets, shared ? TargetBytes * count : TargetBytes);
        giveBack(targets);
        state.PauseTiming();
        giveBack(records);
        state.ResumeTiming();
        GoOnCalling();
    }
}

static void BlocksBefore(benchmark::State& state) {
    Blocks(state, false);
}

static void BlocksNow(benchmark::State& state) {
    Blocks(state, true);
}

// The time of the first snapshot, relative to that with a block of its own for each detail and each target.
static double ShareOfBefore(const Measured& measured) {
    const std::string size = "/" + std::to_string(LargeTable);
    const double now = measured.Nanoseconds("Ports/Snapshot" + size);
    const double saved =
        measured.Nanoseconds("Ports/BlocksBefore" + size) - measured.Nanoseconds("Ports/BlocksNow" + size);
    return now > 0 && saved > 0 ? now / (now + saved) : NotMeasured;
}

// With the log on at the level of the listing, or it writes nothing.
static void Listing(benchmark::State& state) {
    machine::TheFiles().Write(szIniFile, "[Settings]\r\nWriteDebugOutput=1\r\nLogLevel=1\r\n");
    LogFile_Init(/*rotate=*/0);
    Measure(state, [] {
        g_pComPorts->ListPorts();
        machine::CurrentProcess()->debugOutput.clear();
    });
    LogFile_Exit();
    g_log = {};
}

static void SameNames(benchmark::State& state) {
    Measure(state, [] { g_pComPorts->ScanSamePorts(); });
}

static void SameParents(benchmark::State& state) {
    Measure(state, [] { g_pComPorts->ScanSameParents(); });
}

// How much more a port costs in a table eight times as large.
static std::function<double(const Measured&)> TimeGrowth(const std::string& benchmark) {
    return [benchmark](const Measured& measured) {
        const double small = measured.Nanoseconds(benchmark + "/" + std::to_string(MiddleTable)) / MiddleTable;
        const double large = measured.Nanoseconds(benchmark + "/" + std::to_string(LargeTable)) / LargeTable;
        return small > 0 && large > 0 ? large / small : NotMeasured;
    };
}

static std::function<double(const Measured&)> CallGrowth(const std::string& benchmark) {
    return [benchmark](const Measured& measured) {
        const double small = measured.Counter(benchmark + "/" + std::to_string(SmallTable), "calls/port");
        const double large = measured.Counter(benchmark + "/" + std::to_string(LargeTable), "calls/port");
        return small > 0 && large > 0 ? large / small : NotMeasured;
    };
}

// All work at one size before the next one, since the machine does not shrink.
[[maybe_unused]] const bool IsRegistered = [] {
    RegisterArrivals(1);
    for (const int ports : {SmallTable, MiddleTable, LargeTable}) {
        benchmark::RegisterBenchmark("Ports/Snapshot", Snapshot)->Arg(ports)->Unit(benchmark::kMillisecond);
        if (ports == LargeTable) {
            benchmark::RegisterBenchmark("Ports/BlocksBefore", BlocksBefore)->Arg(ports)->Unit(benchmark::kMillisecond);
            benchmark::RegisterBenchmark("Ports/BlocksNow", BlocksNow)->Arg(ports)->Unit(benchmark::kMillisecond);
        }
        benchmark::RegisterBenchmark("Ports/Listing", Listing)->Arg(ports)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark("Ports/SameNames", SameNames)->Arg(ports)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark("Ports/SameParents", SameParents)->Arg(ports)->Unit(benchmark::kMillisecond);
        if (ports != MiddleTable) {
            RegisterArrivals(ports);
        }
    }
    return true;
}();

// Each port queries only itself: the calls grow with the ports. The searches of the table, one for each port, and the
// check of the heap at each record take eight times as long in a table eight times as large; the rest of a port's
// snapshot does not. The listing searches nothing, but 4096 records are more than the caches hold.
const Mark SnapshotCallsMark("calls for a port of the first snapshot, 4096 ports against 64",
                             CallGrowth("Ports/Snapshot"), Wanted::AtMost, 1.05);
const Mark ListingCallsMark("calls for a port of the listing, 4096 ports against 64", CallGrowth("Ports/Listing"),
                            Wanted::AtMost, 1.05);
const Mark SnapshotTimeMark("time for a port of the first snapshot, 4096 ports against 512",
                            TimeGrowth("Ports/Snapshot"), Wanted::AtMost, 3);
const Mark SnapshotShareMark("first snapshot of 4096 ports against one with blocks for each detail and target",
                             ShareOfBefore, Wanted::AtMost, 0.45);
const Mark ListingTimeMark("time for a port of the listing, 4096 ports against 512", TimeGrowth("Ports/Listing"),
                           Wanted::AtMost, 4);
const Mark NamesTimeMark("time for a port of the scan of equal names, 4096 ports against 512",
                         TimeGrowth("Ports/SameNames"), Wanted::AtMost, 8);
const Mark ParentsTimeMark("time for a port of the scan of equal parents, 4096 ports against 512",
                           TimeGrowth("Ports/SameParents"), Wanted::AtMost, 8);
} // namespace bench
