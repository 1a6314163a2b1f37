#include "tests/storms/Judge.h"

#include "simwin/kernel/Scheduler.h"

#include <fmt/format.h>

#include <utility>

namespace storm {

static std::string Quoted(const std::string& line) {
    const std::size_t end = line.rfind('\''), start = line.rfind('\'', end - 1);
    return line.substr(start + 1, end - start - 1);
}

// How the product handles the removals and arrivals that its own restarts cause, by the threads of its log.
void Judge::JudgeOwnRestarts(const std::string& line, const std::string& thread) {
    const std::uint64_t nowMs = machine::Now();
    const auto isOwn = [&](const std::string& device) {
        const auto found = m_ownRestartMs.find(device);
        return !device.empty() && found != m_ownRestartMs.end() && nowMs - found->second < OwnChangeMs;
    };
    if (line.ends_with(" WinMain ------------------")) {
        if (m_plan.switches.slow) {
            NoteEnd();
        }
        m_ownRestartMs.clear();
        GrantLostRestarts();
        m_arrivedBy.clear();
        m_dropped.clear();
        m_scans.clear();
    }
    if (const std::size_t at = line.find("devid='"); at != std::string::npos) {
        m_checkedBy[thread] = Quoted(line);
    }
    if (line.ends_with(" to appear...")) {
        m_ownRestartMs[m_checkedBy[thread]] = nowMs;
    }
    if (line.find("restart this later") != std::string::npos) {
        m_ownRestartMs.erase(m_checkedBy[thread]);
        m_putOffMs[m_checkedBy[thread]] = nowMs;
    }
    // A removal by the problem scan is no notified one.
    if (line.find(" problem changed: ") != std::string::npos) {
        m_scans.insert(thread);
    }
    if (line.find("> RemovePort(") != std::string::npos) {
        if (isOwn(DeviceOf(line)) && !m_scans.contains(thread)) {
            Complain("the removal of an own restart is ignored", line);
        }
        m_scans.erase(thread);
        m_ownRestartMs.erase(DeviceOf(line));
        m_removedBy[thread] = DeviceOf(line);
    }
    // A removal that began ahead of the restart, in a debug run, makes the port forget it.
    if (line.find(">  set Port[") != std::string::npos) {
        m_ownRestartMs.erase(std::exchange(m_removedBy[thread], ""));
    }
    if (line.find("> ComPortArrived(") != std::string::npos) {
        m_arrivedBy[thread] = DeviceOf(line);
    }
    if (line.find("> CheckComPortAssignment(") != std::string::npos && isOwn(m_arrivedBy[thread])) {
        Complain("the arrival of an own restart is not checked", line);
    }
    // The number of a thread that has ended is reused.
    if (line.find("> CheckComPortAssignment") != std::string::npos || line.ends_with("> port not added")) {
        m_arrivedBy.erase(thread);
    }
}

// A restart that was put off ends with the service that was to bring it.
void Judge::GrantLostRestarts() {
    for (const Device& device : m_plan.devices) {
        if (const auto found = m_putOffMs.find(device.id); found != m_putOffMs.end()) {
            Grant(&excuse::RestartLost, &device, found->second);
        }
    }
    m_putOffMs.clear();
}

// A swap's own arrivals are dropped; no mark drops two. That of a port which was pulled out meanwhile drops its next
// one.
void Judge::JudgeMarks(const std::string& line) {
    if (line.find("SwapPortNumbers(") != std::string::npos) {
        m_dropped.clear();
    }
    if (line.find("+++ New dev ") != std::string::npos || line.ends_with("DBT_DEVICEREMOVECOMPLETE")) {
        m_arrival = DeviceOf(line);
    }
    if (!line.ends_with("the device we are just restarting -> abort") || m_arrival.empty()) {
        return;
    }
    if (++m_dropped[m_arrival] > 1) {
        Complain("a mark drops one arrival", m_arrival);
    }
    const rehearse::TimelineEntry* start = LastStart(m_arrival);
    for (const Device& device : m_plan.devices) {
        if (device.id == m_arrival && start && start->means != "remove-and-setup") {
            Grant(&excuse::SwapMark, &device, machine::Now());
        }
    }
}

} // namespace storm
