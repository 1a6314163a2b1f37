// The kernel of the simulated machine under misbehaving programs.
#include "simwin/kernel/Call.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/machine/Machine.h"

#include <optional>
#include <set>

#include <gtest/gtest.h>

using machine::Verdict;

namespace {
struct Ran {
    machine::RunOutcome outcome;
    simwin::DWORD exitCode = 0;
    std::string output;
    std::size_t leakedHandles = 0;
    std::uint64_t endedMs = 0;
};
} // namespace

// A machine with one probe that does `deed`; its exit code 259 means that it never ended.
static Ran RunProbe(const char* deed, std::optional<std::uint64_t> seed = {}) {
    machine::Setup setup;
    setup.seed = seed;
    const machine::Machine machine(setup);
    machine::ProcessStart start;
    start.imagePath = "C:\\probe.exe";
    start.commandLine = std::string("\"C:\\probe.exe\" ") + deed;
    const machine::Process* process = machine::StartProduct(start);
    Ran ran;
    ran.outcome = machine::RunMachine({});
    ran.exitCode = process->exitCode;
    ran.output = process->debugOutput;
    ran.leakedHandles = process->leakedHandles;
    ran.endedMs = process->endedMs;
    return ran;
}

TEST(Kernel, TheSeedDecidesTheOrderOfARaceAndNothingElseDoes) {
    const std::string unseeded = RunProbe("race").output;
    EXPECT_EQ(unseeded, std::string(24, 'a') + std::string(24, 'b'));
    std::set<std::string> orders;
    for (std::uint64_t seed = 1; seed <= 20; ++seed) {
        const std::string first = RunProbe("race", seed).output;
        EXPECT_EQ(first, RunProbe("race", seed).output) << "seed " << seed;
        orders.insert(first);
    }
    EXPECT_GT(orders.size(), 10u);
}

TEST(Kernel, EachProcessHasGlobalsOfItsOwnAndAnEndedImageStartsAfresh) {
    machine::Setup setup;
    const machine::Machine machine(setup);
    machine::ProcessStart start;
    start.commandLine = "probe globals";
    const machine::Process* first = machine::StartProduct(start);
    const machine::Process* second = machine::StartProduct(start);
    EXPECT_EQ(machine::RunMachine({}).verdict, Verdict::Done);
    const machine::Process* later = machine::StartProduct(start);
    EXPECT_EQ(machine::RunMachine({}).verdict, Verdict::Done);
    EXPECT_EQ(first->exitCode, 42u);
    EXPECT_EQ(second->exitCode, 42u);
    EXPECT_EQ(later->exitCode, 42u) << "the image was used again with what the last process left in it";
}

TEST(Kernel, AThreadKeepsItsOwnLastError) {
    EXPECT_EQ(RunProbe("lasterrors").exitCode, 1234u);
}

TEST(Kernel, AProcessEndsWithItsThreadsWhereverTheyAre) {
    const Ran ran = RunProbe("threads");
    EXPECT_EQ(ran.outcome.verdict, Verdict::Done) << ran.outcome.text;
    EXPECT_EQ(ran.exitCode, 7u);
    EXPECT_EQ(ran.endedMs, 10u) << "time passed for a thread that was gone";
}

TEST(Kernel, AHandleLeftOpenIsCounted) {
    EXPECT_EQ(RunProbe("leak").leakedHandles, 1u);
    EXPECT_EQ(RunProbe("globals").leakedHandles, 0u);
}
