// What happened: the lanes and the timeline.
#include "rehearse/html/Sections.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <string_view>

namespace rehearse::html {

// An entry of --explain, which the second run does not have.
static bool IsExplanation(const TimelineEntry& entry) {
    constexpr std::string_view Starts[] = {"says: ", "says of ", "checks ", "so "};
    return !entry.isOutside && entry.means.empty() &&
           std::any_of(std::begin(Starts), std::end(Starts),
                       [&](std::string_view start) { return std::string_view(entry.what).starts_with(start); });
}

// The line of the log that it quotes; "" if it quotes none.
static std::string QuoteOf(const TimelineEntry& entry) {
    const std::size_t at = entry.what.starts_with("says") ? entry.what.find(": ") : std::string::npos;
    return at == std::string::npos ? "" : machine::Utf8FromAnsi(entry.what.substr(at + 2));
}

// --- Lanes

static const char* ClassOf(LaneState state) {
    switch (state) {
    case LaneState::Away:
        return "away";
    case LaneState::Stopped:
        return "stop";
    case LaneState::Problem:
        return "prob";
    case LaneState::Nameless:
        return "none";
    case LaneState::Named:
        break;
    }
    return "name";
}

static std::string TextOf(const Context& context, const Stretch& stretch) {
    const Speech& say = context.say;
    std::string text;
    switch (stretch.state) {
    case LaneState::Away:
        return say("not there", "nicht da");
    case LaneState::Stopped:
        text = say("does not run", "läuft nicht");
        break;
    case LaneState::Problem:
        text = fmt::format("{} {}", say("problem", "Problem"), stretch.problem);
        break;
    case LaneState::Nameless:
        text = say("no name", "kein Name");
        break;
    case LaneState::Named:
        text = machine::Utf8FromAnsi(stretch.name);
        break;
    }
    if (!stretch.heldBy.empty()) {
        text += fmt::format(", {} {}", say("held by", "offen gehalten von"), machine::Utf8FromAnsi(stretch.heldBy));
    }
    return text;
}

// The text of a bar, which has little room.
static std::string ShortText(const Context& context, const Stretch& stretch) {
    if (stretch.state == LaneState::Away || stretch.state == LaneState::Stopped) {
        return "";
    }
    Stretch plain = stretch;
    plain.heldBy.clear();
    const std::string text = TextOf(context, plain);
    return stretch.heldBy.empty() ? text : text + context.say(" (held)", " (offen)");
}

static std::uint64_t EndOf(const Context& context, const std::vector<Stretch>& lane, std::size_t i) {
    return i + 1 < lane.size() ? lane[i + 1].fromMs : context.facts.lanes.EndMs();
}

// A bar's text is shown once the lanes are stretched so much that it fits: half a name would be another name.
// The narrowest lane, a phone's, has 230 pixels; at scale 2, 4, and so on it is that many times as wide.
static unsigned ScaleThatHolds(std::size_t length, double percent) {
    constexpr double Narrowest = 230, PerCharacter = 8, Margin = 10;
    constexpr unsigned Largest = 128; // of a screen at the highest zoom
    unsigned scale = 1;
    while (scale <= Largest &&
           percent / 100 * Narrowest * scale < PerCharacter * static_cast<double>(length) + Margin) {
        scale *= 2;
    }
    return scale;
}

static std::string TextsOfBar(const std::string& text, double percent) {
    if (text.empty()) {
        return "";
    }
    const unsigned whole = ScaleThatHolds(text.size(), percent);
    std::string markup = fmt::format("<text class=\"f{}\" x=\"5\" y=\"16\">{}</text>", whole, Escaped(text));
    const std::string number = text.starts_with("COM") ? text.substr(3, text.find(' ') - 3) : "";
    const unsigned first = ScaleThatHolds(number.size(), percent);
    if (!number.empty() && first < whole) {
        markup += fmt::format("<text class=\"f{} u{}\" x=\"5\" y=\"16\">{}</text>", first, whole, Escaped(number));
    }
    return markup;
}

static std::string BarOf(const Context& context, const std::vector<Stretch>& lane, std::size_t i) {
    const Stretch& stretch = lane[i];
    const double from = context.axis.At(stretch.fromMs);
    const double width = (i + 1 < lane.size() ? context.axis.At(lane[i + 1].fromMs) : 100) - from;
    return fmt::format("<svg class=\"{}{}\" x=\"{}%\" width=\"{}%\" height=\"24\"><title>{}: {}</title>"
                       "<rect width=\"100%\" height=\"16\" y=\"4\"/>{}{}</svg>",
                       ClassOf(stretch.state), stretch.heldBy.empty() ? "" : " held", Percent(from), Percent(width),
                       Escaped(context.say.Time(stretch.fromMs)), Escaped(TextOf(context, stretch)),
                       stretch.heldBy.empty() ? "" : "<rect class=\"lock\" width=\"100%\" height=\"4\" y=\"20\"/>",
                       TextsOfBar(ShortText(context, stretch), width));
}

static std::string MarkOf(const Context& context, const TimelineEntry& entry, std::size_t index) {
    return fmt::format("<svg class=\"{}\" x=\"{}%\" data-e=\"{}\"><title>{}: {} {}</title><path d=\"{}\"/></svg>",
                       entry.isDanger ? "mark danger" : "mark", Percent(context.axis.At(entry.atMs)), index,
                       Escaped(context.say.Time(entry.atMs)),
                       Escaped(context.say.Phrase(machine::Utf8FromAnsi(entry.what))), Escaped(entry.means),
                       entry.isDanger ? "M0 0l6 6-6 6-6-6z" : "M-5 0h10l-5 8z");
}

// The lane in words, for who does not see it.
static std::string LaneInWords(const Context& context, const std::vector<Stretch>& lane) {
    std::string words;
    for (const Stretch& stretch : lane) {
        words += fmt::format("{}{} {}", words.empty() ? "" : "; ", context.say.Time(stretch.fromMs),
                             TextOf(context, stretch));
    }
    return words;
}

static std::string LaneItem(const Context& context, std::size_t row, const std::string& marks) {
    const PortVerdict& port = context.facts.verdict.ports[row];
    std::string after = machine::Utf8FromAnsi(NameOfPort(port.facts));
    if (port.shortfall == Shortfall::NoName) {
        after = context.say("no name", "kein Name");
    }
    const std::string before = machine::Utf8FromAnsi(port.nameBefore);
    const auto found = context.facts.lanes.All().find(port.facts.device);
    static const std::vector<Stretch> Nothing(1);
    const std::vector<Stretch>& lane = found == context.facts.lanes.All().end() ? Nothing : found->second;
    std::string text =
        fmt::format("<li data-p=\"{}\"><a href=\"#p{}\">{}</a><svg class=\"lane\" role=\"img\" "
                    "aria-label=\"{}\" height=\"24\">",
                    row, row, Escaped(before.empty() || before == after ? after : before + " → " + after),
                    Escaped(after + ": " + LaneInWords(context, lane)));
    for (std::size_t i = 0; i < lane.size(); ++i) {
        text += BarOf(context, lane, i);
    }
    return text + marks + "</svg></li>\n";
}

static std::string AxisMarkup(const Context& context) {
    std::string text = "<div class=\"axis\" aria-hidden=\"true\"><span></span><svg height=\"22\">";
    for (const Tick& tick : context.axis.Ticks()) {
        const std::string place = Percent(context.axis.At(tick.atMs));
        text += fmt::format("<g class=\"t{0}\"><line x1=\"{1}%\" x2=\"{1}%\" y1=\"16\" y2=\"22\"/>"
                            "<text x=\"{1}%\" y=\"13\">{2}</text></g>",
                            tick.level, place, Escaped(context.say.Time(tick.atMs)));
    }
    return text + "</svg></div>\n";
}

static std::string Legend(const Speech& say) {
    const auto item = [](const char* kind, const char* inner, const char* text) {
        return fmt::format("<li><svg class=\"key\" aria-hidden=\"true\" width=\"34\" height=\"24\"><svg class=\"{}\" "
                           "width=\"34\" height=\"24\">{}</svg></svg>{}</li>",
                           kind, inner, text);
    };
    const char* bar = "<rect width=\"34\" height=\"16\" y=\"4\"/>";
    return "<ul class=\"legend\">" + item("name", bar, say("has this name", "hat diesen Namen")) +
           item("none", bar, say("runs without a name", "läuft ohne Namen")) +
           item("stop", bar, say("stopped for a restart", "steht für einen Neustart")) +
           item("prob", bar, say("problem", "Problem")) + item("away", bar, say("not there", "nicht da")) +
           item("name held",
                "<rect width=\"34\" height=\"16\" y=\"4\"/><rect class=\"lock\" width=\"34\" height=\"4\" y=\"20\"/>",
                say("held by a program", "von einem Programm offen gehalten")) +
           item("mark", "<path transform=\"translate(17 8)\" d=\"M-5 0h10l-5 8z\"/>",
                say("Quillmarch acts", "Quillmarch handelt")) +
           item("mark danger", "<path transform=\"translate(17 6)\" d=\"M0 0l6 6-6 6-6-6z\"/>",
                say("danger", "Gefahr")) +
           "</ul>\n";
}

std::string LanesSection(const Context& context) {
    const std::vector<TimelineEntry>& entries = context.facts.timeline.Entries();
    std::vector<std::string> marks(context.facts.verdict.ports.size());
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const auto row = context.rows.find(entries[i].device);
        if (row != context.rows.end() &&
            (entries[i].isDanger || (!entries[i].isOutside && !entries[i].means.empty()))) {
            marks[row->second] += MarkOf(context, entries[i], i);
        }
    }
    const Speech& say = context.say;
    std::string text = fmt::format(
        "<section class=\"col\" aria-labelledby=\"h-lanes\"><h3 id=\"h-lanes\">{}</h3>\n<p class=\"zoom\" hidden=\"\">"
        "<button type=\"button\" id=\"out\">{}</button> <button type=\"button\" id=\"in\">{}</button> "
        "<button type=\"button\" id=\"fit\">{}</button> <output id=\"level\">1×</output></p>\n",
        say("Ports over time", "Ports über die Zeit"), say("Zoom out", "Verkleinern"), say("Zoom in", "Vergrößern"),
        say("Whole run", "Ganzer Lauf"));
    text += fmt::format("<div class=\"box lanes x2\" id=\"lanes\" role=\"region\" tabindex=\"0\" "
                        "aria-labelledby=\"h-lanes\">\n{}<ol>\n",
                        AxisMarkup(context));
    for (std::size_t row = 0; row < marks.size(); ++row) {
        text += LaneItem(context, row, marks[row]);
    }
    return text + "</ol>\n<div id=\"cursor\" hidden=\"\"></div></div>\n" + Legend(say) +
           fmt::format("<p class=\"small\">{}</p></section>\n",
                       say("Busy moments are stretched, quiet spells shortened; the times on the axis are true.",
                           "Bewegte Momente sind gedehnt, ruhige Zeiten gekürzt; die Zeiten an der Achse stimmen."));
}

