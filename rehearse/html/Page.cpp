#include "rehearse/html/Page.h"

#include "rehearse/html/Sections.h"

#include "html/Resources.h" // made by the build: style and script, and their hashes for the policy

#include "simwin/files/Files.h"
#include "simwin/kernel/Notes.h"
#include "simwin/kernel/Setup.h"

#include <fmt/format.h>

namespace rehearse::html {

// Nothing from outside is admitted, and of what is inside only this style and this script.
static std::string Head(const Context& context) {
    const Speech& say = context.say;
    const std::string& title = context.facts.title.empty() ? context.facts.description : context.facts.title;
    return fmt::format("<!DOCTYPE html>\n<html lang=\"{}\">\n<head>\n<meta charset=\"utf-8\"/>\n"
                       "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; "
                       "style-src 'sha256-{}'; script-src 'sha256-{}'; base-uri 'none'; form-action 'none'\"/>\n"
                       "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\"/>\n"
                       "<meta name=\"color-scheme\" content=\"light dark\"/>\n"
                       "<meta name=\"referrer\" content=\"no-referrer\"/>\n<title>{} – {}</title>\n"
                       "<style>{}</style>\n</head>\n",
                       say("en", "de"), StyleHash, ScriptHash, Escaped(title), say("rehearsal", "Probelauf"), Style);
}

static std::string Asked(const Context& context) {
    const Speech& say = context.say;
    const PageFacts& facts = context.facts;
    const machine::WindowsVersion& windows = machine::TheSetup().version;
    const auto row = [](const char* term, const std::string& markup) {
        return fmt::format("<div><dt>{}</dt><dd>{}</dd></div>\n", term, markup);
    };
    std::string text = "<dl class=\"asked\">\n";
    text += row(say("Machine", "Rechner"), "<code>" + Escaped(facts.description) + "</code>");
    text += row("Windows", fmt::format("{}.{}.{}", windows.major, windows.minor, windows.build));
    text += row(say("Configuration", "Konfiguration"), facts.configurationFile.empty()
                                                           ? say("as the description says", "wie in der Beschreibung")
                                                           : "<code>" + Escaped(facts.configurationFile) + "</code>");
    text += row(say("Length", "Dauer"), Escaped(say.Time(facts.lanes.EndMs())));
    if (facts.seed) {
        text += row(say("Seed", "Startwert"), fmt::format("{}", *facts.seed));
    }
    text += "</dl>\n";
    if (!facts.configuration.empty()) {
        text += fmt::format("<details><summary>{}</summary>\n<pre tabindex=\"0\" role=\"region\" "
                            "aria-label=\"{}\">\n{}</pre></details>\n",
                            say("The configuration at the start", "Die Konfiguration am Anfang"),
                            say("Configuration", "Konfiguration"), EscapedAnsi(facts.configuration));
    }
    std::string notes;
    for (const machine::MachineNote& note : machine::AllNotes()) {
        notes += "<li>" + Escaped(note.text) + "</li>\n";
    }
    if (!notes.empty()) {
        text += fmt::format("<details><summary>{}</summary>\n<ul lang=\"en\">\n{}</ul></details>\n",
                            say("Notes on the machine", "Anmerkungen zum Rechner"), notes);
    }
    return text;
}

static std::string VerdictSection(const Context& context) {
    const Speech& say = context.say;
    const PageFacts& facts = context.facts;
    std::vector<std::string> reasons;
    if (!facts.stopped.empty()) {
        reasons.push_back(say.Foreign(facts.stopped));
    }
    for (const std::string& failure : facts.failures) {
        reasons.push_back(
            fmt::format("{}: {}", say("expectation not met", "Erwartung nicht erfüllt"), say.Foreign(failure)));
    }
    for (const std::string& line : facts.verdict.Shortcomings()) {
        reasons.push_back(say.Markup(line));
    }
    const bool isDanger = !facts.stopped.empty() || !facts.verdict.dangers.empty();
    const char* word = !facts.stopped.empty() ? say("Stopped", "Abgebrochen")
                       : isDanger             ? say("Danger", "Gefahr")
                       : reasons.empty()      ? say("In order", "In Ordnung")
                                              : say("Needs attention", "Zu prüfen");
    std::string text = fmt::format("<section id=\"verdict\" class=\"{}\" aria-labelledby=\"h-verdict\">"
                                   "<h2 id=\"h-verdict\">{}</h2>\n<p class=\"sentence\">{}</p>\n",
                                   isDanger          ? "danger"
                                   : reasons.empty() ? "fine"
                                                     : "warn",
                                   word, Escaped(say.Sentence(facts.verdict)));
    if (facts.isChecked && facts.failures.empty() && facts.stopped.empty()) {
        text += fmt::format("<p>{}</p>\n", say("All expectations were met.", "Alle Erwartungen wurden erfüllt."));
    }
    constexpr std::size_t AtOnce = 8;
    for (std::size_t i = 0; i < reasons.size(); ++i) {
        if (i == AtOnce) {
            text += fmt::format("</ul>\n<details class=\"print\"><summary>{}</summary>\n<ul>\n",
                                say.Format("{} more", "{} weitere", reasons.size() - AtOnce));
        }
        text += (i == 0 ? "<ul>\n<li>" : "<li>") + reasons[i] + "</li>\n";
    }
    if (!reasons.empty()) {
        text += reasons.size() > AtOnce ? "</ul></details>\n" : "</ul>\n";
    }
    return text + "</section>\n";
}

static std::string Contents(const Context& context, bool hasDangers, bool hasShown) {
    const Speech& say = context.say;
    const auto item = [](const char* id, const char* text) {
        return fmt::format("<li><a href=\"#{}\">{}</a></li>", id, text);
    };
    return fmt::format("<nav aria-label=\"{}\"><ul>", say("Contents", "Inhalt")) +
           item("happened", say("What happened", "Was geschah")) + item("ports", say("Ports", "Ports")) +
           item("rules", say("Rules", "Regeln")) +
           (hasDangers ? item("dangers", say("Dangers and restarts", "Gefahren und Neustarts")) : "") +
           item("numbers", say("Numbers", "Nummern")) +
           (hasShown ? item("shown", say("Balloons, programs", "Sprechblasen, Programme")) : "") +
           item("log", say("Log", "Protokoll")) + "</ul></nav>\n";
}

// Empty until an event is chosen; the script fills it.
static std::string LogPanel(const Speech& say) {
    return fmt::format(
        "<section id=\"around\" aria-labelledby=\"h-around\" hidden=\"\"><div class=\"bar\">"
        "<h3 id=\"h-around\" data-at=\"{0}\">{0}</h3> <button type=\"button\" id=\"before\">{1}</button> "
        "<button type=\"button\" id=\"after\">{2}</button> <button type=\"button\" id=\"close\">{3}"
        "</button></div>\n<p id=\"said\" role=\"status\" data-text=\"{4}\" data-none=\"{5}\"></p>\n"
        "<pre id=\"excerpt\" lang=\"en\" tabindex=\"0\" role=\"region\" aria-labelledby=\"h-around\">"
        "</pre></section>\n",
        say("The log around", "Das Protokoll um"), say("Earlier lines", "Frühere Zeilen"),
        say("Later lines", "Spätere Zeilen"), say("Close", "Schließen"),
        say("Lines {} to {} of {}; what follows the event begins at the mark.",
            "Zeilen {} bis {} von {}; was auf das Ereignis folgt, beginnt an der Marke."),
        say("No log is known for this event.", "Zu diesem Ereignis ist kein Protokoll bekannt."));
}

std::string ConfigurationText() {
    const machine::Setup& setup = machine::TheSetup();
    const std::string name = setup.executable.substr(0, setup.executable.rfind('.'));
    return machine::TheFiles().Read(setup.directory + "\\" + name + ".INI").value_or("");
}

std::string MakePage(const PageFacts& facts) {
    const Context context(facts);
    const Speech& say = context.say;
    const std::string dangers = RestartsSection(context), shown = ShownSection(context);
    std::string text = Head(context);
    text += fmt::format("<body>\n<a class=\"skip\" href=\"#verdict\">{}</a>\n<header><p>{}</p>\n<h1>{}</h1>\n",
                        say("Skip to the verdict", "Zum Urteil springen"),
                        say("Rehearsal of a Quillmarch configuration", "Probelauf einer Quillmarch-Konfiguration"),
                        Escaped(facts.title.empty() ? facts.description : facts.title));
    text += Asked(context) + "</header>\n<main>\n" + VerdictSection(context);
    text += Contents(context, !dangers.empty(), !shown.empty());
    text +=
        fmt::format("<section id=\"happened\" aria-labelledby=\"h-happened\"><h2 id=\"h-happened\">{}</h2>\n"
                    "<p class=\"hint\" hidden=\"\">{}</p>\n<div class=\"columns\">\n",
                    say("What happened", "Was geschah"),
                    say("Choose an event, by mouse or with the arrow keys and Enter, to see the log around it. Escape "
                        "closes the log. Plus, minus and 0 zoom the lanes.",
                        "Ein Ereignis wählen, mit der Maus oder mit Pfeiltasten und Eingabe, zeigt das Protokoll "
                        "darum. Escape schließt es. Plus, Minus und 0 vergrößern die Bahnen."));
    text += LanesSection(context) + TimelineSection(context) + "</div>\n" + LogPanel(say) + StretchesTable(context) +
            "</section>\n";
    text += PortsSection(context) + RulesSection(context) + dangers + DatabaseSection(context) + shown;
    return text + LogSection(context) +
           fmt::format("</main>\n<footer><p>{}</p></footer>\n<script>{}</script>\n</body>\n</html>\n",
                       say("Made by quillmarch-rehearse. Times are those of the simulated machine.",
                           "Erstellt von quillmarch-rehearse. Zeiten sind die des simulierten Rechners."),
                       Script);
}

} // namespace rehearse::html
