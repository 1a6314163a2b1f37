#include "rehearse/fleet/Summary.h"

#include "rehearse/report/Verdict.h"

#include <fmt/format.h>

#include <algorithm>

namespace rehearse::fleet {

using Json = nlohmann::ordered_json;

static constexpr std::size_t NamesOnLine = 3, LinesOfPart = 20; // of a text for people; the JSON has all

// What devices of one make have in common: the id without what tells one from another, which is its last part, and with
// some bus drivers a serial number in the part before.
static std::string KindOfDevice(const std::string& device) {
    std::string kind = device.substr(0, device.rfind('\\'));
    if (kind.starts_with("FTDIBUS\\")) {
        const std::size_t product = kind.find('+');
        kind = kind.substr(0, product == std::string::npos ? product : kind.find('+', product + 1));
    }
    return kind;
}

static std::string NumbersOf(const std::vector<unsigned>& numbers) {
    return NumbersText(numbers, "COM");
}

// "FILE:LINE:COLUMN: what" without line and column; any other text as it is.
static std::string WithoutPlace(const std::string& text) {
    static constexpr const char* Digits = "0123456789";
    const std::size_t file = std::min(text.find(':'), text.size());
    std::size_t end = file;
    for (int number = 0; number < 2; ++number) {
        const std::size_t next = std::min(text.find_first_not_of(Digits, end + 1), text.size());
        if (end >= text.size() || text[end] != ':' || next == end + 1) {
            return text;
        }
        end = next;
    }
    return end < text.size() && text[end] == ':' ? text.substr(0, file) + text.substr(end) : text;
}

// Why a machine failed, without its own name and the place in its file, so that all that failed alike stand on one
// line. The machine's own line has both.
static std::string CauseOf(const MachineResult& result) {
    const std::string own = result.name + "/";
    return result.why.starts_with(own) ? WithoutPlace(result.why.substr(own.size())) : result.why;
}

static std::string OrNone(const std::string& name) {
    return name.empty() ? "no name" : name;
}

void Summary::Add(Commons& commons, const std::string& what) const {
    const auto machine = static_cast<std::uint32_t>(m_names.size() - 1);
    Common& common = commons[what];
    common.what = what;
    ++common.times;
    if (common.machines.empty() || common.machines.back() != machine) {
        common.machines.push_back(machine);
    }
}

void Summary::TakePort(const PortResult& port) {
    const std::string kind = KindOfDevice(port.device);
    if (!port.isKnown) {
        Add(m_unknown, kind);
    }
    if (port.restarts) {
        Add(m_restart, kind);
    }
    Kind& served = m_kinds[kind];
    const auto machine = static_cast<std::uint32_t>(m_names.size() - 1);
    if (!port.rule.empty() && (served.served.empty() || served.served.back() != machine)) {
        served.served.push_back(machine);
    }
    if (!port.isPresent) {
        return;
    }
    if (port.rule.empty()) {
        served.unserved.emplace_back(machine, fmt::format("{} {}", OrNone(port.name), port.device));
    }
    const std::string wish = port.rule.empty() ? "" : fmt::format("; [{}] wants {}", port.rule, NumbersOf(port.wanted));
    if (port.shortfall == "next plug") {
        Add(m_wait, kind + wish);
    } else if (!port.shortfall.empty()) {
        Add(m_lose, fmt::format("{}{}: {}", kind, wish, port.states.empty() ? port.shortfall : port.states.front()));
    }
    if (port.shortfall == "not obtained") {
        Add(m_crowded, fmt::format("[{}] cannot give {} to {}", port.rule, NumbersOf(port.wanted), kind));
    }
}

void Summary::TakeRule(const RuleResult& rule, const std::string& machine) {
    Rule& kept = m_rules[{rule.rule.size(), rule.rule}];
    kept.text = fmt::format("[{}]{}{}", rule.rule, rule.wanted.empty() ? "" : " ", NumbersOf(rule.wanted));
    kept.hasTaken = kept.hasTaken || rule.hasTaken;
    if (!rule.hasTaken && !rule.nearest.empty() && (kept.nearest.empty() || rule.rowsMet > kept.rowsMet)) {
        kept.rowsMet = rule.rowsMet;
        kept.nearest = fmt::format("; closest is {} on {}", rule.nearest, machine);
        kept.nearest += rule.failedKey.empty() ? "" : fmt::format(", where {} is '{}'", rule.failedKey, rule.portValue);
    }
}

void Summary::Take(const MachineResult& result) {
    m_names.push_back(result.name);
    ++m_verdicts[result.verdict];
    if (result.HasFailed()) {
        const std::string cause = CauseOf(result);
        const bool isSaid = cause.starts_with(result.verdict + ":"); // of a run that was stopped
        Add(m_failed, isSaid ? cause : fmt::format("{}: {}", result.verdict, cause));
        return; // its ports are those of a run that did not end
    }
    for (const PortResult& port : result.ports) {
        TakePort(port);
    }
    for (const RuleResult& rule : result.rules) {
        TakeRule(rule, result.name);
    }
    for (const ChangeResult& change : result.changes) {
        const bool isRenamed = change.oldName != change.newName;
        const std::string what =
            fmt::format("{}: {}", KindOfDevice(change.device),
                        isRenamed ? fmt::format("{} -> {}", OrNone(change.oldName), OrNone(change.newName))
                                  : fmt::format("{} restarts -> {}", change.oldRestarts, change.newRestarts));
        Add(m_changed, what);
        if (change.isTouched && !change.isNamed) {
            Add(m_unnamed, what);
        }
    }
}

std::vector<std::pair<std::string, std::size_t>> Summary::Verdicts() const {
    std::vector<std::pair<std::string, std::size_t>> list;
    for (const std::string& verdict : AllVerdicts()) {
        if (const auto found = m_verdicts.find(verdict); found != m_verdicts.end()) {
            list.emplace_back(verdict, found->second);
        }
    }
    for (const auto& [verdict, count] : m_verdicts) {
        if (std::find(AllVerdicts().begin(), AllVerdicts().end(), verdict) == AllVerdicts().end()) {
            list.emplace_back(verdict, count);
        }
    }
    return list;
}

std::vector<Common> Summary::IdleRules() const {
    std::vector<Common> lines;
    for (const auto& [name, rule] : m_rules) {
        if (!rule.hasTaken) {
            lines.push_back({rule.text + rule.nearest, {}, 0});
        }
    }
    return lines;
}

// A machine needs a rule of its own where the rules serve an adapter on other machines but not on this one, or where
// the number of its rule is not available.
std::vector<Common> Summary::OwnRules() const {
    std::vector<Common> lines;
    for (const auto& [name, kind] : m_kinds) {
        if (kind.served.empty()) {
            continue; // nobody wants a number for such adapters
        }
        for (const auto& [machine, port] : kind.unserved) {
            lines.push_back({fmt::format("no rule takes {}, though one takes such an adapter on {} machine{}", port,
                                         kind.served.size(), kind.served.size() == 1 ? "" : "s"),
                             {machine},
                             1});
        }
    }
    for (const auto& [what, common] : m_crowded) {
        lines.push_back(common);
    }
    return lines;
}

std::vector<Part> Summary::Parts() const {
    const auto linesOf = [](const Commons& commons) {
        std::vector<Common> lines;
        for (const auto& [what, common] : commons) {
            lines.push_back(common);
        }
        return lines;
    };
    std::vector<Part> all = {
        {"failed", "Machines that did not get through", "Rechner, die nicht durchkamen", linesOf(m_failed)},
        {"lose", "Ports that lose: no name, or none of their numbers",
         "Ports, die verlieren: kein Name oder keine ihrer Nummern", linesOf(m_lose)},
        {"wait", "Ports that wait: their number comes with the next plug",
         "Ports, die warten: ihre Nummer kommt beim nächsten Anstecken", linesOf(m_wait)},
        {"restart", "Ports that are restarted", "Ports, die neu gestartet werden", linesOf(m_restart)},
        {"unknown", "Adapters that the catalogue does not know", "Adapter, die der Katalog nicht kennt",
         linesOf(m_unknown)},
        {"idle_rules", "Rules that match nothing in the whole fleet", "Regeln, die auf keinem Rechner passen",
         IdleRules()},
        {"own_rules", "Machines that need a rule of their own", "Rechner, die eine eigene Regel brauchen", OwnRules()},
        {"changed", "Ports that the older configuration leaves otherwise",
         "Ports, die mit der älteren Konfiguration anders enden", linesOf(m_changed)},
        {"unnamed", "Of these, touched though no changed rule names them",
         "Davon berührt, ohne dass eine geänderte Regel sie nennt", linesOf(m_unnamed)}};
    std::erase_if(all, [](const Part& part) { return part.lines.empty(); });
    for (Part& part : all) {
        std::stable_sort(part.lines.begin(), part.lines.end(),
                         [](const Common& a, const Common& b) { return a.machines.size() > b.machines.size(); });
    }
    return all;
}

bool Summary::HasFindings() const {
    const auto ok = m_verdicts.find(VerdictOk);
    return (ok == m_verdicts.end() ? 0 : ok->second) != m_names.size();
}

bool Summary::HasStrictFindings() const {
    return HasFindings() || !IdleRules().empty() || !m_unnamed.empty();
}

std::string Summary::Sentence() const {
    std::string text = fmt::format("{} machine{}{}", m_names.size(), m_names.size() == 1 ? "" : "s",
                                   m_names.empty() ? "" : ": "); // a share of a small fleet may be empty
    bool isFirst = true;
    for (const auto& [verdict, count] : Verdicts()) {
        text += (isFirst ? "" : ", ") + CountedVerdict(count, verdict);
        isFirst = false;
    }
    return text;
}

std::string Summary::Text(const Question& question) const {
    std::string text;
    if (!question.findings.empty()) {
        text += "\nThe configuration by itself\n";
        for (const std::string& finding : question.findings) {
            text += "  " + finding + "\n";
        }
    }
    for (const Part& part : Parts()) {
        text += fmt::format("\n{}\n", part.english);
        for (std::size_t i = 0; i < std::min(part.lines.size(), LinesOfPart); ++i) {
            const Common& line = part.lines[i];
            std::string names;
            for (std::size_t n = 0; n < std::min(line.machines.size(), NamesOnLine); ++n) {
                names += (n ? ", " : "") + OneLine(NameOf(line.machines[n]));
            }
            if (line.machines.size() > NamesOnLine) {
                names += fmt::format(" and {} more", line.machines.size() - NamesOnLine);
            }
            text += fmt::format("  {}{}{}\n", OneLine(line.what), names.empty() ? "" : ": ", names);
        }
        if (part.lines.size() > LinesOfPart) {
            const std::size_t more = part.lines.size() - LinesOfPart;
            text += fmt::format("  and {} line{} more\n", more, more == 1 ? "" : "s");
        }
    }
    return text + "\n" + Sentence() + "\n";
}

Json Summary::ToJson(const Question& question) const {
    Json verdicts = Json::object(), parts = Json::object();
    for (const auto& [verdict, count] : Verdicts()) {
        verdicts[verdict] = count;
    }
    for (const Part& part : Parts()) {
        Json lines = Json::array();
        for (const Common& line : part.lines) {
            Json names = Json::array();
            for (const std::uint32_t machine : line.machines) {
                names.push_back(NameOf(machine));
            }
            lines.push_back({{"what", line.what}, {"times", line.times}, {"machines", std::move(names)}});
        }
        parts[part.key] = std::move(lines);
    }
    return {{"fleet", question.fleet},         {"ini", question.ini},
            {"compared_with", question.older}, {"machines", Machines()},
            {"verdicts", std::move(verdicts)}, {"findings", question.findings},
            {"in_common", std::move(parts)}};
}

} // namespace rehearse::fleet
