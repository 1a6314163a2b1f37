#include "simwin/kernel/Fiber.h"

#include "simwin/kernel/Scheduler.h"

#include <cstdlib>
#include <map>
#include <vector>

#include <boost/context/detail/fcontext.hpp>
#include <sys/mman.h>

#if defined(__SANITIZE_ADDRESS__)
#define SIMWIN_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define SIMWIN_ASAN 1
#endif
#endif

#ifdef SIMWIN_ASAN
#include <sanitizer/asan_interface.h>
#include <sanitizer/common_interface_defs.h>
#include <sanitizer/lsan_interface.h>
#endif

namespace machine {

using boost::context::detail::fcontext_t;
using boost::context::detail::transfer_t;

constexpr std::size_t GuardBytes = 64 * 1024;

static std::map<std::size_t, std::vector<void*>> g_freeStacks; // by size
static std::map<const char*, std::size_t> g_allStacks;         // guard pages included
static fcontext_t g_schedulerContext;
static const void* g_schedulerStack;
static std::size_t g_schedulerStackSize;
static void (*g_threadMain)(Thread*);

#ifdef SIMWIN_ASAN
constexpr std::size_t SanitizerFactor = 4; // instrumented frames are larger

static void StartSwitch(void** fakeStack, const void* bottom, std::size_t size) {
    __sanitizer_start_switch_fiber(fakeStack, bottom, size);
}
static void FinishSwitch(void* fakeStack, const void** bottom, std::size_t* size) {
    __sanitizer_finish_switch_fiber(fakeStack, bottom, size);
}
static void StackTaken(void* stack, std::size_t bytes) {
    __lsan_register_root_region(stack, bytes);
}
static void StackGiven(void* stack, std::size_t bytes) {
    __lsan_unregister_root_region(stack, bytes);
    __asan_unpoison_memory_region(stack, bytes);
}
#else
constexpr std::size_t SanitizerFactor = 1;
static void StartSwitch(void**, const void*, std::size_t) {
}
static void FinishSwitch(void*, const void**, std::size_t*) {
}
static void StackTaken(void*, std::size_t) {
}
static void StackGiven(void*, std::size_t) {
}
#endif

static std::size_t WholeSize(std::size_t bytes) {
    return bytes * SanitizerFactor;
}

static void FiberEntry(transfer_t transfer) {
    FinishSwitch(nullptr, &g_schedulerStack, &g_schedulerStackSize);
    g_schedulerContext = transfer.fctx;
    g_threadMain(static_cast<Thread*>(transfer.data));
}

Stack TakeStack(std::size_t bytes) {
    auto& free = g_freeStacks[bytes];
    void* stack;
    if (!free.empty()) {
        stack = free.back();
        free.pop_back();
    } else {
        const std::size_t whole = WholeSize(bytes) + GuardBytes;
        auto* memory = static_cast<char*>(
            mmap(nullptr, whole, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
        if (memory == MAP_FAILED) {
            StopRun(Verdict::Crash, "the host has no memory for a stack");
        }
        mprotect(memory, GuardBytes, PROT_NONE);
        g_allStacks.emplace(memory, whole);
        stack = memory + GuardBytes;
    }
    StackTaken(stack, WholeSize(bytes));
    return Stack(stack, {bytes});
}

void ReturnStack::operator()(void* stack) const {
    StackGiven(stack, WholeSize(bytes));
    g_freeStacks[bytes].push_back(stack);
}

void FreeStacks() {
    for (const auto& [memory, whole] : g_allStacks) {
        munmap(const_cast<char*>(memory), whole);
    }
    g_allStacks.clear();
    g_freeStacks.clear();
}

bool IsStackGuard(const void* address) {
    auto after = g_allStacks.upper_bound(static_cast<const char*>(address));
    if (after == g_allStacks.begin()) {
        return false;
    }
    --after;
    return static_cast<const char*>(address) < after->first + GuardBytes;
}

void SwitchToFiber(Thread* thread, void (*main)(Thread*)) {
    g_threadMain = main;
    const std::size_t size = WholeSize(thread->stack.get_deleter().bytes);
    if (!thread->started) {
        thread->started = true;
        thread->context =
            boost::context::detail::make_fcontext(static_cast<char*>(thread->stack.get()) + size, size, FiberEntry);
    }
    void* fakeStack = nullptr;
    StartSwitch(&fakeStack, thread->stack.get(), size);
    const transfer_t back = boost::context::detail::jump_fcontext(thread->context, thread);
    FinishSwitch(fakeStack, nullptr, nullptr);
    // An ended thread still exists here, since the scheduler reaps it only afterwards.
    thread->context = back.fctx;
}

void SwitchToScheduler(Thread* thread) {
    StartSwitch(&thread->fakeStack, g_schedulerStack, g_schedulerStackSize);
    const transfer_t turn = boost::context::detail::jump_fcontext(g_schedulerContext, nullptr);
    FinishSwitch(thread->fakeStack, &g_schedulerStack, &g_schedulerStackSize);
    g_schedulerContext = turn.fctx;
}

void LeaveFiberForEver(Thread*) {
    StartSwitch(nullptr, g_schedulerStack, g_schedulerStackSize);
    boost::context::detail::jump_fcontext(g_schedulerContext, nullptr);
    std::abort();
}

} // namespace machine
