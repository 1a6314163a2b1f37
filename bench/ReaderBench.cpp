// Reading a configuration of the largest size, and looking a key up in a section of the largest size.
#include "bench/Calls.h"
#include "bench/Marks.h"
#include "bench/Rivals.h"

#include "simwin/files/Files.h"

#include "config/CCfgReader.h"
#include "support/system/ProcessState.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

namespace bench {
constexpr std::size_t LargestFile = 0x100000 - 1;
constexpr int ValuesOfASection = 280;
constexpr int KeysOfASection = MaxSectionValues, LookUps = 16384;
constexpr DWORD ValueBytes = 260;

// Lines as in real settings: mostly criteria with a device's id, in sections with a number. Two in three sections are
// ComPorts and OnArrival, since no type has more than a hundred.
static std::string LargeSettings() {
    static constexpr const char* SectionNames[] = {"ComPorts", "OnArrival", "OnRemoval"};
    static constexpr const char* Lines[] = {
        "DeviceID%03d=FTDIBUS\\VID_0403+PID_6001+A%05dA\\0000\r\n",
        "ParentDeviceID%03d=USB\\VID_0403&PID_6001\\A%05d\r\n",
        "PortName%03d=COM%d\r\n",
        "Location%03d = Port_#0004.Hub_#%04d\r\n",
        "open%03d=C:\\Tools\\terminal.exe -port %d -speed 115200\r\n",
    };
    std::string text = "# Made for the benchmark.\r\n[Settings]\r\nLogLevel=3\r\n";
    char line[128];
    for (int value = 0; text.size() < LargestFile; ++value) {
        if (value % ValuesOfASection == 0) {
            const int section = value / ValuesOfASection;
            std::snprintf(line, sizeof(line), "\r\n[%s%d]\r\n", SectionNames[section % 3], section / 3 + 1);
            text += line;
        }
        std::snprintf(line, sizeof(line), Lines[value % 5], value % ValuesOfASection, value);
        text += line;
    }
    // Not every reader accepts a cut line at the end: a comment fills the room of the last two.
    text.resize(LargestFile);
    const std::size_t end = text.rfind("\r\n", text.rfind("\r\n") - 1) + 2;
    text.replace(end, LargestFile - end, "#" + std::string(LargestFile - end - 1, '-'));
    return text;
}

static const std::string& Settings1MiB() {
    static const std::string Text = LargeSettings();
    return Text;
}

static void WriteSettings(const std::string& text) {
    machine::TheFiles().Write(szIniFile, text);
}

static void Parse(benchmark::State& state) {
    WriteSettings(Settings1MiB());
    CCfgReader reader(szIniFile, nullptr, nullptr);
    for (auto _ : state) {
        if (!reader.CreateSnapshot("benchmark") || !reader.HasSection(OnRemoval, 1)) {
            state.SkipWithError("the settings were not read");
            return;
        }
        GoOnCalling();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * Settings1MiB().size()));
}

// What each reader of lines must do at least: a copy of the text, each byte looked at, each line ended in its place
// and noted.
static void LineSplit(benchmark::State& state) {
    std::vector<char> copy(Settings1MiB().size() + 1);
    std::vector<char*> lines;
    for (auto _ : state) {
        std::memcpy(copy.data(), Settings1MiB().c_str(), copy.size());
        lines.clear();
        char* line = copy.data();
        for (char* at = line; *at != 0; ++at) {
            if (*at == '\r' || *at == '\n') {
                lines.push_back(line);
                at[0] = 0;
                at += at[1] == '\n' || at[1] == '\r' ? 1 : 0;
                line = at + 1;
            }
        }
        lines.push_back(line);
        benchmark::DoNotOptimize(lines.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * Settings1MiB().size()));
}

static void Inih(benchmark::State& state) {
    for (auto _ : state) {
        auto count = ParseWithInih(Settings1MiB().c_str());
        benchmark::DoNotOptimize(count);
    }
}

static void Glib(benchmark::State& state) {
    for (auto _ : state) {
        if (ParseWithGlib(Settings1MiB().c_str(), Settings1MiB().size()) < 3) {
            state.SkipWithError("the settings were not read");
            return;
        }
    }
}

namespace {
// --- One section, as full as it can be.

struct Entry {
    std::string key, value;
};
} // namespace

static const std::vector<Entry>& FullSection() {
    static const std::vector<Entry> Entries = [] {
        static constexpr const char* Families[] = {
            "DeviceID", "ParentDeviceID", "GrandParentDeviceID", "KernelName", "FriendlyName",
            "Location", "ParentLocation", "LocationPath",        "UsbPort",    "BusType"};
        std::vector<Entry> made;
        made.reserve(KeysOfASection);
        for (int i = 0; i < KeysOfASection; ++i) {
            made.push_back(
                {Families[i % 10] + std::to_string(i), "USB\\VID_0403&PID_6001\\A" + std::to_string(70000 + i)});
        }
        return made;
    }();
    return Entries;
}

// The keys to look up, in a long random sequence: branch prediction could learn a repeated sequence of 300 and make the
// search look too fast.
static const std::vector<const char*>& AllQuestions() {
    static const std::vector<const char*> Questions = [] {
        std::vector<const char*> drawn;
        drawn.reserve(LookUps);
        std::uint32_t random = 1;
        for (int i = 0; i < LookUps; ++i) {
            random = random * 1664525u + 1013904223u;
            drawn.push_back(FullSection()[(random >> 16) % KeysOfASection].key.c_str());
        }
        return drawn;
    }();
    return Questions;
}

