// A whole day on the desk of the example: its new adapter is unplugged and plugged in again each minute. Each minute
// every port must have its number; at the end no handle and no byte of the service may be left from the 1440 arrivals.
// The same day measures how many events a second the whole product handles, with its log off and on.
// A program of its own: each day needs a machine of its own, and the product as an image.
#include "bench/Calls.h"
#include "bench/Marks.h"

#include "rehearse/description/Description.h"
#include "rehearse/description/DescriptionReader.h"
#include "rehearse/machine/MachineBuilder.h"
#include "rehearse/run/Run.h"

#include "simwin/devices/events/Events.h"
#include "simwin/devices/tree/DeviceTree.h"
#include "simwin/files/Files.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/machine/Machine.h"
#include "simwin/services/Services.h"

#include <cstdio>
#include <string>

namespace bench {
constexpr std::uint64_t MinuteMs = 60'000, HourMs = 60 * MinuteMs;
constexpr std::uint64_t OffMs = 5'000;     // how long the adapter is away
constexpr std::uint64_t LookAtMs = 50'000; // of each minute
constexpr std::uint64_t StopMs = MinuteMs;
constexpr int MinutesOfADay = 24 * 60;
constexpr double EventsOfADay = 2.0 * MinutesOfADay; // the adapter leaves, the adapter arrives
constexpr char AdapterId[] = "USB\\VID_0403&PID_6001\\A702TB52";

namespace {
struct WantedName {
    const char* id;
    const char* name;
};
constexpr WantedName WantedNames[] = {
    {"FTDIBUS\\VID_0403+PID_6001+A702TB52A\\0000", "COM20"},
    {"FTDIBUS\\VID_0403+PID_6001+AR0JFBPEA\\0000", "COM21"},
    {"ACPI\\PNP0501\\1", "COM1"},
};

// Result of one rehearsal.
struct Day {
    std::string stopped; // the verdict of a run that did not end normally
    std::uint64_t looks = 0, wrongNumbers = 0, switches = 0, threads = 0, calls = 0;
    std::size_t logBytes = 0;
    std::size_t bytesEarly = 0, bytesLate = 0, blocksEarly = 0, blocksLate = 0;
    std::size_t handlesEarly = 0, handlesLate = 0, leakedHandles = 0;
};
} // namespace

static void LookAtNames(Day* day) {
    for (const WantedName& wanted : WantedNames) {
        const machine::DeviceNode* node = machine::TheDeviceTree().FindById(wanted.id);
        ++day->looks;
        if (!node || machine::DosNameOf(*node) != wanted.name || machine::RegistryNameOf(*node) != wanted.name) {
            ++day->wrongNumbers;
        }
    }
}

static void Schedule(const rehearse::TomlTable& description, Day* day, int minutes) {
    machine::At(0, machine::Due::Outside, [&description] {
        std::string why;
        rehearse::StartProductInRole(description, &why);
    });
    machine::At(MinuteMs / 2, machine::Due::Outside, [] { machine::PlugDevice(AdapterId); });
    for (int minute = 1; minute <= minutes; ++minute) {
        const std::uint64_t startMs = static_cast<std::uint64_t>(minute) * MinuteMs;
        machine::At(startMs, machine::Due::Outside, [] { machine::ReplugDevice(AdapterId, OffMs); });
        machine::At(startMs + LookAtMs, machine::Due::Expectation, [day] { LookAtNames(day); });
    }
}

static bool RunUntil(std::uint64_t untilMs, Day* day) {
    const machine::RunOutcome outcome = machine::RunMachine({untilMs});
    if (outcome.verdict != machine::Verdict::Done) {
        day->stopped = machine::OutcomeLine(outcome);
    }
    return day->stopped.empty();
}

// Runs the minutes on the current machine; the early numbers are from the end of the first hour.
static void RunMinutes(Day* day, int minutes) {
    const std::uint64_t endMs = static_cast<std::uint64_t>(minutes + 1) * MinuteMs;
    const std::uint64_t earlyMs = endMs < HourMs ? endMs : HourMs;
    if (!RunUntil(earlyMs - 1, day)) {
        return;
    }
    const machine::Ref service(machine::ServiceProcess(rehearse::ServiceName));
    if (!service) {
        day->stopped = "the service does not run";
        return;
    }
    day->bytesEarly = service->heap.Bytes();
    day->blocksEarly = service->heap.Blocks();
    day->handlesEarly = service->handles.Entries().size();
    if (RunUntil(endMs - 1, day)) {
        day->bytesLate = service->heap.Bytes();
        day->blocksLate = service->heap.Blocks();
        day->handlesLate = service->handles.Entries().size();
        machine::PostServiceControl(rehearse::ServiceName, simwin::SERVICE_CONTROL_STOP, 0, {});
        RunUntil(endMs + StopMs, day);
        day->leakedHandles = service->leakedHandles;
        if (!service->ended && day->stopped.empty()) {
            day->stopped = "the service does not end";
        }
    }
    day->switches = machine::Counts().switches;
    day->threads = machine::Counts().threadsStarted;
}

constexpr char LogPath[] = "C:\\_Quillmarch.log"; // where the log goes without a key

// The log as switched on without further keys, so at the default level. Returns: "" or what is wrong.
static std::string TurnLogOn() {
    constexpr std::string_view Off = "WriteLogFile=0", On = "WriteLogFile=1";
    std::string text = machine::TheFiles().Read(rehearse::ProductIni()).value_or("");
    const std::size_t at = text.find(Off);
    if (at == std::string::npos) {
        return "the settings of the example do not turn the log off";
    }
    machine::TheFiles().Write(rehearse::ProductIni(), text.replace(at, Off.size(), On));
    return "";
}

static Day Rehearse(int minutes, bool withLog) {
    Day day;
    rehearse::Options options;
    options.description = QM_SOURCE_FOLDER "/examples/desk.toml";
    try {
        const rehearse::TomlTable description = rehearse::ReadDescription(options.description);
        const machine::Machine machine(rehearse::SetupOf(description, options));
        rehearse::FillMachine(description, options);
        if (withLog) {
            day.stopped = TurnLogOn();
        }
        Schedule(description, &day, minutes);
        RunMinutes(&day, minutes);
        day.logBytes = machine::TheFiles().Read(LogPath).value_or("").size();
        day.calls = CountAllCalls();
    } catch (const rehearse::InputError& error) {
        day.stopped = error.what();
    }
    return day;
}

static void ReplugDay(benchmark::State& state) {
    machine::InstallCrashHandler();
    const Day shortRun = Rehearse(1, /*withLog=*/false); // what the product leaves behind in any case
    Day day;
    for (auto _ : state) {
        day = Rehearse(MinutesOfADay, /*withLog=*/false);
    }
    if (!shortRun.stopped.empty() || !day.stopped.empty()) {
        std::fprintf(stderr, "%s\n", (shortRun.stopped + day.stopped).c_str());
        state.SkipWithError("the rehearsal did not end in good order");
        return;
    }
    const auto difference = [](std::size_t late, std::size_t early) {
        return static_cast<double>(late) - static_cast<double>(early);
    };
    state.counters["looks"] = static_cast<double>(day.looks);
    state.counters["wrong"] = static_cast<double>(day.wrongNumbers);
    state.counters["bytes"] = difference(day.bytesLate, day.bytesEarly);
    state.counters["blocks"] = difference(day.blocksLate, day.blocksEarly);
    state.counters["handles"] = difference(day.handlesLate, day.handlesEarly);
    state.counters["leaked"] = difference(day.leakedHandles, shortRun.leakedHandles);
    state.counters["threads"] = static_cast<double>(day.threads);
    state.counters["switches"] = static_cast<double>(day.switches);
}

// The same events and nothing else, the machine's start and the service's stop included.
static void Events(benchmark::State& state, bool withLog) {
    machine::InstallCrashHandler();
    Day day;
    for (auto _ : state) {
        day = Rehearse(MinutesOfADay, withLog);
    }
    if (!day.stopped.empty() || day.wrongNumbers != 0 || withLog != (day.logBytes != 0)) {
        std::fprintf(stderr, "%s %zu bytes of log\n", day.stopped.c_str(), day.logBytes);
        state.SkipWithError("the rehearsal did not end in good order");
        return;
    }
    state.counters["calls"] = static_cast<double>(day.calls) / EventsOfADay;
    state.counters["log"] = static_cast<double>(day.logBytes) / EventsOfADay;
}

constexpr char DayName[] = "Day/ReplugEachMinute";
constexpr char LogOffName[] = "Events/LogOff", LogOnName[] = "Events/LogOn";

BENCHMARK(ReplugDay)->Name(DayName)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(3);
BENCHMARK_CAPTURE(Events, LogOff, false)
    ->Name(LogOffName)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->Repetitions(9);
BENCHMARK_CAPTURE(Events, LogOn, true)->Name(LogOnName)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(9);

static std::function<double(const Measured&)> EventsASecond(const char* benchmark) {
    return [benchmark](const Measured& measured) {
        const double time = measured.Nanoseconds(benchmark);
        return time > 0 ? EventsOfADay * 1e9 / time : NotMeasured;
    };
}

static std::function<double(const Measured&)> CounterOf(const char* benchmark, const char* counter) {
    return [benchmark, counter](const Measured& measured) {
        return measured.Nanoseconds(benchmark) > 0 ? measured.Counter(benchmark, counter) : NotMeasured;
    };
}

const Mark EventsLogOffMark("events a second, log off", EventsASecond(LogOffName), Wanted::AtLeast, 20'000);
const Mark EventsLogOnMark("events a second, log at its default level", EventsASecond(LogOnName), Wanted::AtLeast,
                           5'000);
const Mark CallsLogOffMark("calls for an event, log off", CounterOf(LogOffName, "calls"), Wanted::Nothing, 0);
const Mark CallsLogOnMark("calls for an event, log at its default level", CounterOf(LogOnName, "calls"),
                          Wanted::Nothing, 0);
const Mark LogBytesMark("bytes of log for an event at its default level", CounterOf(LogOnName, "log"), Wanted::Nothing,
                        0);

const Mark TimeMark(
    "milliseconds for 24 hours with a replug each minute",
    [](const Measured& measured) {
        const double time = measured.Nanoseconds(DayName);
        return time > 0 ? time / 1e6 : NotMeasured;
    },
    Wanted::Nothing, 0);
static const Mark LooksMark("names looked at in 24 hours", CounterOf(DayName, "looks"), Wanted::AtLeast,
                            3 * MinutesOfADay);
const Mark WrongMark("names that were wrong", CounterOf(DayName, "wrong"), Wanted::AtMost, 0);
const Mark LeakedMark("handles left after the stop, a day against a minute", CounterOf(DayName, "leaked"),
                      Wanted::AtMost, 0);
const Mark HandlesMark("open handles, hour 24 against hour 1", CounterOf(DayName, "handles"), Wanted::AtMost, 0);
const Mark BytesMark("bytes on the heap, hour 24 against hour 1", CounterOf(DayName, "bytes"), Wanted::AtMost, 0);
} // namespace bench

int main(int count, char** arguments) {
    return bench::TakeArguments(count, arguments) ? bench::RunAndJudge() : 2;
}
