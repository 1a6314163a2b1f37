#include "simwin/kernel/Locks.h"

#include "simwin/kernel/Call.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/api.h"

#include <memory>
#include <set>
#include <utility>

#include <fmt/format.h>

namespace machine {

namespace {
struct Locks {
    // In the order of creation. Kept until the process ends, so that a report can name a lock after its deletion.
    std::vector<std::unique_ptr<Lock>> all;
    // Pairs (outer, inner) in which locks were entered: the reverse pair is a deadlock waiting to happen.
    std::set<std::pair<const Lock*, const Lock*>> orders;
    // How many of them some thread owns. With none there is no order to check.
    std::size_t owned = 0;
};
} // namespace
static Locks* g_locks;

RoomPtr MakeLocks() {
    return MakeRoom(g_locks);
}

static Lock* LockOf(const simwin::CRITICAL_SECTION* section, const char* call) {
    auto* lock = static_cast<Lock*>(section->DebugInfo);
    // Its index when it was created; it may have moved up since.
    const std::size_t place = section->SpinCount;
    if (place < g_locks->all.size() && g_locks->all[place].get() == lock && lock->section == section) {
        return lock;
    }
    for (const auto& known : g_locks->all) {
        if (known.get() == lock && known->section == section) {
            return lock;
        }
    }
    BrokenRule(call, "a critical section that is not initialised");
}

static void CheckOrder(const Lock* inner) {
    if (g_locks->owned == 0) {
        return;
    }
    const Thread* thread = CurrentThread();
    for (const auto& known : g_locks->all) {
        const Lock* outer = known.get();
        if (outer->owner != thread || outer == inner) {
            continue;
        }
        if (g_locks->orders.contains({inner, outer})) {
            BrokenRule("EnterCriticalSection", "two locks are entered in both orders");
        }
        g_locks->orders.insert({outer, inner});
    }
}

static void Own(Lock* lock, Thread* thread) {
    lock->owner = thread;
    lock->depth = 1;
    ++g_locks->owned;
}

static void Disown(Lock* lock) {
    if (lock->owner) {
        --g_locks->owned;
    }
    lock->owner = nullptr;
}

std::string DescribeHolder(const Thread* waiter) {
    for (const auto& lock : g_locks->all) {
        if (waiter->waitQueue == &lock->waiters && lock->owner) {
            return fmt::format(", held by thread {} (last call {})", lock->owner->id, lock->owner->call);
        }
    }
    return "";
}

std::vector<const Lock*> HeldLocks() {
    std::vector<const Lock*> held;
    for (const auto& lock : g_locks->all) {
        if (lock->owner) {
            held.push_back(lock.get());
        }
    }
    return held;
}

void ForgetLocks(const Process* process) {
    std::erase_if(g_locks->all, [process](const std::unique_ptr<Lock>& owned) {
        Lock* lock = owned.get();
        if (lock->process != process) {
            return false;
        }
        std::erase_if(g_locks->orders, [lock](const auto& pair) { return pair.first == lock || pair.second == lock; });
        Disown(lock);
        return true;
    });
}

} // namespace machine

namespace simwin {

using machine::Lock;

void InitializeCriticalSection(CRITICAL_SECTION* section) {
    SIM_CALL("InitializeCriticalSection", "");
    Lock* lock = machine::g_locks->all.emplace_back(std::make_unique<Lock>()).get();
    lock->process = machine::CurrentProcess();
    lock->section = section;
    *section = {};
    section->DebugInfo = lock;
    section->LockCount = -1;
    section->SpinCount = machine::g_locks->all.size() - 1;
}

void DeleteCriticalSection(CRITICAL_SECTION* section) {
    SIM_CALL("DeleteCriticalSection", "");
    Lock* lock = machine::LockOf(section, "DeleteCriticalSection");
    if (!lock->waiters.empty()) {
        machine::BrokenRule("DeleteCriticalSection", "a thread waits for the lock");
    }
    lock->section = nullptr;
    machine::Disown(lock);
    section->DebugInfo = nullptr;
}

void EnterCriticalSection(CRITICAL_SECTION* section) {
    SIM_CALL("EnterCriticalSection", "");
    Lock* lock = machine::LockOf(section, "EnterCriticalSection");
    machine::Thread* thread = machine::CurrentThread();
    if (lock->owner == thread) {
        ++lock->depth;
        return;
    }
    machine::CheckOrder(lock);
    if (lock->owner) {
        machine::Block(machine::WaitKind::CriticalSection, "a critical section", machine::NoLimit, &lock->waiters);
    } else {
        machine::Own(lock, thread);
    }
}

BOOL TryEnterCriticalSection(CRITICAL_SECTION* section) {
    SIM_CALL("TryEnterCriticalSection", "");
    Lock* lock = machine::LockOf(section, "TryEnterCriticalSection");
    machine::Thread* thread = machine::CurrentThread();
    if (lock->owner && lock->owner != thread) {
        return FALSE;
    }
    if (lock->owner) {
        ++lock->depth;
    } else {
        machine::Own(lock, thread);
    }
    return TRUE;
}

void LeaveCriticalSection(CRITICAL_SECTION* section) {
    SIM_CALL("LeaveCriticalSection", "");
    Lock* lock = machine::LockOf(section, "LeaveCriticalSection");
    if (lock->owner != machine::CurrentThread()) {
        machine::BrokenRule("LeaveCriticalSection", "a lock that this thread does not hold");
    }
    if (--lock->depth > 0) {
        return;
    }
    machine::Disown(lock);
    if (!lock->waiters.empty()) {
        machine::Thread* next = lock->waiters.front();
        machine::Own(lock, next);
        machine::Wake(next, WAIT_OBJECT_0);
    }
}

} // namespace simwin