static void LookUp(benchmark::State& state) {
    std::string text = "[ComPorts1]\r\n";
    for (const Entry& entry : FullSection()) {
        text += entry.key + "=" + entry.value + "\r\n";
    }
    WriteSettings(text);
    CCfgReader reader(szIniFile, nullptr, nullptr);
    reader.CreateSnapshot("benchmark");
    const std::uint64_t callsBefore = CountAllCalls();
    char value[ValueBytes];
    for (auto _ : state) {
        for (const char* key : AllQuestions()) {
            if (reader.GetString(ComPorts, 1, KeyName::Unchecked(key), "", value, sizeof(value)) == 0) {
                state.SkipWithError("a key is not there");
                return;
            }
            benchmark::ClobberMemory();
        }
        GoOnCalling();
    }
    const double asked = static_cast<double>(state.iterations()) * LookUps;
    state.counters["calls"] = static_cast<double>(CountAllCalls() - callsBefore) / asked;
}

// The machine's usual share of a look-up: its lock.
static void LockAlone(benchmark::State& state) {
    CRITICAL_SECTION lock;
    InitializeCriticalSection(&lock);
    for (auto _ : state) {
        for (int i = 0; i < LookUps; ++i) {
            EnterCriticalSection(&lock);
            LeaveCriticalSection(&lock);
        }
        GoOnCalling();
    }
    DeleteCriticalSection(&lock);
}

// The same work with a map: a key that comes as plain text, a value that goes into the caller's array.
template<typename Map>
static void LookUpIn(benchmark::State& state) {
    Map map;
    for (const Entry& entry : FullSection()) {
        map.emplace(entry.key, entry.value);
    }
    char value[ValueBytes];
    for (auto _ : state) {
        for (const char* key : AllQuestions()) {
            const auto found = map.find(std::string(key));
            if (found == map.end() || found->second.size() >= sizeof(value)) {
                state.SkipWithError("a key is not there");
                return;
            }
            std::memcpy(value, found->second.c_str(), found->second.size() + 1);
            benchmark::ClobberMemory();
        }
    }
}

static void OrderedMap(benchmark::State& state) {
    LookUpIn<std::map<std::string, std::string>>(state);
}

static void HashMap(benchmark::State& state) {
    LookUpIn<std::unordered_map<std::string, std::string>>(state);
}

BENCHMARK(Parse)->Name("Reader/Parse")->Unit(benchmark::kMicrosecond)->Apply(Repeated);
BENCHMARK(LineSplit)->Name("Reader/LineSplit")->Unit(benchmark::kMicrosecond)->Apply(Repeated);
BENCHMARK(Inih)->Name("Reader/Inih")->Unit(benchmark::kMicrosecond)->Apply(Repeated);
BENCHMARK(Glib)->Name("Reader/Glib")->Unit(benchmark::kMicrosecond)->Apply(Repeated);
BENCHMARK(LookUp)->Name("LookUp/Section")->Apply(Repeated);
BENCHMARK(LockAlone)->Name("LookUp/LockAlone")->Apply(Repeated);
BENCHMARK(OrderedMap)->Name("LookUp/OrderedMap")->Apply(Repeated);
BENCHMARK(HashMap)->Name("LookUp/HashMap")->Apply(Repeated);

static std::string ParseShare(const Measured& measured) {
    char text[160];
    std::snprintf(text, sizeof(text), "the parse takes %.2f ns a byte, the line split %.2f, libinih %.2f, GLib %.2f",
                  measured.Nanoseconds("Reader/Parse") / LargestFile,
                  measured.Nanoseconds("Reader/LineSplit") / LargestFile,
                  measured.Nanoseconds("Reader/Inih") / LargestFile, measured.Nanoseconds("Reader/Glib") / LargestFile);
    return text;
}

static std::string LockShare(const Measured& measured) {
    char text[200];
    std::snprintf(
        text, sizeof(text),
        "of %.0f ns the simulated machine's lock alone takes %.0f; an ordered map takes %.0f, a hash map %.0f",
        measured.Nanoseconds("LookUp/Section") / LookUps, measured.Nanoseconds("LookUp/LockAlone") / LookUps,
        measured.Nanoseconds("LookUp/OrderedMap") / LookUps, measured.Nanoseconds("LookUp/HashMap") / LookUps);
    return text;
}

const Mark SplitMark("parse of 1 MiB less one byte against a bare line split",
                     TimeRatio("Reader/Parse", "Reader/LineSplit"), Wanted::AtMost, 2, ParseShare);
const Mark InihMark("libinih against the parse", TimeRatio("Reader/Inih", "Reader/Parse"), Wanted::AtLeast, 3,
                    ParseShare);
const Mark GlibMark("GLib's key file against the parse", TimeRatio("Reader/Glib", "Reader/Parse"), Wanted::AtLeast, 3,
                    ParseShare);
const Mark OrderedMark("look-up among 300 keys against an ordered map",
                       TimeRatio("LookUp/Section", "LookUp/OrderedMap"), Wanted::AtMost, 1, LockShare);
const Mark HashMark("look-up among 300 keys against a hash map", TimeRatio("LookUp/Section", "LookUp/HashMap"),
                    Wanted::AtMost, 2, LockShare);
} // namespace bench
