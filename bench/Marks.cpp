#include "bench/Marks.h"

#include <cstdio>
#include <utility>
#include <vector>

#include <unistd.h>

namespace bench {

constexpr int Repetitions = 9;
constexpr double RepetitionSeconds = 0.05;

static std::vector<const Mark*>& Marks() {
    static std::vector<const Mark*> marks;
    return marks;
}

static std::string NameOf(const benchmark::BenchmarkReporter::Run& run) {
    std::string name = run.run_name.function_name;
    if (!run.run_name.args.empty()) {
        name += "/" + run.run_name.args;
    }
    return name;
}

namespace {
// Shows the fastest repetition of each benchmark, and keeps it.
class Reporter : public benchmark::ConsoleReporter {
public:
    explicit Reporter(Measured* measured)
        : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_ColorTabular : OO_Tabular), m_measured(measured) {}

    void ReportRuns(const std::vector<Run>& runs) override {
        const Run* fastest = nullptr;
        for (const Run& run : runs) {
            if (run.error_occurred) {
                m_failed = true;
                ConsoleReporter::ReportRuns({run});
                return;
            }
            if (run.run_type == Run::RT_Iteration) {
                m_measured->Note(run);
                if (!fastest || run.GetAdjustedCPUTime() < fastest->GetAdjustedCPUTime()) {
                    fastest = &run;
                }
            }
        }
        if (fastest) {
            Run shown = *fastest;
            shown.run_name.min_time.clear();
            shown.run_name.repetitions.clear();
            ConsoleReporter::ReportRuns({shown});
        }
    }

    bool HasFailed() const { return m_failed; }

private:
    Measured* m_measured;
    bool m_failed = false;
};
} // namespace

static std::string WantedText(const Mark& mark) {
    char text[64];
    std::snprintf(text, sizeof(text), "%s %.4g", mark.wanted == Wanted::AtMost ? "at most" : "at least", mark.mark);
    return mark.wanted == Wanted::Nothing ? "-" : text;
}

static void Judge(const Mark& mark, const Measured& measured) {
    const double value = mark.value(measured);
    if (value < 0) {
        return;
    }
    const bool isMet = mark.wanted == Wanted::Nothing || (mark.wanted == Wanted::AtMost && value <= mark.mark) ||
                       (mark.wanted == Wanted::AtLeast && value >= mark.mark);
    std::string verdict = mark.wanted == Wanted::Nothing ? "noted" : "met";
    if (!isMet) {
        verdict = "missed: " + (mark.reason ? mark.reason(measured) : std::string("no reason is known"));
    }
    std::printf("%-66s %10.3f  %-14s %s\n", mark.name.c_str(), value, WantedText(mark).c_str(), verdict.c_str());
}

double Measured::Nanoseconds(const std::string& benchmark) const {
    const auto found = m_fastest.find(benchmark);
    return found == m_fastest.end() ? 0 : found->second.nanoseconds;
}

double Measured::Counter(const std::string& benchmark, const std::string& counter) const {
    const auto found = m_fastest.find(benchmark);
    if (found == m_fastest.end()) {
        return 0;
    }
    const auto value = found->second.counters.find(counter);
    return value == found->second.counters.end() ? 0 : value->second.value;
}

void Measured::Note(const benchmark::BenchmarkReporter::Run& run) {
    const double nanoseconds = run.GetAdjustedCPUTime() / benchmark::GetTimeUnitMultiplier(run.time_unit) * 1e9;
    const auto [at, isNew] = m_fastest.try_emplace(NameOf(run), Fastest{nanoseconds, run.counters});
    if (!isNew && nanoseconds < at->second.nanoseconds) {
        at->second = {nanoseconds, run.counters};
    }
}

Mark::Mark(std::string markName, std::function<double(const Measured&)> markValue, Wanted markWanted,
           double wantedValue, std::function<std::string(const Measured&)> markReason)
    : name(std::move(markName)), value(std::move(markValue)), wanted(markWanted), mark(wantedValue),
      reason(std::move(markReason)) {
    Marks().push_back(this);
}

std::function<double(const Measured&)> TimeRatio(std::string of, std::string to) {
    return [of = std::move(of), to = std::move(to)](const Measured& measured) {
        const double divisor = measured.Nanoseconds(to), dividend = measured.Nanoseconds(of);
        return divisor > 0 && dividend > 0 ? dividend / divisor : NotMeasured;
    };
}

int RunAndJudge() {
    Measured measured;
    Reporter reporter(&measured);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("\n%-66s %10s  %-14s %s\n", "what is wanted", "measured", "mark", "verdict");
    for (const Mark* mark : Marks()) {
        Judge(*mark, measured);
    }
    std::fflush(stdout);
    return reporter.HasFailed() ? 1 : 0;
}

bool TakeArguments(int count, char** arguments) {
    benchmark::Initialize(&count, arguments);
    return !benchmark::ReportUnrecognizedArguments(count, arguments);
}

void Repeated(benchmark::internal::Benchmark* subject) {
    subject->Repetitions(Repetitions)->MinTime(RepetitionSeconds);
}

} // namespace bench
