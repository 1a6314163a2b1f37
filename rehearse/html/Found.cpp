// What was found in the end: ports, rules, numbers, restarts, what was shown.
#include "rehearse/html/Sections.h"

#include "simwin/desktop/Desktop.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Setup.h"

#include <fmt/format.h>

#include <algorithm>

namespace rehearse::html {

using Rows = std::vector<std::vector<std::string>>;

Context::Context(const PageFacts& ofRun)
    : facts(ofRun), say(ofRun.isGerman), axis(
                                             [&] {
                                                 std::vector<std::uint64_t> times;
                                                 for (const TimelineEntry& entry : ofRun.timeline.Entries()) {
                                                     times.push_back(entry.atMs);
                                                 }
                                                 for (const auto& [device, lane] : ofRun.lanes.All()) {
                                                     for (const Stretch& stretch : lane) {
                                                         times.push_back(stretch.fromMs);
                                                     }
                                                 }
                                                 return times;
                                             }(),
                                             ofRun.lanes.EndMs()) {
    for (std::size_t i = 0; i < facts.verdict.ports.size(); ++i) {
        rows[facts.verdict.ports[i].facts.device] = i;
    }
}

std::string Context::NameOf(const std::string& device) const {
    const auto row = rows.find(device);
    return machine::Utf8FromAnsi(row == rows.end() ? device : NameOfPort(facts.verdict.ports[row->second].facts));
}

std::string Context::NamesOf(const std::vector<std::string>& devices) const {
    std::string text;
    for (const std::string& device : devices) {
        text += (text.empty() ? "" : ", ") + NameOf(device);
    }
    return text;
}

std::string Percent(double value) {
    std::string text = fmt::format("{:.2f}", value);
    while (text.ends_with('0')) {
        text.pop_back();
    }
    if (text.ends_with('.')) {
        text.pop_back();
    }
    return text;
}

// A part of a table that is a table itself, with the headings again.
static std::string TablePart(const std::string& caption, const std::string& head, const Rows& rows,
                             const std::vector<std::string>& ids, std::size_t from, std::size_t to) {
    std::string text = fmt::format("<div class=\"wide\" role=\"region\" tabindex=\"0\" aria-label=\"{0}\"><table>"
                                   "<caption>{0}</caption>\n{1}<tbody>\n",
                                   Escaped(caption), head);
    for (std::size_t row = from; row < to; ++row) {
        text += row < ids.size() ? fmt::format("<tr id=\"{}\">", ids[row]) : "<tr>";
        for (std::size_t i = 0; i < rows[row].size(); ++i) {
            text += i == 0 ? "<th scope=\"row\">" + rows[row][i] + "</th>" : "<td>" + rows[row][i] + "</td>";
        }
        text += "</tr>\n";
    }
    return text + "</tbody></table></div>\n";
}

std::string Table(const Speech& say, const std::string& caption, const std::vector<std::string>& headings,
                  const Rows& rows, const std::vector<std::string>& ids) {
    std::string head = "<thead><tr>";
    for (const std::string& heading : headings) {
        head += fmt::format("<th scope=\"col\">{}</th>", Escaped(heading));
    }
    head += "</tr></thead>\n";
    constexpr std::size_t AtOnce = 100; // a browser lays a table out as a whole: a second for a thousand rows
    if (rows.size() <= AtOnce + AtOnce / 4) {
        return TablePart(caption, head, rows, ids, 0, rows.size());
    }
    std::string text;
    for (std::size_t from = 0; from < rows.size(); from += AtOnce) {
        const std::size_t to = std::min(rows.size(), from + AtOnce);
        const std::string range = say.Format("{} to {} of {}", "{} bis {} von {}", from + 1, to, rows.size());
        const std::string part = TablePart(fmt::format("{}, {}", caption, range), head, rows, ids, from, to);
        text += from == 0 ? part
                          : fmt::format("<details class=\"print\"><summary>{}: {} – {}</summary>\n{}</details>\n",
                                        range, rows[from].front(), rows[to - 1].front(), part);
    }
    return text;
}

static std::string Section(const char* id, const std::string& heading, const std::string& inner) {
    return fmt::format("<section id=\"{0}\" aria-labelledby=\"h-{0}\"><h2 id=\"h-{0}\">{1}</h2>\n{2}</section>\n", id,
                       Escaped(heading), inner);
}

static std::string OrDash(const std::string& ansi) {
    return ansi.empty() ? "–" : EscapedAnsi(ansi);
}

static std::string Code(const std::string& ansi) {
    return "<code>" + EscapedAnsi(ansi) + "</code>";
}

static std::string Paragraph(const std::string& markup) {
    return "<p>" + markup + "</p>\n";
}

// --- Ports

static std::string StateMarkup(const Context& context, const PortVerdict& port) {
    std::string text;
    for (const std::string& state : port.states) {
        text += (text.empty() ? "" : "; ") + context.say.Phrase(state);
    }
    const bool isBad = port.shortfall != Shortfall::None || (port.facts.isPresent && port.facts.problem);
    const bool isGood = !isBad && port.facts.isPresent && !port.wanted.empty();
    if (text.empty()) {
        text = context.say("no rule", "keine Regel");
    }
    constexpr std::size_t Longest = 80; // a number that a hundred others want would fill the page
    if (const std::size_t cut = text.rfind(',', Longest); text.size() > Longest && cut != std::string::npos) {
        return fmt::format("<details class=\"{}\"><summary>{}, …</summary>{}</details>", isBad ? "bad" : "plain",
                           Escaped(text.substr(0, cut)), Escaped(text));
    }
    return fmt::format("<span class=\"{}\">{}</span>", isBad ? "bad" : isGood ? "good" : "plain", Escaped(text));
}

static std::string WantedText(const Speech& say, const PortVerdict& port) {
    if (port.section.empty()) {
        return "–";
    }
    std::string text = NumbersText(port.wanted, "COM");
    if (port.lastResort) {
        text += fmt::format(" {} COM{}", say("else", "sonst"), port.lastResort);
    }
    return Escaped(text);
}

static std::string RefusedText(const Speech& say, const PortVerdict& port) {
    std::string text;
    for (const Refusal& one : port.refused) {
        text += fmt::format("{}{}: {}", text.empty() ? "" : "; ", Escaped(one.name),
                            say.Markup(machine::Utf8FromAnsi(one.reason)));
    }
    constexpr std::size_t AtOnce = 3; // the last of a rule for a whole hub has two dozen, and fills a page of paper
    if (port.refused.size() > AtOnce) {
        const Refusal& last = port.refused.back();
        return fmt::format("<details><summary>{}</summary>{}</details>",
                           say.Format("{} numbers, the last {}: {}", "{} Nummern, zuletzt {}: {}", port.refused.size(),
                                      Escaped(last.name), say.Markup(machine::Utf8FromAnsi(last.reason))),
                           text);
    }
    return text.empty() ? "–" : text;
}

std::string PortsSection(const Context& context) {
    const Speech& say = context.say;
    Rows rows;
    std::vector<std::string> ids;
    for (const PortVerdict& port : context.facts.verdict.ports) {
        ids.push_back(fmt::format("p{}", rows.size()));
        rows.push_back({EscapedAnsi(NameOfPort(port.facts)), OrDash(port.nameBefore), OrDash(port.facts.dosName),
                        StateMarkup(context, port), OrDash(port.section), WantedText(say, port), RefusedText(say, port),
                        OrDash(port.facts.registryName), OrDash(port.facts.usbPort),
                        fmt::format("{}", port.facts.restarts),
                        EscapedAnsi(port.facts.friendlyName) + " " + Code(port.facts.device)});
    }
    const std::string inner =
        rows.empty()
            ? Paragraph(say("The machine has no ports.", "Der Rechner hat keine Ports."))
            : Table(say, say("Ports before and after", "Ports vorher und nachher"),
                    {say("Port", "Port"), say("Before", "Vorher"), say("After", "Nachher"), say("State", "Zustand"),
                     say("Rule", "Regel"), say("Wanted", "Gewünscht"),
                     say("Refused at the last check", "Beim letzten Mal verweigert"), say("Registry", "Registrierung"),
                     say("USB port", "USB-Buchse"), say("Restarts", "Neustarts"), say("Device", "Gerät")},
                    rows, ids);
    return Section("ports", say("Ports, before and after", "Ports, vorher und nachher"), inner);
}

// --- Rules

static std::string WhyNothing(const Context& context, const RuleVerdict& rule) {
    const Speech& say = context.say;
    if (rule.nearest.empty()) {
        return say("no port was compared with it", "kein Port wurde mit ihr verglichen");
    }
    const std::string port = Escaped(context.NameOf(rule.nearest));
    if (!rule.takenBy.empty()) {
        return say.Format("fits {}, but [{}] stands in front of it", "passt auf {}, aber [{}] steht davor", port,
                          EscapedAnsi(rule.takenBy));
    }
    if (rule.failedKey.empty()) {
        return say("it has no criterion", "sie hat kein Kriterium");
    }
    std::string patterns;
    for (const std::string& pattern : rule.patterns) {
        patterns += (patterns.empty() ? "" : say(" or ", " oder ")) + Code(pattern);
    }
    return say.Format("nearest is {}: {} is “{}” there, not {}", "am nächsten {}: {} ist dort „{}“, nicht {}", port,
                      EscapedAnsi(rule.failedKey), EscapedAnsi(rule.portValue), patterns);
}

static std::string Took(const Context& context, const RuleVerdict& rule) {
    if (rule.took.empty()) {
        return fmt::format("<span class=\"bad\">{}</span> {}", context.say("nothing:", "nichts:"),
                           WhyNothing(context, rule));
    }
    std::string text;
    for (const std::string& device : rule.took) {
        text += fmt::format("{}{} {}", text.empty() ? "" : "<br/>", Escaped(context.NameOf(device)), Code(device));
    }
    return text;
}

std::string RulesSection(const Context& context) {
    const Speech& say = context.say;
    const Verdict& verdict = context.facts.verdict;
    std::string inner;
    if (!verdict.isObserved) {
        inner =
            Paragraph(say("What the rules took could not be observed: a second run with the log on ended otherwise.",
                          "Was die Regeln nahmen, ließ sich nicht beobachten: Ein zweiter Lauf mit Protokoll endete "
                          "anders."));
    } else if (verdict.rules.empty()) {
        inner =
            Paragraph(say("The configuration has no rule for ports.", "Die Konfiguration hat keine Regel für Ports."));
    }
    Rows rows;
    for (const RuleVerdict& rule : verdict.rules) {
        rows.push_back({EscapedAnsi("[" + rule.section + "]"), Escaped(NumbersText(rule.wanted, "COM")),
                        fmt::format("{}", rule.took.size()), Took(context, rule)});
    }
    if (!rows.empty()) {
        inner +=
            Table(say, say("Rules and what they took", "Regeln und was sie nahmen"),
                  {say("Rule", "Regel"), say("Wanted", "Gewünscht"), say("Ports", "Ports"), say("Took", "Nahm")}, rows);
    }
    Rows actions;
    for (const RuleVerdict& action : verdict.actions) {
        actions.push_back(
            {EscapedAnsi("[" + action.section + "]"), fmt::format("{}", action.took.size()), Took(context, action)});
    }
    if (!actions.empty()) {
        inner += Table(say, say("Actions and what they ran for", "Aktionen und wofür sie liefen"),
                       {say("Action", "Aktion"), say("Ports", "Ports"), say("Ran for", "Lief für")}, actions);
    }
    return Section("rules", say("Rules", "Regeln"), inner);
}

std::string DatabaseSection(const Context& context) {
    const Speech& say = context.say;
    const auto text = [&](const std::vector<unsigned>& numbers) {
        return numbers.empty() ? std::string(say("none", "keine")) : Escaped(NumbersText(numbers, ""));
    };
    const Verdict& verdict = context.facts.verdict;
    return Section("numbers", say("Numbers taken in the database", "In der Datenbank belegte Nummern"),
                   Table(say, say("Numbers before and after", "Nummern vorher und nachher"),
                         {say("When", "Wann"), say("Numbers", "Nummern")},
                         {{say("Before", "Vorher"), text(verdict.databaseBefore)},
                          {say("After", "Nachher"), text(verdict.databaseAfter)}}));
}

std::string RestartsSection(const Context& context) {
    const Speech& say = context.say;
    const Verdict& verdict = context.facts.verdict;
    std::string inner;
    Rows dangers, groups;
    for (const TimelineEntry& entry : verdict.dangers) {
        dangers.push_back(
            {Escaped(say.Time(entry.atMs)),
             "<span class=\"bad\">" + say.Markup(machine::Utf8FromAnsi(entry.what)) + "</span> " + Code(entry.device)});
    }
    if (!dangers.empty()) {
        inner +=
            Table(say, say("Dangers: ports that a program has open", "Gefahren: Ports, die ein Programm offen hat"),
                  {say("When", "Wann"), say("What", "Was")}, dangers);
    }
    for (const Ring& ring : verdict.rings) {
        inner += Paragraph(fmt::format("<span class=\"bad\">{}</span> {}", say("Ring:", "Ring:"),
                                       say.Format("{} want each other's numbers; none can move first.",
                                                  "{} wollen einander die Nummern nehmen; keiner kann zuerst weichen.",
                                                  Escaped(context.NamesOf(ring.devices)))));
    }
    for (const Together& group : verdict.together) {
        std::string others;
        for (const std::string& device : group.others) {
            others += (others.empty() ? "" : "<br/>") + Code(device);
        }
        groups.push_back({Code(group.device), Escaped(group.means), fmt::format("{}", group.times),
                          Escaped(context.NamesOf(group.ports)), others.empty() ? "–" : others});
    }
    if (!groups.empty()) {
        inner += Table(say, say("Restarted together", "Gemeinsam neu gestartet"),
                       {say("Device", "Gerät"), say("Means", "Mittel"), say("Times", "Wie oft"), say("Ports", "Ports"),
                        say("What else", "Was noch")},
                       groups);
    }
    return inner.empty() ? "" : Section("dangers", say("Dangers and restarts", "Gefahren und Neustarts"), inner);
}

// --- What was shown

static std::string Figures(const Context& context) {
    std::string text;
    for (const Picture& picture : context.facts.pictures) {
        const std::string label = fmt::format(
            "{} {}: {}", picture.isBox ? context.say("Message box", "Meldung") : context.say("Balloon", "Sprechblase"),
            context.say.Time(picture.atMs), picture.texts);
        std::string svg = picture.svg;
        constexpr std::string_view Start = "<svg ";
        svg.insert(Start.size(), fmt::format("role=\"img\" aria-label=\"{}\" ", Escaped(label)));
        text += fmt::format("<figure>{}<figcaption>{}</figcaption></figure>\n", svg, Escaped(label));
    }
    return text.empty() ? "" : "<div class=\"figures\">\n" + text + "</div>\n";
}

static std::string EndedBy(const Speech& say, const Balloon& balloon) {
    if (balloon.closedBy == "time") {
        return say("its time was over", "ihre Zeit war um");
    }
    if (balloon.closedBy == "click") {
        return say("a click", "ein Klick");
    }
    if (balloon.closedBy == "newer") {
        return say("a newer one", "eine neuere");
    }
    return balloon.closedBy.empty() ? say("it still stands", "sie steht noch")
                                    : say("its process ended", "ihr Prozess endete");
}

static std::string BalloonsTable(const Context& context) {
    const Speech& say = context.say;
    Rows rows;
    for (const Balloon& balloon : context.facts.balloons.All()) {
        std::string texts = EscapedAnsi(balloon.first.title);
        for (const std::string& part : {balloon.first.text1, balloon.first.text2}) {
            texts += part.empty() ? "" : "<br/>" + EscapedAnsi(part);
        }
        rows.push_back({Escaped(say.Time(balloon.atMs)), texts, EscapedAnsi(balloon.user),
                        balloon.untilMs ? Escaped(say.Time(*balloon.untilMs)) : "–", EndedBy(say, balloon)});
    }
    return rows.empty() ? ""
                        : Table(say, say("Balloons", "Sprechblasen"),
                                {say("When", "Wann"), say("Text", "Text"), say("For whom", "Für wen"),
                                 say("Until", "Bis"), say("Ended by", "Beendet durch")},
                                rows);
}

static bool IsProduct(const machine::Process& process) {
    const machine::Setup& setup = machine::TheSetup();
    return machine::EqualNoCase(process.imagePath, setup.directory + "\\" + setup.executable);
}

static std::string BoxesAndPrograms(const Context& context) {
    const Speech& say = context.say;
    Rows boxes, programs;
    for (const machine::MessageBoxRecord& box : machine::MessageBoxes()) {
        boxes.push_back({Escaped(say.Time(box.atMs)), EscapedAnsi(box.title), EscapedAnsi(box.text)});
    }
    for (const machine::Process* process : machine::AllProcesses()) {
        const machine::Process* parent = process->parentId ? machine::FindProcess(process->parentId) : nullptr;
        if (!IsProduct(*process) && parent && IsProduct(*parent)) {
            programs.push_back({Escaped(say.Time(process->startedMs)), Code(process->commandLine),
                                EscapedAnsi(process->user),
                                process->ended ? say.Format("ended with {}", "endete mit {}", process->exitCode)
                                               : say("running", "läuft")});
        }
    }
    std::string text;
    if (!boxes.empty()) {
        text += Table(say, say("Message boxes", "Meldungen"),
                      {say("When", "Wann"), say("Title", "Titel"), say("Text", "Text")}, boxes);
    }
    if (!programs.empty()) {
        text += Table(
            say, say("Programs that were started", "Gestartete Programme"),
            {say("When", "Wann"), say("Command line", "Befehlszeile"), say("As", "Als"), say("Outcome", "Ausgang")},
            programs);
    }
    return text;
}

std::string ShownSection(const Context& context) {
    const Speech& say = context.say;
    std::string inner = Figures(context);
    if (context.facts.pictures.size() >= MostPictures) {
        inner +=
            Paragraph(say.Format("Only the first {} pictures are shown; the tables have all.",
                                 "Nur die ersten {} Bilder werden gezeigt; die Tabellen haben alle.", MostPictures));
    }
    inner += BalloonsTable(context) + BoxesAndPrograms(context);
    return inner.empty()
               ? ""
               : Section("shown", say("What people saw, what was started", "Was man sah, was gestartet wurde"), inner);
}

// In blocks that are opened one by one: ten megabytes of lines at once would take a browser seconds.
static std::string LogBlocks(const Speech& say, std::string_view log) {
    constexpr std::size_t LinesInABlock = 2000, TimeColumns = 12;
    std::string text = "<div id=\"all\">\n";
    for (std::size_t line = 1; !log.empty();) {
        std::size_t lines = 0, size = 0;
        while (lines < LinesInABlock && size < log.size()) {
            size = std::min(log.find('\n', size), log.size() - 1) + 1;
            ++lines;
        }
        std::string_view time = log.substr(0, TimeColumns);
        time.remove_prefix(std::min(time.find_first_not_of(' '), time.size()));
        const std::string name = lines == 1 ? say.Format("Line {}, at {}", "Zeile {}, um {}", line, time)
                                            : say.Format("Lines {} to {}, from {} on", "Zeilen {} bis {}, ab {}", line,
                                                         line + lines - 1, time);
        text += fmt::format("<details><summary>{0}</summary>\n<pre lang=\"en\" tabindex=\"0\" role=\"region\" "
                            "aria-label=\"{0}\">\n{1}</pre></details>\n",
                            Escaped(name), Escaped(log.substr(0, size)));
        log.remove_prefix(size);
        line += lines;
    }
    return text + "</div>\n";
}

std::string LogSection(const Context& context) {
    const Speech& say = context.say;
    const ObservedLog& log = context.facts.log;
    if (log.text.empty()) {
        return Section("log", say("Log", "Protokoll"),
                       Paragraph(say("The log of this run could not be observed.",
                                     "Das Protokoll dieses Laufs ließ sich nicht beobachten.")));
    }
    std::string inner = Paragraph(
        say("The product's log in full, as a second run beside this one wrote it: time, thread, message.",
            "Das ganze Protokoll des Produkts, wie es ein zweiter Lauf neben diesem schrieb: Zeit, Thread, Meldung."));
    if (log.isCut) {
        inner += Paragraph(say.Format("It was longer than {} MB; the rest is left out. --log writes it whole.",
                                      "Es war länger als {} MB; der Rest fehlt. --log schreibt es ganz.",
                                      MostLogBytes / 1'000'000));
    }
    inner += LogBlocks(say, log.text);
    return Section("log", say("Log", "Protokoll"), inner);
}

} // namespace rehearse::html
