// One-shot timers: what runs, what does not, what a kill means, and the end with a procedure still running.
#include "actions/CallBackTimer.h"
#include "tests/unit/Log.h"

#include <vector>

using namespace logtest;

using Contexts = std::vector<ULONG_PTR>;

static Contexts g_ran;
static DWORD g_procedureMs;

static void Note(DWORD, ULONG_PTR context) {
    g_ran.push_back(context);
    Sleep(g_procedureMs);
}

static void CreateAgain(DWORD id, ULONG_PTR context) {
    Note(id, context);
    if (context < 3) {
        CreateCallbackTimer(100, id, context + 1, CreateAgain);
    }
}

namespace {
class CallBackTimer : public testing::Test {
protected:
    CallBackTimer() {
        StartLog();
        InitCallbackTimers();
    }
};
} // namespace

TEST_F(CallBackTimer, RunsOnceAfterItsDelay) {
    EXPECT_EQ(CreateCallbackTimer(100, 0, 1, Note), 0x100000u);
    EXPECT_EQ(CreateCallbackTimer(100, 0, 2, Note), 0x100001u) << "generated ids count up";
    EXPECT_EQ(CreateCallbackTimer(150, 7, 1, CreateAgain), 7u);
    Sleep(99);
    EXPECT_TRUE(g_ran.empty());
    Sleep(1000);
    EXPECT_EQ(g_ran, (Contexts{1, 2, 1, 2, 3})) << "a procedure may create its own id again";
    EXPECT_EQ(KillCallbackTimer(7), 0u);
    const DWORD start = GetTickCount();
    ExitCallbackTimers();
    EXPECT_EQ(GetTickCount(), start) << "without a timer the end does not wait";
}

TEST_F(CallBackTimer, AKillHitsTheFirstThatFits) {
    CreateCallbackTimer(100, 1, 1, Note, "A");
    CreateCallbackTimer(100, 2, 2, Note, "B");
    CreateCallbackTimer(100, 3, 3, Note, "B");
    CreateCallbackTimer(100, 4, 4, Note);
    EXPECT_EQ(KillCallbackTimer(0), 0u);
    EXPECT_EQ(KillCallbackTimer(0, ""), 0u);
    EXPECT_EQ(KillCallbackTimer(9, "A"), 0u) << "with an id the name does not count";
    EXPECT_EQ(KillCallbackTimer(0, "b"), 0u) << "a name is exact";
    EXPECT_EQ(KillCallbackTimer(0, "B"), 1u);
    EXPECT_TRUE(Logged("KillCallbackTimer name=B called SetEvent("));
    EXPECT_EQ(KillCallbackTimer(4, "A"), 1u);
    EXPECT_EQ(KillCallbackTimer(1), 1u);
    Sleep(1000);
    EXPECT_EQ(g_ran, (Contexts{3}));
    EXPECT_EQ(CountLogged(" timer has been killed"), 3);
}

TEST_F(CallBackTimer, AnIdInUseIsReplacedAndADelayBelowOneOnlyKills) {
    CreateCallbackTimer(100, 5, 1, Note);
    CreateCallbackTimer(100, 5, 6, Note);
    EXPECT_EQ(CreateCallbackTimer(100, 5, 2, Note), 5u) << "also while the thread of the first has not seen its end";
    for (const LONG delay : {0, -1}) {
        CreateCallbackTimer(100, 6, 3, Note);
        EXPECT_EQ(CreateCallbackTimer(delay, 6, 4, Note), 0u);
        Sleep(1); // until its thread has released the slot
    }
    EXPECT_EQ(CreateCallbackTimer(100, 7, 5, nullptr), 0u);
    Sleep(1000);
    EXPECT_EQ(g_ran, (Contexts{2}));
}

TEST_F(CallBackTimer, TheHundredAndFirstIsRefusedUntilOneHasFinished) {
    for (DWORD id = 1; id <= 100; ++id) {
        EXPECT_EQ(CreateCallbackTimer(id == 50 ? 100 : 5000, id, id, Note), id);
    }
    EXPECT_EQ(CreateCallbackTimer(100, 101, 101, Note), 0u);
    EXPECT_TRUE(Logged("no more timers!"));
    Sleep(500);
    EXPECT_EQ(CreateCallbackTimer(100, 101, 101, Note), 101u);
    EXPECT_EQ(KillAllCallbackTimers(), 100u);
    Sleep(6000);
    EXPECT_EQ(g_ran, (Contexts{50}));
    EXPECT_EQ(KillAllCallbackTimers(), 0u);
}

TEST_F(CallBackTimer, AKillDoesNotStopAProcedure) {
    g_procedureMs = 1000;
    CreateCallbackTimer(100, 5, 1, Note);
    Sleep(500);
    EXPECT_EQ(KillCallbackTimer(5), 1u) << "signalled, not stopped";
    EXPECT_EQ(CreateCallbackTimer(100, 5, 2, Note), 5u);
    Sleep(300);
    EXPECT_EQ(g_ran, (Contexts{1, 2})) << "the new one has a slot of its own";
    Sleep(2000);
    EXPECT_EQ(KillCallbackTimer(5), 0u);
}

TEST_F(CallBackTimer, TheEndLeavesARunningProcedureItsRecord) {
    g_procedureMs = 5000;
    CreateCallbackTimer(100, 5, 1, Note);
    CreateCallbackTimer(8000, 6, 2, Note);
    Sleep(500);
    const DWORD start = GetTickCount();
    ExitCallbackTimers();
    EXPECT_EQ(GetTickCount() - start, 1000u);
    EXPECT_EQ(CreateCallbackTimer(100, 7, 3, Note), 0u) << "no timer is made any more";
    Sleep(20'000);
    EXPECT_EQ(g_ran, (Contexts{1}));
    ExitCallbackTimers();
}
