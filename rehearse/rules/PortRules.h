// Which section takes each port of a machine, and why the others do not. What a port's criteria are compared with is
// what the product looked at on that machine; which section it took is its own choice, and the table is held against
// it.
#pragma once

#include "rehearse/rules/QuietRun.h"
#include "rehearse/rules/SectionKeys.h"

#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace rehearse {

struct RuleFit {
    const KnownKey* failed = nullptr; // the first criterion that the port does not meet
    unsigned met = 0;                 // criteria that it meets
    const KnownKey* meant = nullptr;  // another criterion whose value of the port is what the failed one asks for
    std::size_t likeness = 0;         // of the port's value for the failed one to what that asks for
    bool Fits() const { return !failed && met > 0; }
    // Of two that do not fit, the nearer one is greater.
    auto Nearness() const { return std::tuple(met, meant != nullptr, likeness); }
};

struct RulePort {
    std::string device, name; // name: COM7, as Windows had it; "" if it had none
    std::map<std::string, std::string> values;
    std::vector<RuleFit> fits;         // one for each rule of the table
    std::optional<std::size_t> taker;  // the first that fits
    std::optional<std::string> chosen; // the section that the product took when it first looked at the port, "": none
    std::vector<std::string> actions;  // sections whose programs it ran or would have run for the port
};

struct RuleTable {
    std::vector<const IniSection*> rules; // the [ComPorts] sections in the order of the test
    std::vector<RulePort> ports;          // by their numbers
    std::vector<std::string> differences; // where the product chose otherwise than the table says
};

// criteria: of the rule. values: of the port.
RuleFit FitOf(const std::vector<CriterionValue>& criteria, const std::map<std::string, std::string>& values);

// Runs the machine with a section that has no criterion, so that the product looks at everything, and with `ini`.
RuleTable MakeRuleTable(const TomlTable& description, const Options& options, const IniFile& ini,
                        const std::string& bytes, bool isOfRegistry);

// For standard output.
std::string RuleTableText(const RuleTable& table);
nlohmann::ordered_json RuleTableJson(const RuleTable& table);

// Whether a rule takes no port.
bool HasIdleRule(const RuleTable& table);

} // namespace rehearse
