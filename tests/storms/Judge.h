// What must hold on a machine in a storm. Asked whenever everything has settled, and behind the run; judges by the
// machine's own tree, registry and locks, and reads the product's memory for one thing only: what its records claim.
#pragma once

#include "tests/storms/Plan.h"
#include "tests/storms/Rest.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace machine {
struct DeviceNode;
}

namespace storm {

class Judge : public Rest {
public:
    Judge(const Plan& plan, rehearse::Stage& stage) : Rest(stage), m_plan(plan) {}

    void Watch();    // behind Timeline::Watch
    void Schedule(); // looks in each pause of the history
    void AtEnd();    // behind the run, in front of the last stop
    void AfterStop(std::size_t leakedHandles);

    unsigned Looks() const { return m_looks; }

private:
    // A port that is there and runs.
    struct Running {
        const Device* device;
        const machine::DeviceNode* node;
        std::string name, dosName, kernel; // registry name; a COM name that leads to it; its kernel device
        bool isBound = false;              // nothing excuses it
    };

    void Look();
    void ReadLog();
    void NoteExcuses();
    void JudgePorts(const std::vector<Running>& ports);
    void JudgeRecords(const std::vector<Running>& ports);
    void JudgeRules(const std::vector<Running>& ports);
    void OnWrite(const rehearse::WrittenValue& write);
    std::vector<Running> RunningPorts() const;
    bool IsBound(const Running& port) const;
    bool IsTwin(const Running& port) const;
    rehearse::WrittenValue LastMove(const Device& device) const;
    bool HasFailedSince(std::uint64_t ranAtMs) const { return m_failed != 0 && ranAtMs <= m_failedAtMs; }
    bool IsUnheard(std::uint64_t ranAtMs) const;
    void JudgeOwnRestarts(const std::string& line);
    std::string DeviceOf(const std::string& line) const;
    bool IsQuietStart(const Device& device) const;
    bool IsCleanedInSwap(const Device& device) const;
    bool IsHindered(const Device& device) const;
    const rehearse::TimelineEntry* LastStart(const std::string& device) const;
    std::uint64_t LastStartMs(const std::string& device) const;
    const Device* RenamedPort(const rehearse::WrittenValue& write) const;

    const Plan& m_plan;
    unsigned m_looks = 0;
    std::uint64_t m_settledAtMs = 0, m_lastCheckMs = 0;
    std::uint64_t m_failed = 0, m_failedAtMs = 0;         // calls that failed, the last of them
    std::map<const Device*, std::uint64_t> m_excusedAtMs; // a start behind this moment ends it
    std::map<const Device*, std::uint64_t> m_bitTakenAtMs;
    std::map<const Device*, rehearse::WrittenValue> m_moves; // the last write to its name
    std::map<std::string, std::uint64_t> m_removedAtMs;      // names whose link was taken
    std::size_t m_linesRead = 0;
    std::uint64_t m_listensAtMs = 0;                             // the product had asked for notifications
    std::uint64_t m_cleanedAtMs = 0;                             // numbers that nobody has left the database
    std::string m_arrival;                                       // device of the notification that the log tells of
    std::map<std::string, unsigned> m_dropped;                   // arrivals by device, since the last swap
    std::map<std::string, std::string> m_checkedBy, m_arrivedBy; // device by thread
    std::map<std::string, std::uint64_t> m_ownRestartMs;         // by the clock of the log
};

} // namespace storm
