// The match of a section's criterion: on the ids of real ports, and on its worst pattern.
#include "bench/Marks.h"
#include "bench/Rivals.h"

#include "engine/WildcardMatch.h"

#include <clocale>
#include <cstdio>
#include <iterator>
#include <string>

namespace bench {
constexpr const char* DeviceIds[] = {
    "ACPI\\PNP0501\\1",
    "ACPI\\PNP0501\\4&33d1638a&0",
    "PCI\\VEN_8086&DEV_9D3D&SUBSYS_06B91028&REV_21\\3&11583659&0&B3",
    "PCI\\VEN_1415&DEV_C158&SUBSYS_C1581415&REV_00\\4&2dc0fa8e&0&00E4",
    "FTDIBUS\\VID_0403+PID_6001+A702TB52A\\0000",
    "FTDIBUS\\VID_0403+PID_6001+AR0JFBPEA\\0000",
    "FTDIBUS\\VID_0403+PID_6010+FT3XK91BA\\0000",
    "FTDIBUS\\VID_0403+PID_6010+FT3XK91BB\\0000",
    "FTDIBUS\\VID_0403+PID_6011+6&2B8A46C4&0&3&1\\0000",
    "USB\\VID_067B&PID_2303\\5&1A2B3C4D&0&2",
    "USB\\VID_10C4&PID_EA60\\0001",
    "USB\\VID_10C4&PID_EA71&MI_02\\7&1e9e0f2b&0&0002",
    "USB\\VID_1A86&PID_7523\\6&30C8CA5F&0&4",
    "USB\\VID_2341&PID_0043\\8573531333135121D172",
    "USB\\VID_12D1&PID_1003&MI_00\\6&2F9E5A1C&0&0000",
    "USB\\VID_04E8&PID_6860&MODEM\\6&27A1B7C3&0&0001",
    "BTHENUM\\{00001101-0000-1000-8000-00805F9B34FB}_LOCALMFG&0002\\7&1DE3F8C2&0&001583AB12CD_C00000000",
    "MF\\PCI#VEN_9710&DEV_9922&SUBSYS_A0001000&REV_00\\4&14b48bc4&0&00E5",
};

// As administrators write them.
constexpr const char* Patterns[] = {
    "FTDIBUS\\*",
    "FTDIBUS\\VID_0403+PID_6001+A702TB52A\\*",
    "USB\\VID_10C4&PID_EA60\\*",
    "usb\\vid_067b&pid_2303*",
    "*VID_1A86*",
    "*&MI_02\\*",
    "ACPI\\PNP0501\\?",
    "PCI\\VEN_????&DEV_C158*",
    "*\\0000",
    "BTHENUM\\*_C00000000",
};

// A run of one letter against a pattern that fits everywhere except for its last character.
static std::string WorstText(std::size_t length) {
    return std::string(length, 'a');
}
static std::string WorstPattern(std::size_t length) {
    return "*" + std::string(length, 'a') + "b";
}
// As many stars as the pattern has room for: a search that backtracks to each of them would not finish.
static std::string StarPattern(std::size_t length) {
    std::string pattern;
    while (pattern.size() < length) {
        pattern += "*a";
    }
    return pattern + "b";
}

template<typename Match>
static void MatchAll(benchmark::State& state, Match match) {
    for (auto _ : state) {
        for (const char* id : DeviceIds) {
            for (const char* pattern : Patterns) {
                auto fits = match(id, pattern);
                benchmark::DoNotOptimize(fits);
            }
        }
    }
}

static void OwnMatch(benchmark::State& state) {
    for (const char* id : DeviceIds) {
        for (const char* pattern : Patterns) {
            if ((WildcardMatch(id, pattern) != 0) != MatchWithFnmatch(id, pattern)) {
                state.SkipWithError("the two matches do not agree");
                return;
            }
        }
    }
    MatchAll(state, WildcardMatch);
}

static void FnmatchAsBytes(benchmark::State& state) {
    MatchAll(state, MatchWithFnmatch);
}

// As in a program that sets its user's locale, which is a UTF-8 one today.
static void FnmatchInUtf8(benchmark::State& state) {
    if (!std::setlocale(LC_CTYPE, "C.UTF-8")) {
        state.SkipWithError("there is no locale of UTF-8");
        return;
    }
    MatchAll(state, MatchWithFnmatch);
    std::setlocale(LC_CTYPE, "C");
}

template<typename MakePattern>
static void Worst(benchmark::State& state, MakePattern makePattern) {
    const auto textLength = static_cast<std::size_t>(state.range(0)), patternLength = textLength / 8;
    const std::string text = WorstText(textLength), pattern = makePattern(patternLength);
    for (auto _ : state) {
        auto fits = WildcardMatch(text.c_str(), pattern.c_str());
        benchmark::DoNotOptimize(fits);
    }
    // Nanoseconds are divided by this in the mark.
    state.counters["product"] = static_cast<double>(text.size() * pattern.size());
}

static void OneStar(benchmark::State& state) {
    Worst(state, WorstPattern);
}

static void ManyStars(benchmark::State& state) {
    Worst(state, StarPattern);
}

static std::function<double(const Measured&)> Growth(const std::string& benchmark) {
    return [benchmark](const Measured& measured) {
        const auto costOf = [&](const std::string& name) {
            const double product = measured.Counter(name, "product");
            return product > 0 ? measured.Nanoseconds(name) / product : 0;
        };
        const double small = costOf(benchmark + "/512"), large = costOf(benchmark + "/8192");
        return small > 0 && large > 0 ? large / small : NotMeasured;
    };
}

BENCHMARK(OwnMatch)->Name("Wildcard/Match")->Apply(Repeated);
BENCHMARK(FnmatchInUtf8)->Name("Wildcard/FnmatchInUtf8")->Apply(Repeated);
BENCHMARK(FnmatchAsBytes)->Name("Wildcard/FnmatchAsBytes")->Apply(Repeated);
BENCHMARK(OneStar)->Name("Wildcard/OneStar")->Arg(512)->Arg(8192)->Apply(Repeated);
BENCHMARK(ManyStars)->Name("Wildcard/ManyStars")->Arg(512)->Arg(8192)->Apply(Repeated);

static std::string MatchShare(const Measured& measured) {
    constexpr double Matches = static_cast<double>(std::size(DeviceIds) * std::size(Patterns));
    char text[160];
    std::snprintf(
        text, sizeof(text), "a match takes %.1f ns, most of which end at the first character; fnmatch takes %.1f ns",
        measured.Nanoseconds("Wildcard/Match") / Matches, measured.Nanoseconds("Wildcard/FnmatchAsBytes") / Matches);
    return text;
}

const Mark MatchMark("fnmatch in a UTF-8 locale against WildcardMatch on device ids",
                     TimeRatio("Wildcard/FnmatchInUtf8", "Wildcard/Match"), Wanted::AtLeast, 5, MatchShare);
const Mark MatchBytesMark("fnmatch in the C locale against WildcardMatch on device ids",
                          TimeRatio("Wildcard/FnmatchAsBytes", "Wildcard/Match"), Wanted::AtLeast, 5, MatchShare);
const Mark OneStarMark("time for text times pattern, 256 times as much, a long run after a star",
                       Growth("Wildcard/OneStar"), Wanted::AtMost, 1.1);
const Mark ManyStarsMark("time for text times pattern, 256 times as much, as many stars as fit",
                         Growth("Wildcard/ManyStars"), Wanted::AtMost, 1.1);
} // namespace bench
