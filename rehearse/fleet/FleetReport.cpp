#include "rehearse/fleet/FleetReport.h"

#include "rehearse/host/Files.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>

namespace rehearse::fleet {

static constexpr std::size_t WidestName = 48, VerdictWidth = 12;
static constexpr const char* OwnLines = "fleet.jsonl";
static constexpr const char* OwnPage = "fleet.html";

// The folder of the results as seen from a page elsewhere.
static std::string FolderFrom(const std::optional<std::string>& page, const Store* store) {
    if (!page || !store) {
        return "";
    }
    const std::string from = FolderOfPath(*page);
    const std::string folder = PathBetween(from.empty() ? "." : from, store->Folder());
    return folder == "." ? "" : folder;
}

FleetReport::FleetReport(const Call& call, const Question& question, const Store* store, bool isWhole)
    : m_question(question), m_store(store), m_isWhole(isWhole),
      m_printsLines(!call.options.quiet && call.options.json != "-" && call.options.html != "-"),
      m_json(call.options.json), m_html(call.options.html), m_page(question, FolderFrom(call.options.html, store)),
      m_ownPage(question, "") {
    if (m_store && m_isWhole) {
        m_lines.emplace(m_store->PathOf(OwnLines));
    }
}

void FleetReport::Take(const MachineResult& result) {
    m_summary.Take(result);
    if (m_printsLines) {
        fmt::print("{:<{}}  {:<{}}  {}\n", OneLine(result.name), std::min(m_question.nameWidth, WidestName),
                   OneLine(result.verdict), VerdictWidth, OneLine(result.Line()));
    }
    const bool isKept = m_store && m_isWhole;
    if (m_json.IsWanted() || isKept) {
        using Json = nlohmann::ordered_json;
        const std::string line = JsonOf(result).dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
        if (m_json.IsWanted()) {
            m_json.Write(line);
        }
        if (isKept) {
            m_lines->Write(line);
        }
    }
    if (m_html.IsWanted()) {
        m_page.Take(result);
    }
    if (isKept) {
        m_ownPage.Take(result);
    }
}

void FleetReport::Finish() {
    using Json = nlohmann::ordered_json;
    const Json summary = {{"summary", m_summary.ToJson(m_question)}};
    const std::string line = summary.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
    if (m_printsLines) {
        fmt::print("{}", m_summary.Text(m_question));
    }
    if (m_json.IsWanted()) {
        m_json.Write(line);
    }
    if (m_html.IsWanted()) {
        m_html.Write(m_page.Make(m_summary));
    }
    if (m_store && m_isWhole) {
        m_lines->Write(line);
        m_lines->Complete();
        m_store->Write(OwnPage, m_ownPage.Make(m_summary));
    }
    std::fflush(stdout);
}

} // namespace rehearse::fleet
