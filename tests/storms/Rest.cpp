#include "tests/storms/Rest.h"

#include "simwin/devices/tree/DeviceTree.h"
#include "simwin/kernel/Call.h"
#include "simwin/kernel/Locks.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/power/Power.h"
#include "simwin/registry/Registry.h"
#include "simwin/services/Services.h"

#include <fmt/format.h>

#include <algorithm>

namespace storm {

constexpr std::uint64_t StopLimitMs = 11'000; // ten seconds and the last of its steps
constexpr std::uint64_t SlowStopLimitMs = 30'000;
// First thread, service main or window thread, closer of the log.
constexpr std::size_t ThreadsAtRest = 3;

// An access list is restored at the third attempt at the latest.
constexpr std::uint64_t RestoreTries = 3;
static bool CannotBeRestored() {
    return std::any_of(machine::Faults().begin(), machine::Faults().end(), [](const machine::Fault& fault) {
        return (fault.call == "RegOpenKeyExA" || fault.call == "RegSetKeySecurity") && fault.error &&
               fault.acted >= RestoreTries;
    });
}

void Rest::Complain(std::string what, std::string how) {
    m_violations.push_back({std::move(what), fmt::format("{} at {} ms", how, machine::Now())});
}

void Rest::Blame(const Reasons& reasons, std::string what, std::string how) {
    if (reasons.empty()) {
        Complain(std::move(what), std::move(how));
    }
    for (Reason reason : reasons) {
        ++m_uses[reason].all;
        m_uses[reason].alone += reasons.size() == 1;
    }
}

bool Rest::HasFailed() const {
    return std::any_of(machine::Faults().begin(), machine::Faults().end(),
                       [](const machine::Fault& fault) { return fault.error && fault.acted; });
}

machine::Process* Rest::TheProduct() const {
    return m_stage.product && !m_stage.product->ended ? m_stage.product.Get() : nullptr;
}

// (j) An arrival reads without any lock: of two threads that open one refusing key, the second may take the list of the
// first for the former one. A call is seen at its gate, before it may give the turn away, so the list that it reads is
// that of the thread's next call at the latest.
void Rest::NoteCall(std::string_view name, std::string_view object) {
    const machine::Thread* thread = machine::CurrentThread();
    const auto isWide = [](const std::string& key) {
        return machine::TheRegistry().FindKey(key) && !machine::TheRegistry().IsSecurityUnchanged(key);
    };
    if (const auto read = m_listReads.find(thread); read != m_listReads.end()) {
        if (isWide(read->second)) {
            m_wideLists.insert(machine::Upper(read->second));
        }
        m_listReads.erase(read);
    }
    // A list is set twice: the wide one, and the former one again.
    if (name == "RegSetKeySecurity") {
        const std::string key = machine::Upper(std::string(object));
        if (isWide(key)) {
            m_opened.erase(key);
        } else {
            m_opened.insert(key);
        }
    }
    if (name == "RegGetKeySecurity") {
        const std::string key(object);
        if (isWide(key)) {
            m_wideLists.insert(machine::Upper(key));
        }
        m_listReads[thread] = key;
    }
}

void Rest::JudgeRest() {
    for (const machine::Lock* lock : machine::HeldLocks()) {
        Complain("no lock is held at rest", fmt::format("thread {}, entered in {}", lock->owner->id, lock->enteredIn));
    }
    if (const machine::Process* product = TheProduct()) {
        std::size_t threads = 0;
        std::string waits;
        for (const machine::Thread* thread : product->threads) {
            // A port that hangs keeps the thread that tried to open it.
            threads += std::string_view(thread->call) != "CreateFileA";
            waits += fmt::format(" {} ({})", thread->call, thread->waitWhat);
        }
        if (threads > ThreadsAtRest) {
            Complain("no thread is left behind", fmt::format("{} threads in{}", threads, waits));
        }
    }
    for (const std::string& key : OpenKeys()) {
        Reasons reasons = CannotBeRestored() ? Reasons{&excuse::CallFailed} : Reasons{};
        if (m_wideLists.contains(key)) {
            reasons.insert(&excuse::TwoWideLists);
        }
        if (m_cutOff.contains(key)) {
            reasons.insert(&excuse::CutOff);
        }
        Blame(reasons, "access lists stay as they were", key);
    }
}

// The keys of devices whose list is not the former one.
std::set<std::string> Rest::OpenKeys() {
    std::set<std::string> keys;
    for (const machine::DeviceNode* node : machine::TheDeviceTree().All()) {
        const std::string driverKey = machine::DriverKeyOf(*node);
        for (const std::string& key :
             {node->enumPath, node->enumPath + "\\Device Parameters",
              driverKey.empty() ? "" : "HKLM\\SYSTEM\\CurrentControlSet\\Control\\Class\\" + driverKey}) {
            if (!key.empty() && machine::TheRegistry().FindKey(key) &&
                !machine::TheRegistry().IsSecurityUnchanged(key)) {
                keys.insert(machine::Upper(key));
            }
        }
    }
    return keys;
}

void Rest::NoteEnd() {
    for (const std::string& key : OpenKeys()) {
        if (m_opened.contains(key)) {
            m_cutOff.insert(key);
        }
    }
}

void Rest::JudgeStops(bool isSlow) {
    std::uint64_t startedAtMs = 0, pendingAtMs = 0;
    simwin::DWORD state = 0;
    for (const machine::ServiceReport& report : machine::ServiceReports()) {
        if (report.state == simwin::SERVICE_START_PENDING && state != report.state) {
            startedAtMs = report.atMs;
        }
        if (report.state == simwin::SERVICE_STOP_PENDING && state != report.state) {
            pendingAtMs = report.atMs;
        }
        // A stop in the middle of the start waits for the initialisation as the start does.
        const bool isAtStart = pendingAtMs - startedAtMs < SlowStopLimitMs;
        const std::uint64_t limit = isSlow || isAtStart ? SlowStopLimitMs : StopLimitMs;
        if (report.state == simwin::SERVICE_STOPPED && state == simwin::SERVICE_STOP_PENDING &&
            report.atMs - pendingAtMs - machine::AsleepBetweenMs(pendingAtMs, report.atMs) > limit) {
            Complain("a stop ends within ten seconds and a little",
                     fmt::format("begun at {} ms, ended at {} ms", pendingAtMs, report.atMs));
        }
        state = report.state;
    }
}

void Rest::AfterStop(std::size_t leakedHandles, bool isSlow) {
    if (TheProduct()) {
        Complain("the last stop ends", machine::WhoWaits());
    }
    if (leakedHandles) {
        Complain("nothing is leaked", fmt::format("{} handles", leakedHandles));
    }
    JudgeStops(isSlow);
}

} // namespace storm
