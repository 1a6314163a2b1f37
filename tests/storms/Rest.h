// What must hold for a machine at rest and after a stop, whatever was made to fail: judged by the machine's own state.
#pragma once

#include "rehearse/events/Events.h"
#include "tests/storms/Excuses.h"

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace storm {

struct Violation {
    std::string what; // which statement, the same text whenever it is broken
    std::string how;  // device, names, time
};

class Rest {
public:
    explicit Rest(rehearse::Stage& stage) : m_stage(stage) {}

    void NoteCall(std::string_view name, std::string_view object);
    void JudgeRest();
    void AfterStop(std::size_t leakedHandles, bool isSlow); // isSlow: calls take long
    void Complain(std::string what, std::string how);
    void Blame(const Reasons& reasons, std::string what, std::string how); // complains if nothing excuses it
    const std::vector<Violation>& Violations() const { return m_violations; }
    const UseTable& ExcuseUses() const { return m_uses; }

protected:
    machine::Process* TheProduct() const; // null if it does not run
    void NoteEnd();                       // the service has ended: what it has not closed stays open
    bool HasFailed() const;               // some call has been made to fail

    rehearse::Stage& m_stage;

private:
    void JudgeStops(bool isSlow);

    std::vector<Violation> m_violations;
    UseTable m_uses;
    static std::set<std::string> OpenKeys();

    std::set<std::string> m_opened;                            // keys that nobody has tried to close yet
    std::set<std::string> m_cutOff;                            // those of them when the service had ended
    std::set<std::string> m_wideLists;                         // keys whose wide list was read as the former one
    std::map<const machine::Thread*, std::string> m_listReads; // whose last call read the list of this key
};

} // namespace storm
