#include "fuzz/Stage.h"

#include "simwin/kernel/Call.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/machine/Machine.h"

#include "support/log/LogFile.h"
#include "support/system/CRTreplace.h"
#include "support/system/OsVersion.h"
#include "support/system/SupportLocks.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace fuzz {

static machine::Machine* g_machine; // until the program ends
static machine::Thread* g_thread;
static std::string_view g_input;
static bool g_isTried;

[[noreturn]] static void Serve() {
    InitAllocator();
    InitSupportLocks();
    g_os.MajorVersion = 10;
    Prepare();
    for (;;) {
        machine::Block(machine::WaitKind::Object, "an input", machine::NoLimit);
        TryInput(g_input);
        g_isTried = true;
    }
}

static void RunUntilItWaits() {
    machine::Counts().callsSinceTimeMoved = 0;
    const machine::RunOutcome outcome = machine::RunMachine({});
    if (outcome.verdict != machine::Verdict::Done) {
        std::fprintf(stderr, "%s\n", machine::OutcomeLine(outcome).c_str());
        std::abort();
    }
}

static void Start() {
    machine::Setup setup;
    g_machine = new machine::Machine(setup);
    machine::ProcessStart start;
    start.imagePath = setup.directory + "\\" + setup.executable;
    start.commandLine = "\"" + start.imagePath + "\"";
    start.currentDirectory = setup.directory;
    start.user = "NT AUTHORITY\\SYSTEM";
    machine::Process* process = machine::StartHosted(start, [] {
        Serve();
        return 0;
    });
    g_thread = process->threads.front();
    RunUntilItWaits();
}

void Require(bool isTrue, const char* what) {
    if (!isTrue) {
        std::fprintf(stderr, "does not hold: %s\n", what);
        std::abort();
    }
}

std::string TextOf(std::string_view input) {
    return std::string(input.data(), input.substr(0, input.find('\0')).size());
}

} // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (!fuzz::g_thread) {
        fuzz::Start();
    }
    fuzz::g_input = std::string_view(reinterpret_cast<const char*>(data), size);
    fuzz::g_isTried = false;
    machine::Wake(fuzz::g_thread, WAIT_OBJECT_0);
    fuzz::RunUntilItWaits();
    fuzz::Require(fuzz::g_isTried, "the thread comes back from its input");
    return 0;
}
