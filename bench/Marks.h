// The marks of the benchmarks: wanted numbers, each measured in the same run as its reference. A benchmark's
// file declares its marks as globals; the end of the run prints a line for each: name, measured, mark, met or missed.
// Times are the fastest of all repetitions, so that other work of the host affects neither side.
#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <map>
#include <string>

namespace bench {

// What the run has measured so far.
class Measured {
public:
    // Nanoseconds of one iteration of a benchmark, by its registered name with its argument ("Ports/Snapshot/512");
    // 0 if it did not run.
    double Nanoseconds(const std::string& benchmark) const;
    // A counter that a benchmark set in its state, 0 if there is none.
    double Counter(const std::string& benchmark, const std::string& counter) const;
    void Note(const benchmark::BenchmarkReporter::Run& run);

private:
    struct Fastest {
        double nanoseconds;
        benchmark::UserCounters counters;
    };
    std::map<std::string, Fastest> m_fastest;
};

enum class Wanted { AtMost, AtLeast, Nothing }; // Nothing: only reported

inline constexpr double NotMeasured = -1;

// value: gives NotMeasured when a benchmark that it needs did not run; the line is left out then.
// reason: why it is missed, from the measurements; called only then.
struct Mark {
    Mark(std::string name, std::function<double(const Measured&)> value, Wanted wanted, double mark,
         std::function<std::string(const Measured&)> reason = {});

    std::string name;
    std::function<double(const Measured&)> value;
    Wanted wanted;
    double mark;
    std::function<std::string(const Measured&)> reason;
};

// The time of one benchmark divided by that of another.
std::function<double(const Measured&)> TimeRatio(std::string of, std::string to);

// Runs the requested benchmarks and prints the lines. Returns: the exit code, 0 also when a mark is missed, 1 when a
// benchmark reported an error.
int RunAndJudge();

// Takes the command line of the program. Returns: false if it contains something unknown.
bool TakeArguments(int count, char** arguments);

// Applied to each benchmark that is one side of a ratio.
void Repeated(benchmark::internal::Benchmark* subject);

} // namespace bench
