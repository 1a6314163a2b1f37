#include "simwin/devices/drivers/PendingInstalls.h"

#include "simwin/kernel/Scheduler.h"
#include "simwin/kernel/Setup.h"

#include <algorithm>

namespace machine {

namespace {
struct Installs {
    unsigned pending = 0;
    WaitQueue waiters;
};
} // namespace
static Installs* g_installs;

RoomPtr MakePendingInstalls() {
    return MakeRoom(g_installs);
}

static void EndOne() {
    if (--g_installs->pending > 0) {
        return;
    }
    while (!g_installs->waiters.empty()) {
        Wake(g_installs->waiters.front(), 0);
    }
}

void BeginInstall(DeviceNode& node) {
    if (node.installing) {
        return;
    }
    node.installing = true;
    ++g_installs->pending;
}

void FinishInstall(DeviceNode& node) {
    if (!node.installing) {
        return;
    }
    node.installing = false;
    After(TheSetup().firstInstallMs, EndOne);
}

void ForgetInstalls() {
    g_installs->pending = 0;
    for (DeviceNode* node : TheDeviceTree().AllEver()) {
        node->installing = false;
    }
}

bool WaitForInstalls(simwin::DWORD ms) {
    const std::uint64_t limit = ms == simwin::INFINITE ? ~0ull : Now() + ms;
    for (;;) {
        const std::uint64_t described = TheSetup().pendingInstallsUntilMs.value_or(0);
        if (Now() >= described && g_installs->pending == 0) {
            return true;
        }
        if (Now() >= limit) {
            return false;
        }
        if (Now() < described) {
            SleepMs(std::min(described, limit) - Now());
        } else {
            Block(WaitKind::Machine, "pending installs", limit == ~0ull ? NoLimit : limit - Now(),
                  &g_installs->waiters);
        }
    }
}

} // namespace machine