std::string StretchesTable(const Context& context) {
    const Speech& say = context.say;
    std::vector<std::vector<std::string>> rows;
    for (const PortVerdict& port : context.facts.verdict.ports) {
        const auto lane = context.facts.lanes.All().find(port.facts.device);
        if (lane == context.facts.lanes.All().end()) {
            continue;
        }
        for (std::size_t i = 0; i < lane->second.size(); ++i) {
            rows.push_back({EscapedAnsi(NameOfPort(port.facts)), Escaped(say.Time(lane->second[i].fromMs)),
                            Escaped(say.Time(EndOf(context, lane->second, i))),
                            Escaped(TextOf(context, lane->second[i]))});
        }
    }
    constexpr std::size_t MostOnPaper = 150; // the timeline has all of it too
    return fmt::format("<details{}><summary>{}</summary>\n{}</details>\n",
                       rows.size() <= MostOnPaper ? " class=\"print\"" : "",
                       say("The lanes as a table", "Die Bahnen als Tabelle"),
                       Table(say, say("Each port over time", "Jeder Port über die Zeit"),
                             {say("Port in the end", "Port am Ende"), say("From", "Von"), say("To", "Bis"),
                              say("How it stood", "Wie er stand")},
                             rows));
}

// --- Timeline

// Which line of the log follows each entry; nothing if it cannot be known.
static std::vector<std::size_t> LinesOfEntries(const PageFacts& facts) {
    const std::vector<TimelineEntry>& entries = facts.timeline.Entries();
    const auto own = static_cast<std::size_t>(
        std::count_if(entries.begin(), entries.end(), [](const auto& entry) { return !IsExplanation(entry); }));
    if (facts.log.text.empty() || own != facts.log.linesBefore.size()) {
        return {};
    }
    std::vector<std::size_t> lines;
    std::size_t at = 0; // of what both runs have
    for (const TimelineEntry& entry : entries) {
        if (IsExplanation(entry)) {
            lines.push_back(at < own                        ? facts.log.linesBefore[at]
                            : facts.log.linesBefore.empty() ? 0
                                                            : facts.log.linesBefore.back());
        } else {
            lines.push_back(facts.log.linesBefore[at++]);
        }
    }
    return lines;
}

