#include "rehearse/rules/Rules.h"

#include "rehearse/OutputFile.h"
#include "rehearse/rules/Findings.h"
#include "rehearse/rules/RulesCheck.h"

#include <fmt/format.h>

namespace rehearse {

namespace {

std::string SummaryOf(const IniFile& ini, const Findings& findings) {
    std::size_t values = 0;
    for (const IniSection& section : ini.sections)
        values += section.values.size();
    const auto counted = [](std::size_t count, const char* what) {
        return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
    };
    return fmt::format("{}: {}, {}\n", findings.empty() ? "no findings" : counted(findings.size(), "finding"),
                       counted(ini.sections.size(), "section"), counted(values, "key"));
}

} // namespace

int CheckRules(const Options& options) {
    Output json(options.json);
    Findings findings;
    const IniFile ini = ReadIniFile(*options.rules, findings);
    CheckIni(ini, findings);
    if (!options.quiet && !json.IsStandardOutput()) {
        for (const Finding& finding : findings)
            fmt::print("{}\n", FindingLine(finding));
        fmt::print("{}", SummaryOf(ini, findings));
    }
    if (json.IsWanted()) {
        const nlohmann::ordered_json report = {{"findings", FindingsJson(findings)}};
        json.Write(report.dump(2) + "\n");
    }
    return findings.empty() ? ExitDone : ExitNotMet;
}

} // namespace rehearse
