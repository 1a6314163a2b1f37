#include "rehearse/fleet/Result.h"

#include <fmt/format.h>

#include <algorithm>

namespace rehearse::fleet {

using Json = nlohmann::ordered_json;

static constexpr std::size_t FindingsOnLine = 2;

const std::vector<std::string>& AllVerdicts() {
    static const std::vector<std::string> All = {VerdictOk,         VerdictFindings,  VerdictDanger, "crash",
                                                 "deadlock",        "livelock",       "broken rule", "not modelled",
                                                 VerdictWrongInput, VerdictTimeLimit, VerdictLost};
    return All;
}

std::string CountedVerdict(std::size_t count, const std::string& verdict) {
    constexpr const char* Words[][2] = {{VerdictFindings, "with findings"},
                                        {VerdictDanger, "in danger"},
                                        {"crash", "with a crash"},
                                        {"deadlock", "with a deadlock"},
                                        {"livelock", "with a livelock"},
                                        {"broken rule", "with a broken rule"},
                                        {VerdictWrongInput, "with wrong input"},
                                        {VerdictTimeLimit, "beyond the time limit"}};
    for (const auto& [name, words] : Words) {
        if (verdict == name) {
            return fmt::format("{} {}", count, words);
        }
    }
    return fmt::format("{} {}", count, verdict);
}

bool MachineResult::HasFailed() const {
    return verdict != VerdictOk && verdict != VerdictFindings && verdict != VerdictDanger;
}

std::string MachineResult::Line() const {
    if (HasFailed()) {
        return why;
    }
    std::string text;
    for (std::size_t i = 0; i < std::min(findings.size(), FindingsOnLine); ++i) {
        text += (i ? "; " : "") + findings[i];
    }
    if (findings.size() > FindingsOnLine) {
        text += fmt::format("; {} more", findings.size() - FindingsOnLine);
    }
    if (findings.empty()) {
        const auto ruled = std::count_if(ports.begin(), ports.end(),
                                         [](const PortResult& port) { return port.isPresent && !port.wanted.empty(); });
        text = ruled == 0   ? "no port with a rule"
               : ruled == 1 ? "the one port with a rule has its number"
               : ruled == 2 ? "both ports with a rule have their numbers"
                            : fmt::format("all {} ports with a rule have their numbers", ruled);
    }
    const auto touched =
        std::count_if(changes.begin(), changes.end(), [](const ChangeResult& change) { return change.isTouched; });
    if (touched) {
        text += fmt::format("; {} differ{} from before", touched, touched == 1 ? "s" : "");
    }
    return text;
}

static Json PortJson(const PortResult& port) {
    return {{"device", port.device},       {"before", port.before},     {"name", port.name},
            {"rule", port.rule},           {"wanted", port.wanted},     {"shortfall", port.shortfall},
            {"states", port.states},       {"restarts", port.restarts}, {"present", port.isPresent},
            {"in_catalogue", port.isKnown}};
}

static PortResult PortOf(const Json& json) {
    return {json.at("device"),    json.at("before"), json.at("name"),     json.at("rule"),    json.at("wanted"),
            json.at("shortfall"), json.at("states"), json.at("restarts"), json.at("present"), json.at("in_catalogue")};
}

static Json RuleJson(const RuleResult& rule) {
    return {{"rule", rule.rule},        {"wanted", rule.wanted},   {"took", rule.hasTaken},   {"nearest", rule.nearest},
            {"failed", rule.failedKey}, {"value", rule.portValue}, {"rows_met", rule.rowsMet}};
}

static RuleResult RuleOf(const Json& json) {
    return {json.at("rule"),   json.at("wanted"), json.at("took"),    json.at("nearest"),
            json.at("failed"), json.at("value"),  json.at("rows_met")};
}

static Json ChangeJson(const ChangeResult& change) {
    return {{"device", change.device},
            {"old", change.oldName},
            {"new", change.newName},
            {"old_section", change.oldRule},
            {"new_section", change.newRule},
            {"old_restarts", change.oldRestarts},
            {"new_restarts", change.newRestarts},
            {"touched", change.isTouched},
            {"named", change.isNamed}};
}

static ChangeResult ChangeOf(const Json& json) {
    return {json.at("device"),       json.at("old"),         json.at("new"),
            json.at("old_section"),  json.at("new_section"), json.at("old_restarts"),
            json.at("new_restarts"), json.at("touched"),     json.at("named")};
}

Json JsonOf(const MachineResult& result) {
    Json ports = Json::array(), rules = Json::array(), changes = Json::array();
    for (const PortResult& port : result.ports) {
        ports.push_back(PortJson(port));
    }
    for (const RuleResult& rule : result.rules) {
        rules.push_back(RuleJson(rule));
    }
    for (const ChangeResult& change : result.changes) {
        changes.push_back(ChangeJson(change));
    }
    return {{"machine", result.name},    {"title", result.title},       {"verdict", result.verdict},
            {"why", result.why},         {"sentence", result.sentence}, {"findings", result.findings},
            {"ports", std::move(ports)}, {"rules", std::move(rules)},   {"changes", std::move(changes)},
            {"report", result.report}};
}

MachineResult ResultOf(const Json& json) {
    MachineResult result{json.at("machine"),
                         json.at("title"),
                         json.at("verdict"),
                         json.at("why"),
                         json.at("sentence"),
                         json.at("findings"),
                         {},
                         {},
                         {},
                         json.at("report")};
    for (const Json& port : json.at("ports")) {
        result.ports.push_back(PortOf(port));
    }
    for (const Json& rule : json.at("rules")) {
        result.rules.push_back(RuleOf(rule));
    }
    for (const Json& change : json.at("changes")) {
        result.changes.push_back(ChangeOf(change));
    }
    return result;
}

std::string OneLine(const std::string& text) {
    const auto utf8 = Json(text).dump(-1, ' ', false, Json::error_handler_t::replace);
    std::string line;
    for (const char byte : Json::parse(utf8).get<std::string>()) {
        const auto value = static_cast<unsigned char>(byte);
        line += value < 0x20 || value == 0x7F ? fmt::format("\\x{:02x}", value) : std::string(1, byte);
    }
    return line;
}

} // namespace rehearse::fleet