// An explanation is a line of the log itself: the first one from `from` on that holds it, among the next few hundred.
static std::size_t LineThatSays(const std::vector<std::string_view>& log, std::size_t from, std::string_view message) {
    constexpr std::size_t Most = 400;
    for (std::size_t i = from; i < std::min(log.size(), from + Most); ++i) {
        if (log[i].ends_with(message)) {
            return i;
        }
    }
    return from;
}

static std::vector<std::string_view> LinesOf(std::string_view text) {
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        const std::size_t end = std::min(text.size(), text.find('\n'));
        lines.push_back(text.substr(0, end));
        text.remove_prefix(std::min(text.size(), end + 1));
    }
    return lines;
}

static std::vector<std::size_t> LogPlaces(const PageFacts& facts) {
    std::vector<std::size_t> places = LinesOfEntries(facts);
    if (places.empty()) {
        return places;
    }
    const std::vector<std::string_view> log = LinesOf(facts.log.text);
    const std::vector<TimelineEntry>& entries = facts.timeline.Entries();
    std::size_t from = 0;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        if (IsExplanation(entries[i])) {
            const std::string quote = QuoteOf(entries[i]);
            places[i] = quote.empty() ? from : LineThatSays(log, from, quote);
        }
        from = std::max(from, std::min(places[i], log.size()));
    }
    return places;
}

