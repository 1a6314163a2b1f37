#include "rehearse/fleet/FleetPage.h"

#include "rehearse/html/Words.h"

#include "fleet/Resources.h" // made by the build: style and script, and their hashes for the policy

#include <fmt/format.h>

#include <algorithm>

namespace rehearse::fleet {

using html::Escaped;
using html::Speech;

static constexpr std::size_t LinesAtOnce = 8, NamesAtOnce = 12;

// A path for an address: what has a meaning there is written by its bytes.
static std::string Address(const std::string& path) {
    std::string text;
    for (const char byte : path) {
        const bool isPlain = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
                             (byte >= '0' && byte <= '9') || std::string_view("/-_.~").find(byte) != std::string::npos;
        text += isPlain ? std::string(1, byte) : fmt::format("%{:02X}", static_cast<unsigned char>(byte));
    }
    return text;
}

static std::string VerdictText(const Speech& say, const std::string& verdict) {
    constexpr const char* Words[][2] = {{VerdictOk, "in Ordnung"},
                                        {VerdictFindings, "zu prüfen"},
                                        {VerdictDanger, "Gefahr"},
                                        {"crash", "Absturz"},
                                        {"deadlock", "Verklemmung"},
                                        {"livelock", "Endlosschleife"},
                                        {"broken rule", "Regelbruch"},
                                        {"not modelled", "nicht nachgebildet"},
                                        {VerdictWrongInput, "falsche Eingabe"},
                                        {VerdictTimeLimit, "Zeitgrenze"},
                                        {VerdictLost, "verloren"}};
    for (const auto& [english, german] : Words) {
        if (verdict == english) {
            return say(english, german);
        }
    }
    return Escaped(verdict);
}

FleetPage::FleetPage(const Question& question, std::string folder) : m_question(question), m_folder(std::move(folder)) {
}

void FleetPage::Take(const MachineResult& result) {
    const Speech say(m_question.isGerman);
    const auto count = [&](auto isMeant) { return std::count_if(result.ports.begin(), result.ports.end(), isMeant); };
    const std::string name = Escaped(result.name);
    const std::string address = (m_folder.empty() ? "" : Address(m_folder) + "/") + Address(result.report);
    m_rows += fmt::format("<tr><th scope=\"row\">{}</th><td class=\"{}\">{}</td>",
                          result.report.empty() ? name : fmt::format("<a href=\"{}\">{}</a>", address, name),
                          result.verdict == VerdictOk ? "good" : "bad", VerdictText(say, result.verdict));
    const auto lose =
        count([](const PortResult& port) { return port.shortfall == "no name" || port.shortfall == "not obtained"; });
    for (const auto number : {count([](const PortResult& port) { return port.isPresent; }), lose,
                              count([](const PortResult& port) { return port.shortfall == "next plug"; }),
                              count([](const PortResult& port) { return port.restarts > 0; })}) {
        m_rows += fmt::format("<td class=\"number\">{}</td>", number);
    }
    if (!m_question.older.empty()) {
        m_rows += fmt::format("<td class=\"number\">{}</td>", result.changes.size());
    }
    m_rows += fmt::format("<td lang=\"en\">{}</td></tr>\n", Escaped(result.Line()));
}

std::string FleetPage::PartsSection(const Summary& summary) const {
    const Speech say(m_question.isGerman);
    std::string text;
    const auto list = [&](const char* heading, const std::vector<std::string>& items) {
        text += fmt::format("<h3>{} ({})</h3>\n<ul lang=\"en\">\n", heading, items.size());
        for (std::size_t i = 0; i < items.size(); ++i) {
            if (i == LinesAtOnce) {
                text += fmt::format("</ul>\n<details class=\"print\"><summary>{}</summary>\n<ul lang=\"en\">\n",
                                    say.Format("{} more", "{} weitere", items.size() - LinesAtOnce));
            }
            text += "<li>" + items[i] + "</li>\n";
        }
        text += items.size() > LinesAtOnce ? "</ul></details>\n" : "</ul>\n";
    };
    if (!m_question.findings.empty()) {
        std::vector<std::string> items;
        for (const std::string& finding : m_question.findings) {
            items.push_back(Escaped(finding));
        }
        list(say("The configuration by itself", "Die Konfiguration für sich"), items);
    }
    for (const Part& part : summary.Parts()) {
        std::vector<std::string> items;
        for (const Common& line : part.lines) {
            std::string names;
            for (std::size_t i = 0; i < std::min(line.machines.size(), NamesAtOnce); ++i) {
                names += (i ? ", " : ": ") + Escaped(summary.NameOf(line.machines[i]));
            }
            if (line.machines.size() > NamesAtOnce) {
                names += say.Format(" and {} more", " und {} weitere", line.machines.size() - NamesAtOnce);
            }
            items.push_back(Escaped(line.what) + names);
        }
        list(say(part.english, part.german), items);
    }
    if (text.empty()) {
        return "";
    }
    return fmt::format(
        "<section id=\"common\" aria-labelledby=\"h-common\"><h2 id=\"h-common\">{}</h2>\n{}</section>\n",
        say("What they have in common", "Was sie gemeinsam haben"), text);
}

std::string FleetPage::MachinesSection(const Summary& summary) const {
    const Speech say(m_question.isGerman);
    std::string options = fmt::format("<option value=\"\">{}</option>", say("all", "alle"));
    for (const auto& [verdict, count] : summary.Verdicts()) {
        options += fmt::format("<option>{}</option>", VerdictText(say, verdict));
    }
    std::string text = fmt::format(
        "<section id=\"machines\" aria-labelledby=\"h-machines\"><h2 id=\"h-machines\">{}</h2>\n"
        "<div class=\"find\" hidden=\"\"><label for=\"words\">{}</label> <input type=\"search\" id=\"words\"/> "
        "<label for=\"verdicts\">{}</label> <select id=\"verdicts\">{}</select> "
        "<span id=\"shown\" role=\"status\" data-text=\"{}\"></span></div>\n"
        "<p class=\"hint\" hidden=\"\">{}</p>\n",
        say("Machines", "Rechner"), say("Show rows that contain", "Zeilen zeigen mit"), say("Verdict", "Urteil"),
        options,
        summary.Machines() == 1 ? say("{} of {} machine", "{} von {} Rechner")
                                : say("{} of {} machines", "{} von {} Rechnern"),
        say("A heading's button sorts. In the table the arrow keys go from machine to machine, Enter opens its report.",
            "Die Knöpfe im Kopf sortieren. In der Tabelle gehen die Pfeiltasten von Rechner zu Rechner, Enter öffnet "
            "den Bericht."));
    text += fmt::format("<div class=\"wide\" tabindex=\"0\" role=\"region\" aria-labelledby=\"h-machines\">\n"
                        "<table id=\"list\"><caption>{}</caption>\n<thead><tr>",
                        say("All machines by name", "Alle Rechner nach Namen"));
    std::vector<const char*> headings = {say("Machine", "Rechner"),
                                         say("Verdict", "Urteil"),
                                         say("Ports", "Ports"),
                                         say("Lose", "Verlieren"),
                                         say("Wait", "Warten"),
                                         say("Restarted", "Neu gestartet"),
                                         say("What is said of it", "Was darüber zu sagen ist")};
    if (!m_question.older.empty()) {
        headings.insert(headings.end() - 1, say("Differ", "Anders"));
    }
    for (const char* heading : headings) {
        text += fmt::format("<th scope=\"col\">{}</th>", heading);
    }
    return text + "</tr></thead>\n<tbody>\n" + m_rows + "</tbody></table></div>\n</section>\n";
}

std::string FleetPage::Make(const Summary& summary) const {
    const Speech say(m_question.isGerman);
    const char* kind = say("Rehearsal of a fleet", "Probelauf einer Flotte");
    std::string text = fmt::format(
        "<!DOCTYPE html>\n<html lang=\"{}\">\n<head>\n<meta charset=\"utf-8\"/>\n"
        "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src 'sha256-{}'; "
        "script-src 'sha256-{}'; base-uri 'none'; form-action 'none'\"/>\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\"/>\n"
        "<meta name=\"color-scheme\" content=\"light dark\"/>\n<meta name=\"referrer\" content=\"no-referrer\"/>\n"
        "<title>{} – {}</title>\n<style>{}</style>\n</head>\n<body>\n"
        "<a class=\"skip\" href=\"#machines\">{}</a>\n<header><p>{}</p>\n<h1>{}</h1>\n",
        say("en", "de"), StyleHash, ScriptHash, Escaped(m_question.fleet), kind, Style,
        say("Skip to the machines", "Zu den Rechnern springen"), kind, Escaped(m_question.fleet));
    const auto row = [](const char* term, const std::string& value) {
        return fmt::format("<div><dt>{}</dt><dd><code>{}</code></dd></div>\n", term, Escaped(value));
    };
    text += "<dl class=\"asked\">\n" + row(say("Configuration", "Konfiguration"), m_question.ini);
    if (!m_question.older.empty()) {
        text += row(say("Compared with", "Verglichen mit"), m_question.older);
    }
    std::string verdicts;
    for (const auto& [verdict, count] : summary.Verdicts()) {
        verdicts += verdicts.empty() ? "" : ", ";
        verdicts += m_question.isGerman ? fmt::format("{} {}", count, VerdictText(say, verdict))
                                        : Escaped(CountedVerdict(count, verdict));
    }
    const bool isFine = !summary.HasFindings();
    text += fmt::format("</dl>\n</header>\n<main>\n<section id=\"verdict\" class=\"{}\" aria-labelledby=\"h-verdict\">"
                        "<h2 id=\"h-verdict\">{}</h2>\n<p class=\"sentence\">{}: {}</p></section>\n",
                        isFine ? "fine" : "warn",
                        isFine ? say("In order", "In Ordnung") : say("Needs attention", "Zu prüfen"),
                        summary.Machines() == 1 ? say("1 machine", "1 Rechner")
                                                : say.Format("{} machines", "{} Rechner", summary.Machines()),
                        verdicts);
    return text + PartsSection(summary) + MachinesSection(summary) +
           fmt::format("</main>\n<footer><p>{}</p></footer>\n<script>{}</script>\n</body>\n</html>\n",
                       say("Made by quillmarch-rehearse.", "Erstellt von quillmarch-rehearse."), Script);
}

} // namespace rehearse::fleet
