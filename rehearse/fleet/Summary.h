// What the machines of a fleet have in common. Fed with one result after another in the order of the names; keeps
// numbers of machines, no results. Pure.
#pragma once

#include "rehearse/fleet/Result.h"
#include "rehearse/fleet/Store.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace rehearse::fleet {

// One line of a part, for all machines to which it applies.
struct Common {
    std::string what;
    std::vector<std::uint32_t> machines; // by their place in the order, each once
    std::size_t times = 0;               // ports, where a machine may have several
};

struct Part {
    const char* key;              // in the JSON
    const char *english, *german; // headings
    std::vector<Common> lines;    // the most frequent first
};

class Summary {
public:
    void Take(const MachineResult& result);

    std::size_t Machines() const { return m_names.size(); }
    const std::string& NameOf(std::uint32_t machine) const { return m_names[machine]; }
    std::vector<std::pair<std::string, std::size_t>> Verdicts() const; // those that there are
    std::vector<Part> Parts() const;                                   // those with lines
    bool HasFindings() const;                                          // of a machine, or one that failed
    bool HasStrictFindings() const; // also rules that match nothing, and ports that no changed rule names
    std::string Sentence() const;

    // For standard output, and the last line of the JSON.
    std::string Text(const Question& question) const;
    nlohmann::ordered_json ToJson(const Question& question) const;

private:
    using Commons = std::map<std::string, Common>;
    struct Rule {
        bool hasTaken = false;
        std::string text; // "[ComPorts10] COM20"
        unsigned rowsMet = 0;
        std::string nearest; // in words; "" none
    };
    struct Kind {                                                    // of adapters
        std::vector<std::uint32_t> served;                           // machines on which a rule takes one
        std::vector<std::pair<std::uint32_t, std::string>> unserved; // a port that none takes
    };
    void Add(Commons& commons, const std::string& what) const;
    void TakePort(const PortResult& port);
    void TakeRule(const RuleResult& rule, const std::string& machine);
    std::vector<Common> IdleRules() const;
    std::vector<Common> OwnRules() const;

    std::vector<std::string> m_names;
    std::map<std::string, std::size_t> m_verdicts;
    Commons m_failed, m_lose, m_wait, m_restart, m_unknown, m_changed, m_unnamed, m_crowded;
    std::map<std::pair<std::size_t, std::string>, Rule> m_rules; // shorter names first: [ComPorts9] before [ComPorts10]
    std::map<std::string, Kind> m_kinds;
};

} // namespace rehearse::fleet
