// What must hold on a machine in a storm. Asked whenever everything has settled, and behind the run; judges by the
// machine's own tree, registry and locks, and reads the product's memory for one thing only: what its records claim.
#pragma once

#include "tests/storms/Plan.h"
#include "tests/storms/Rest.h"

#include <cstdint>
#include <map>
#include <set>
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
        bool isBound;                      // its driver can be restarted and has its link to itself
    };

    void Look(bool isCalm);
    void ReadLog();
    void JudgePorts(bool isCalm);
    void JudgeRecords(const std::vector<Running>& ports);
    void JudgeRules(const std::vector<Running>& ports);
    void OnWrite(const rehearse::WrittenValue& write);
    std::vector<Running> RunningPorts(bool isCalm) const;
    const rehearse::TimelineEntry* LastStart(const std::string& device) const;
    std::uint64_t LastLookedAtMs(const std::string& device) const;
    bool IsNameOfOther(const Device& device, const std::string& name) const;
    void NoteNumberOfOther(const Device& device, const rehearse::WrittenValue& write);
    bool IsStillMarked(const std::string& device) const;
    bool IsHindered(const Device& device) const;
    bool IsTwin(const Device& device) const;
    const Device* RenamedPort(const rehearse::WrittenValue& write) const;
    bool IsBitOfOther(const Running& port) const;

    const Plan& m_plan;
    unsigned m_looks = 0;
    std::uint64_t m_settledAtMs = 0, m_lastCheckMs = 0;
    std::map<const Device*, std::uint64_t> m_movedAtMs, m_sharedAtMs;
    std::size_t m_linesRead = 0;
    std::set<std::string> m_ownNames;
    std::map<std::string, std::uint64_t> m_removedAtMs;
};

} // namespace storm
