#include "bench/OwnShare.h"

#include <atomic>
#include <cstdint>

#include <dlfcn.h>
#include <link.h>
#include <ucontext.h>

// The linker's own names for the limits of the section in which the build collects the product's code.
extern char g_codeStart[] asm("__start_qm_code");
extern char g_codeEnd[] asm("__stop_qm_code");

namespace bench {

constexpr long IntervalNs = 53'000; // not a round number, so that no work runs in step with it

namespace {
// The code of one loaded object.
struct CodeRange {
    std::uintptr_t inside = 0; // an address in it, by which it is found
    std::uintptr_t begin = 0, end = 0;
    bool Holds(std::uintptr_t address) const { return address >= begin && address < end; }
};
} // namespace

static CodeRange g_product, g_library;
static std::atomic<bool> g_isCounting;
static std::atomic<unsigned> g_samples, g_own;

static int FindRange(dl_phdr_info* object, std::size_t, void* argument) {
    auto* range = static_cast<CodeRange*>(argument);
    for (int i = 0; i < object->dlpi_phnum; ++i) {
        const auto& segment = object->dlpi_phdr[i];
        const std::uintptr_t begin = object->dlpi_addr + segment.p_vaddr;
        if (segment.p_type == PT_LOAD && range->inside >= begin && range->inside < begin + segment.p_memsz) {
            range->begin = begin;
            range->end = begin + segment.p_memsz;
            return 1;
        }
    }
    return 0;
}

static CodeRange RangeAround(std::uintptr_t inside) {
    CodeRange range{inside};
    dl_iterate_phdr(FindRange, &range);
    return range;
}

static void TakeSample(int, siginfo_t*, void* context) {
    if (!g_isCounting) {
        return;
    }
    ++g_samples;
#ifdef __x86_64__
    const auto& registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
    const auto at = static_cast<std::uintptr_t>(registers[REG_RIP]);
    bool isOwn = g_product.Holds(at);
    if (g_library.Holds(at)) {
        // The string functions have no frame of their own: the top entry is their caller.
        isOwn = g_product.Holds(*reinterpret_cast<const std::uintptr_t*>(registers[REG_RSP]));
    }
    g_own += isOwn ? 1 : 0;
#else
    static_cast<void>(context);
#endif
}

OwnShare::OwnShare() {
    g_product = {0, reinterpret_cast<std::uintptr_t>(g_codeStart), reinterpret_cast<std::uintptr_t>(g_codeEnd)};
    g_library = RangeAround(reinterpret_cast<std::uintptr_t>(dlsym(RTLD_DEFAULT, "strlen")));
    g_samples = 0;
    g_own = 0;
    g_isCounting = false;
    struct sigaction action = {};
    action.sa_sigaction = TakeSample;
    action.sa_flags = SA_SIGINFO | SA_RESTART | SA_ONSTACK;
    sigaction(SIGPROF, &action, &m_before);
    sigevent event = {};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGPROF;
    timer_create(CLOCK_MONOTONIC, &event, &m_timer);
    const itimerspec interval = {{0, IntervalNs}, {0, IntervalNs}};
    timer_settime(m_timer, 0, &interval, nullptr);
}

OwnShare::~OwnShare() {
    g_isCounting = false;
    timer_delete(m_timer);
    // A last signal may be pending: with the default action it would end the program.
    signal(SIGPROF, SIG_IGN);
    sigaction(SIGPROF, &m_before, nullptr);
}

void OwnShare::Begin() {
    g_isCounting = true;
}

void OwnShare::End() {
    g_isCounting = false;
}

unsigned OwnShare::Samples() {
    return g_samples;
}

double OwnShare::Share() {
    return g_samples != 0 ? static_cast<double>(g_own) / static_cast<double>(g_samples) : 0;
}

} // namespace bench
