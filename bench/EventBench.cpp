#include "bench/EventBench.h"

#include "bench/Calls.h"
#include "bench/GrowingMachine.h"
#include "bench/Marks.h"
#include "bench/OwnShare.h"

#include "simwin/files/Files.h"

#include "config/CCfgReader.h"
#include "config/CSettings.h"
#include "engine/NewDeviceArrived.h"
#include "engine/SectionMatching.h"
#include "inventory/ports/CComPorts.h"
#include "inventory/ports/CDeviceArrivals.h"
#include "support/system/InterfaceClasses.h"
#include "support/system/ProcessState.h"
#include "support/system/WorkerThreads.h"
#include "support/texts/BoundedText.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace bench {
using Clock = std::chrono::steady_clock;

constexpr int ManySections = 100; // with the one without a number
constexpr int CriterionForms = 10, RowsToDeviceId = 3, CriterionRows = 17;
constexpr DWORD SettledMs = 6000; // after its last change a port is checked again
constexpr DWORD ValueBytes = 260;
constexpr unsigned WantedSamples = 2000;
constexpr int MostSampledRounds = 2000, Arrivals = 100;

// This many sections, of which the last one that is checked matches the port.
static std::string SectionsFor(const CComPort& port, LONG sections, LONG wantedNumber) {
    std::string text = "[Settings]\r\nWriteLogFile=0\r\n";
    char line[320];
    for (LONG number = 1; number < sections; ++number) {
        std::snprintf(line, sizeof(line), "[ComPorts%d]\r\nDeviceID=FTDIBUS\\VID_0403+PID_6001+A%05dA\\*\r\n",
                      static_cast<int>(number), static_cast<int>(number));
        text += line;
        std::snprintf(line, sizeof(line), "PortName=COM%d\r\n", 6000 + static_cast<int>(number));
        text += line;
    }
    std::snprintf(line, sizeof(line), "[ComPorts]\r\nDeviceID=%s\r\nPortName=COM%d\r\n", port.DeviceID,
                  static_cast<int>(wantedNumber));
    return text + line;
}

static void Configure(const std::string& text) {
    machine::TheFiles().Write(szIniFile, text);
    if (!g_pCfgReader) {
        g_pCfgReader = new CCfgReader(szIniFile, nullptr, nullptr);
        g_pSettings = new CSettings;
        g_pDeviceArrivals = new CDeviceArrivals;
    }
    g_pCfgReader->CreateSnapshot("benchmark");
    g_pSettings->ReadSettings();
}

namespace {
// The point in an arrival at which everything is decided, recognised by a call that nothing before it makes: setting
// the right number in the database of names, or the last query of the wanted one.
class Decision {
public:
    Decision(const char* operation, const char* object)
        : m_operation(machine::FindOperation(operation)->name), m_object(object) {
        machine::WatchCalls([this](const char* name, const char* calledOn) { Look(name, calledOn); });
    }
    ~Decision() { machine::WatchCalls({}); }
    Decision(const Decision&) = delete;
    Decision& operator=(const Decision&) = delete;

    void SetObject(const char* object) { m_object = object; }
    void Arm() {
        m_callsBefore = CountAllCalls();
        m_isArmed = true;
        m_start = Clock::now();
        OwnShare::Begin();
    }
    bool IsReached() const { return !m_isArmed; }
    double Microseconds() const { return std::chrono::duration<double, std::micro>(m_end - m_start).count(); }
    double Calls() const { return static_cast<double>(m_callsAtEnd - m_callsBefore); }

private:
    void Look(const char* name, const char* calledOn) {
        if (m_isArmed && name == m_operation && std::strstr(calledOn, m_object)) {
            m_end = Clock::now();
            OwnShare::End();
            m_isArmed = false;
            m_callsAtEnd = CountAllCalls() - 1; // the call in progress carries out the decision
        }
    }

