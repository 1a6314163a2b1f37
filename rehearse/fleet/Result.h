// What a rehearsal of one machine of a fleet came to. Made by the machine's own process, kept as JSON, and all that the
// fleet's report is made of. Texts are UTF-8.
#pragma once

#include <nlohmann/json.hpp>

#include <cstddef>
#include <string>
#include <vector>

namespace rehearse::fleet {

struct PortResult {
    std::string device, before, name, rule;
    std::vector<unsigned> wanted;
    std::string shortfall; // "no name", "not obtained", "next plug", "" none
    std::vector<std::string> states;
    unsigned restarts = 0;
    bool isPresent = false;
    bool isKnown = false; // to the catalogue of adapters
};

struct RuleResult {
    std::string rule;
    std::vector<unsigned> wanted;
    bool hasTaken = false;
    // If not: the nearest port, and how far it is from fitting.
    std::string nearest, failedKey, portValue;
    unsigned rowsMet = 0;
};

// A port that another configuration leaves otherwise.
struct ChangeResult {
    std::string device, oldName, newName, oldRule, newRule;
    unsigned oldRestarts = 0, newRestarts = 0;
    bool isTouched = false, isNamed = false; // isNamed: by a rule that has changed
};

inline constexpr const char* VerdictOk = "ok";
inline constexpr const char* VerdictFindings = "findings";
inline constexpr const char* VerdictDanger = "danger";
inline constexpr const char* VerdictWrongInput = "wrong input";
inline constexpr const char* VerdictTimeLimit = "time limit";
inline constexpr const char* VerdictLost = "lost";

struct MachineResult {
    std::string name, title;
    std::string verdict = VerdictLost; // one of the above, or how the run was stopped: "crash", "not modelled"
    std::string why;                   // of a machine that did not get through; "" else
    std::string sentence;              // the verdict of the run alone
    std::vector<std::string> findings; // what is not as wanted, in words
    std::vector<PortResult> ports;
    std::vector<RuleResult> rules;
    std::vector<ChangeResult> changes;
    std::string report; // the page of this machine: its file in the folder of the results; "" none

    bool HasFailed() const;
    std::string Line() const; // what the fleet's list says of it, without name and verdict
};

// All verdicts of a machine, the good ones first.
const std::vector<std::string>& AllVerdicts();
// A number of machines with this verdict: "3 with findings".
std::string CountedVerdict(std::size_t count, const std::string& verdict);

nlohmann::ordered_json JsonOf(const MachineResult& result);
// Throws an exception of the JSON library if it is none.
MachineResult ResultOf(const nlohmann::ordered_json& json);

// The text as UTF-8 on one line, without anything that a terminal would obey.
std::string OneLine(const std::string& text);

} // namespace rehearse::fleet
