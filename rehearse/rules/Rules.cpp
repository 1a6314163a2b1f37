#include "rehearse/rules/Rules.h"

#include "rehearse/description/Captures.h"
#include "rehearse/description/DescriptionReader.h"
#include "rehearse/host/Flow.h"
#include "rehearse/host/OutputFile.h"
#include "rehearse/rules/Findings.h"
#include "rehearse/rules/PortRules.h"
#include "rehearse/rules/RegistryExport.h"
#include "rehearse/rules/RulesCheck.h"

#include <fmt/format.h>

namespace rehearse {

static std::string SummaryOf(const IniFile& ini, const Findings& findings) {
    std::size_t values = 0;
    for (const IniSection& section : ini.sections) {
        values += section.values.size();
    }
    const auto counted = [](std::size_t count, const char* what) {
        return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
    };
    return fmt::format("{}: {}, {}\n", findings.empty() ? "no findings" : counted(findings.size(), "finding"),
                       counted(ini.sections.size(), "section"), counted(values, "key"));
}

int CheckRules(const Options& options) {
    Output json(options.json);
    std::string bytes = ReadHostFile(*options.rules, {*options.rules, 1, 1});
    const bool isOfRegistry = IsRegistryExport(bytes);
    if (isOfRegistry) {
        bytes = IniOfExport(*options.rules, bytes);
    }
    Findings findings;
    const IniFile ini = ParseIni(*options.rules, bytes, findings);
    CheckIni(ini, findings);
    std::optional<RuleTable> table;
    if (!options.description.empty()) {
        table = MakeRuleTable(ReadMachine(options), options, ini, bytes, isOfRegistry);
    }
    if (!options.quiet && !json.IsStandardOutput()) {
        for (const Finding& finding : findings) {
            fmt::print("{}\n", Shown(FindingLine(finding)));
        }
        fmt::print("{}", Shown(SummaryOf(ini, findings) + (table ? RuleTableText(*table) : "")));
    }
    if (json.IsWanted()) {
        nlohmann::ordered_json report = {{"findings", FindingsJson(findings)}};
        if (table) {
            report.update(RuleTableJson(*table));
        }
        json.Write(report.dump(2) + "\n");
    }
    const bool isIdle = options.strict && table && HasIdleRule(*table);
    return findings.empty() && !isIdle ? ExitDone : ExitNotMet;
}

} // namespace rehearse