    const char* m_operation;
    const char* m_object;
    bool m_isArmed = false;
    Clock::time_point m_start, m_end;
    std::uint64_t m_callsBefore = 0, m_callsAtEnd = 0;
};
} // namespace

// Notifies the product of an arrival as Windows does, and waits until the thread for it has ended.
static void Arrive(const CComPort& port) {
    alignas(DEV_BROADCAST_DEVICEINTERFACE_A) char block[sizeof(DEV_BROADCAST_DEVICEINTERFACE_A) + 260] = {};
    auto* broadcast = reinterpret_cast<DEV_BROADCAST_DEVICEINTERFACE_A*>(block);
    broadcast->dbcc_size = sizeof(block);
    broadcast->dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
    broadcast->dbcc_classguid = interface_class::ComPort;
    CopyText(block + offsetof(DEV_BROADCAST_DEVICEINTERFACE_A, dbcc_name), 260, port.DevPath);
    DeviceChangeMsg(DBT_DEVICEARRIVAL, reinterpret_cast<const DEV_BROADCAST_HDR*>(broadcast));
    while (LiveWorkers() > 0) {
        Sleep(1);
    }
}

namespace {
// The last port of the table arrives again and again: the longest search of table and device list.
struct ArrivalRounds {
    ArrivalRounds(benchmark::State& state, bool isItsNumberRight)
        : port(g_pComPorts->Ports[state.range(0) - 1]), sections(static_cast<LONG>(state.range(1))),
          isRight(isItsNumberRight),
          decision(isItsNumberRight ? "RegOpenKeyExA" : "QueryDosDeviceA", "COM Name Arbiter") {
        if (isRight) {
            Configure(SectionsFor(*port, sections, port->PortNumber));
        }
    }

    // Returns: whether the product reached a decision, and the expected one.
    bool Run() {
        LONG wanted = port->PortNumber;
        if (!isRight) {
            // Alternates between two numbers that no port of the machine has.
            const LONG first = 2 * (LargestMachine + static_cast<LONG>(port->Index));
            wanted = port->PortNumber == first ? first + 1 : first;
            std::snprintf(name, sizeof(name), "COM%d", static_cast<int>(wanted));
            decision.SetObject(name);
            Configure(SectionsFor(*port, sections, wanted));
            Sleep(SettledMs);
        }
        decision.Arm();
        Arrive(*port);
        GoOnCalling();
        return decision.IsReached() && port->PortNumber == wanted;
    }

    CComPort* port;
    LONG sections;
    bool isRight;
    char name[16] = {};
    Decision decision;
};
} // namespace

static double Median(std::vector<double>* values) {
    const auto middle = values->begin() + static_cast<std::ptrdiff_t>(values->size() / 2);
    std::nth_element(values->begin(), middle, values->end());
    return *middle;
}

static void Arrival(benchmark::State& state, bool isRight) {
    if (!PrepareTable(static_cast<int>(state.range(0)))) {
        state.SkipWithError("the table does not have the ports of the machine");
        return;
    }
    ArrivalRounds rounds(state, isRight);
    bool isWellDecided = rounds.Run(); // the first arrival is recorded again, the others are known
    std::vector<double> times;
    for (auto _ : state) {
        isWellDecided = rounds.Run() && isWellDecided;
        times.push_back(rounds.decision.Microseconds());
        state.SetIterationTime(times.back() / 1e6);
    }
    if (!isWellDecided) {
        state.SkipWithError("the arrival did not come to its decision");
        return;
    }
    const double median = Median(&times);
    state.counters["calls"] = rounds.decision.Calls();
    state.counters["us"] = median;
    const OwnShare sampling;
    for (int round = 0; round < MostSampledRounds && OwnShare::Samples() < WantedSamples; ++round) {
        rounds.Run();
    }
    state.counters["own_us"] = median * OwnShare::Share();
}

static void RightNumber(benchmark::State& state) {
    Arrival(state, /*isRight=*/true);
}