static const char* ClassOf(const TimelineEntry& entry, bool isTitle) {
    return isTitle            ? " class=\"story\""
           : entry.isDanger   ? " class=\"danger\""
           : !entry.isOutside ? " class=\"own\""
                              : "";
}

static std::string EntryItem(const Context& context, const TimelineEntry& entry, std::size_t index,
                             const std::string& data) {
    const Speech& say = context.say;
    std::string what = say.Markup(machine::Utf8FromAnsi(entry.what));
    if (!entry.from.empty() || !entry.to.empty()) {
        const auto name = [&](const std::string& text) {
            return text.empty() ? std::string(say("no name", "kein Name")) : EscapedAnsi(text);
        };
        what += fmt::format(" <strong>{} → {}</strong>", name(entry.from), name(entry.to));
    }
    if (!entry.means.empty()) {
        what += fmt::format(" ({})", Escaped(entry.means));
    }
    if (!entry.device.empty()) {
        what += fmt::format(" <code>{}</code>", EscapedAnsi(entry.device));
    }
    const char* source = entry.isDanger    ? say("DANGER", "GEFAHR")
                         : entry.isOutside ? say("outside", "außen")
                                           : "Quillmarch";
    return fmt::format("<li{}><a href=\"#e{}\" id=\"e{}\"{}><time>{}</time> <b>{}</b> {}</a></li>\n",
                       ClassOf(entry, context.facts.timeline.IsStoryTitle(index)), index, index, data,
                       Escaped(say.Time(entry.atMs)), source, what);
}

std::string TimelineSection(const Context& context) {
    const Speech& say = context.say;
    const std::vector<TimelineEntry>& entries = context.facts.timeline.Entries();
    const std::vector<std::size_t> places = LogPlaces(context.facts);
    std::string text = fmt::format(
        "<section class=\"col\" aria-labelledby=\"h-time\"><h3 id=\"h-time\">{}</h3>\n<p class=\"find\" hidden=\"\">"
        "<label for=\"find\">{}</label> <input type=\"search\" id=\"find\" autocomplete=\"off\"/> "
        "<output id=\"found\" data-of=\"{}\"></output></p>\n<div class=\"box events\" id=\"events\" role=\"region\" "
        "tabindex=\"0\" aria-labelledby=\"h-time\">\n",
        say("Timeline", "Zeitleiste"), say("Show only what holds", "Nur zeigen, was dies enthält:"), say("of", "von"));
    constexpr std::size_t InOneList = 100; // lists that are not in sight are not laid out
    for (std::size_t i = 0; i < entries.size(); ++i) {
        if (i % InOneList == 0) {
            text += fmt::format("{}<ol start=\"{}\">\n", i ? "</ol>\n" : "", i + 1);
        }
        const auto row = context.rows.find(entries[i].device);
        std::string data = fmt::format(" data-x=\"{}\"", Percent(context.axis.At(entries[i].atMs)));
        if (row != context.rows.end()) {
            data += fmt::format(" data-p=\"{}\"", row->second);
        }
        if (i < places.size()) {
            data += fmt::format(" data-l=\"{}\"", places[i]);
        }
        text += EntryItem(context, entries[i], i, data);
    }
    return text +
           (entries.empty() ? fmt::format("<p>{}</p>", say("Nothing happened.", "Nichts geschah.")) : "</ol>\n") +
           "</div></section>\n";
}

} // namespace rehearse::html
