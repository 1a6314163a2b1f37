// What must hold on a machine in a storm. Checked whenever everything has settled, and after the run; judges by the
// machine's own tree, registry and locks, and reads the product's memory for one thing only: what its records claim.
#pragma once

#include "tests/storms/Plan.h"
#include "tests/storms/Rest.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace machine {
struct DeviceNode;
struct DosNameChange;
struct FileNode;
} // namespace machine

namespace storm {

inline constexpr std::uint64_t OwnChangeMs = 5000; // how long an event counts as the product's own doing

class Judge : public Rest {
public:
    Judge(const Plan& plan, rehearse::Stage& stage) : Rest(stage), m_plan(plan) {}

    void Watch();    // after Timeline::Watch
    void Schedule(); // checks in each pause of the history
    void AtEnd();    // after the run, before the last stop
    void AfterStop(std::size_t leakedHandles);

    unsigned Looks() const { return m_looks; }

private:
    // A port that is there and runs.
    struct Running {
        const Device* device;
        const machine::DeviceNode* node;
        std::string name, dosName, kernel; // registry name; a COM name that leads to it; its kernel device
    };
    using Ports = std::vector<Running>;

    void Look();
    void OnCall(std::string_view name);
    void OnWrite(const rehearse::WrittenValue& write);
    void OnDosName(const machine::DosNameChange& change);
    void ReadLog();
    void OnLogLine(const std::string& line);
    void JudgeMarks(const std::string& line);
    void JudgeOwnRestarts(const std::string& line, const std::string& thread);
    void GrantLostRestarts();
    void JudgeMoves();
    void JudgeLeftNumbers();
    void JudgePorts(const Ports& ports);
    void JudgeRecords(const Ports& ports);
    void JudgeRules(const Ports& ports);
    void NoteExcuses();

    Ports RunningPorts() const;
    Reasons ReasonsOf(const Running& port, const Ports& ports) const;
    Reasons OwnReasons(const Running& port) const;
    Reasons LinkReasons(const Running& port) const;
    void Grant(Reason excuse, const Device* device, std::uint64_t untilMs); // a start after untilMs ends it
    bool IsGranted(Reason excuse, const Device* device, std::uint64_t ranAtMs) const;
    bool IsTwin(const Running& port) const;
    bool HasFailedSince(std::uint64_t ranAtMs) const;
    bool IsUnheard(std::uint64_t ranAtMs) const;
    bool IsQuietStart(const Device& device) const;
    bool IsHindered(const Device& device) const;
    bool IsStarting() const { return !m_listensAtMs || *m_listensAtMs < StartedAtMs(); }
    std::uint64_t StartedAtMs() const;
    std::string DeviceOf(const std::string& line) const;
    rehearse::WrittenValue LastMove(const Device& device) const;
    const rehearse::TimelineEntry* LastStart(const std::string& device) const;
    std::uint64_t LastStartMs(const std::string& device) const;
    const Device* PlannedDevice(const std::string& id) const;
    const Device* RenamedPort(const rehearse::WrittenValue& write) const;

    const Plan& m_plan;
    unsigned m_looks = 0;
    std::uint64_t m_lastCheckMs = 0;
    std::uint64_t m_failed = 0, m_failedAtMs = 0; // calls that failed, the last of them
    std::map<std::pair<Reason, const Device*>, std::uint64_t> m_grants;
    std::map<const Device*, rehearse::WrittenValue> m_moves; // the last write to its name
    std::map<std::string, std::uint64_t> m_takenAtMs;        // names whose link was deleted from outside
    std::optional<std::uint64_t> m_listensAtMs;              // the product asked for notifications
    const machine::FileNode* m_log = nullptr;                // what was read of it
    std::size_t m_logRead = 0;
    bool m_isLogWritten = false;
    std::string m_arrival;                                                    // device of the notification in the log
    std::map<std::string, unsigned> m_dropped;                                // arrivals by device, since the last swap
    std::map<std::string, std::string> m_checkedBy, m_arrivedBy, m_removedBy; // device by thread
    std::set<std::string> m_scans;                                            // threads that remove by the problem scan
    std::map<std::string, std::uint64_t> m_ownRestartMs, m_putOffMs;          // by device
};

} // namespace storm