static void WrongNumber(benchmark::State& state) {
    Arrival(state, /*isRight=*/false);
}

namespace {
// --- A match over all sections, and its look-ups alone.

struct LookUp {
    LONG section;
    std::string key;
};
} // namespace

// The look-ups of a match in which the last section fits by its device id alone: three rows of every other section, and
// of the last one all but the nine forms that its match makes unnecessary.
static std::vector<LookUp> LookUpsOfMatch() {
    static constexpr const char* Keys[] = {"BusType",
                                           "KernelName",
                                           "DeviceID",
                                           "ParentDeviceID",
                                           "GrandParentDeviceID",
                                           "Class",
                                           "ClassGuid",
                                           "FriendlyName",
                                           "IRQ",
                                           "IoPort",
                                           "UsbPort",
                                           "Location",
                                           "ParentLocation",
                                           "LocationPath",
                                           "ParentLocationPath",
                                           "Address",
                                           "ParentAddress"};
    static_assert(std::size(Keys) == CriterionRows);
    std::vector<LookUp> lookUps;
    for (LONG section = 1; section <= ManySections; ++section) {
        for (int row = 0; row < (section < ManySections ? RowsToDeviceId : CriterionRows); ++row) {
            for (int form = 0; form < CriterionForms; ++form) {
                lookUps.push_back({section, Keys[row] + (form != 0 ? std::to_string(form) : "")});
                if (section == ManySections && row == RowsToDeviceId - 1) {
                    break;
                }
            }
        }
    }
    return lookUps;
}

static bool PrepareMatch(benchmark::State& state) {
    if (!PrepareTable(1)) {
        state.SkipWithError("the table does not have the port");
        return false;
    }
    Configure(SectionsFor(*g_pComPorts->Ports[0], ManySections, 1));
    return true;
}

template<typename Work>
static void CountAndRun(benchmark::State& state, Work work) {
    const std::uint64_t callsBefore = CountAllCalls();
    for (auto _ : state) {
        work();
        GoOnCalling();
    }
    state.counters["calls"] =
        static_cast<double>(CountAllCalls() - callsBefore) / static_cast<double>(state.iterations());
}

static void Match(benchmark::State& state) {
    if (!PrepareMatch(state)) {
        return;
    }
    if (GetFittingSectionNumber(g_pComPorts->Ports[0], ComPorts) != NoSectionNumber) {
        state.SkipWithError("the wrong section fits");
        return;
    }
    CountAndRun(state, [] {
        auto section = GetFittingSectionNumber(g_pComPorts->Ports[0], ComPorts);
        benchmark::DoNotOptimize(section);
    });
}

static void LookUpsAlone(benchmark::State& state) {
    if (!PrepareMatch(state)) {
        return;
    }
    const std::vector<LookUp> lookUps = LookUpsOfMatch();
    CountAndRun(state, [&lookUps] {
        char value[ValueBytes];
        for (const LookUp& lookUp : lookUps) {
            auto length = g_pCfgReader->GetString(ComPorts, lookUp.section, KeyName::Unchecked(lookUp.key.c_str()), "",
                                                  value, ValueBytes);
            benchmark::DoNotOptimize(length);
            benchmark::ClobberMemory();
        }
    });
}

[[maybe_unused]] const bool IsRegistered = [] {
    benchmark::RegisterBenchmark("Match/Sections", Match)->Apply(Repeated);
    benchmark::RegisterBenchmark("Match/LookUpsAlone", LookUpsAlone)->Apply(Repeated);
    return true;
}();

// --- The marks.

constexpr int SmallestTable = 1, SmallTable = 64;

namespace {
struct ArrivalCase {
    const char* name;
    void (*run)(benchmark::State&);
    const char* text;
};
} // namespace
constexpr ArrivalCase ArrivalCases[] = {{"Right", RightNumber, "right"}, {"Wrong", WrongNumber, "wrong"}};

static std::string NameOf(const char* number, int ports, int sections) {
    return std::string("Arrival/") + number + "/" + std::to_string(ports) + "/" + std::to_string(sections);
}

static std::function<double(const Measured&)> CounterOf(const std::string& benchmark, const char* counter) {
    return [benchmark, counter](const Measured& measured) {
        return measured.Nanoseconds(benchmark) > 0 ? measured.Counter(benchmark, counter) : NotMeasured;
    };
}

// How many more calls the larger of two arrivals makes for each additional item.
static std::function<double(const Measured&)> MoreCalls(const std::string& small, const std::string& large,
                                                        double more) {
    return [small, large, more](const Measured& measured) {
        const double few = measured.Counter(small, "calls"), many = measured.Counter(large, "calls");
        return few > 0 && many > 0 ? (many - few) / more : NotMeasured;
    };
}

static double LookUpCalls(const Measured& measured) {
    const double match = measured.Counter("Match/Sections", "calls");
    const double lookUps = measured.Counter("Match/LookUpsAlone", "calls");
    return match > 0 && lookUps > 0 ? match - lookUps : NotMeasured;
}

const Mark MatchMark("a match over 100 sections against its look-ups alone",
                     TimeRatio("Match/Sections", "Match/LookUpsAlone"), Wanted::AtMost, 1.2);
const Mark MatchCallsMark("calls of that match beside its look-ups", LookUpCalls, Wanted::AtMost, 0);

// A port queries only itself, but the device list of Windows is walked to find its path: two calls for an interface.
// A section that does not fit costs the look-ups of its rows up to the one that fails, each with its lock.
constexpr double CallsForAPort = 2.05, CallsForASection = 2 * RowsToDeviceId * CriterionForms;

static std::vector<std::unique_ptr<Mark>> MakeArrivalMarks() {
    std::vector<std::unique_ptr<Mark>> marks;
    for (const ArrivalCase& arrivalCase : ArrivalCases) {
        const std::string arrival = std::string("arrival, number ") + arrivalCase.text;
        for (const int ports : {SmallestTable, SmallTable, LargestMachine}) {
            for (const int sections : {1, ManySections}) {
                const std::string name = NameOf(arrivalCase.name, ports, sections);
                const std::string cell =
                    arrival + ", " + std::to_string(ports) + " ports, " + std::to_string(sections) + " sections: ";
                const auto tell = [&](const char* what, const char* counter) {
                    marks.push_back(std::make_unique<Mark>(cell + what, CounterOf(name, counter), Wanted::Nothing, 0));
                };
                tell("calls", "calls");
                tell("us", "us");
                tell("us of its own", "own_us");
            }
        }
        marks.push_back(
            std::make_unique<Mark>("calls for each port more, " + arrival,
                                   MoreCalls(NameOf(arrivalCase.name, SmallTable, 1),
                                             NameOf(arrivalCase.name, LargestMachine, 1), LargestMachine - SmallTable),
                                   Wanted::AtMost, CallsForAPort));
        marks.push_back(
            std::make_unique<Mark>("calls for each section more, " + arrival,
                                   MoreCalls(NameOf(arrivalCase.name, SmallTable, 1),
                                             NameOf(arrivalCase.name, SmallTable, ManySections), ManySections - 1),
                                   Wanted::AtMost, CallsForASection));
    }
    return marks;
}

[[maybe_unused]] const std::vector<std::unique_ptr<Mark>> ArrivalMarks = MakeArrivalMarks();

void RegisterArrivals(int ports) {
    for (const int sections : {1, ManySections}) {
        for (const ArrivalCase& arrivalCase : ArrivalCases) {
            benchmark::RegisterBenchmark((std::string("Arrival/") + arrivalCase.name).c_str(), arrivalCase.run)
                ->Args({ports, sections})
                ->Iterations(Arrivals)
                ->UseManualTime()
                ->Unit(benchmark::kMicrosecond);
        }
    }
}

} // namespace bench
