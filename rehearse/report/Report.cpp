#include "rehearse/report/Report.h"

#include "rehearse/expectations/Processes.h"
#include "rehearse/host/Durations.h"
#include "rehearse/host/Flow.h"
#include "rehearse/report/BalloonReport.h"
#include "rehearse/report/EndOfRun.h"
#include "rehearse/watch/MachineFacts.h"

#include "simwin/desktop/Desktop.h"
#include "simwin/devices/tree/DeviceWatch.h"
#include "simwin/kernel/Call.h"
#include "simwin/kernel/Notes.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Text.h"
#include "simwin/services/Services.h"

#include <fmt/format.h>

#include <algorithm>

namespace rehearse {

using Json = nlohmann::ordered_json;

static std::string Utf8(const std::string& text) {
    return machine::Utf8FromAnsi(text);
}

static Json PortsJson() {
    Json list = Json::array();
    for (const PortFacts& port : AllPorts()) {
        list.push_back({{"device", Utf8(port.device)},
                        {"present", port.isPresent},
                        {"registry_name", Utf8(port.registryName)},
                        {"dos_name", Utf8(port.dosName)},
                        {"kernel_name", Utf8(port.kernelName)},
                        {"number", port.number},
                        {"friendly_name", Utf8(port.friendlyName)},
                        {"problem", port.problem},
                        {"restarts", port.restarts},
                        {"usb_port", port.usbPort}});
    }
    return list;
}

static Json ServiceStatesJson() {
    Json list = Json::array();
    for (const machine::ServiceReport& report : machine::ServiceReports()) {
        list.push_back({{"at_ms", report.atMs},
                        {"state", machine::ServiceStateText(report.state)},
                        {"checkpoint", report.checkpoint},
                        {"wait_hint", report.waitHint}});
    }
    return list;
}

static Json PairsJson(const std::vector<std::pair<std::string, std::string>>& pairs) {
    Json table = Json::object();
    for (const auto& [name, value] : pairs) {
        table[Utf8(name)] = Utf8(value);
    }
    return table;
}

static Json BoxesJson() {
    Json list = Json::array();
    for (const machine::MessageBoxRecord& box : machine::MessageBoxes()) {
        list.push_back(
            {{"at_ms", box.atMs}, {"title", Utf8(box.title)}, {"text", Utf8(box.text)}, {"flags", box.flags}});
    }
    return list;
}

static Json WritesJson(const Timeline& timeline) {
    Json list = Json::array();
    for (const WrittenValue& write : timeline.Writes()) {
        list.push_back({{"at_ms", write.atMs},
                        {"key", Utf8(write.key)},
                        {"name", Utf8(write.name)},
                        {"before", Utf8(write.before)},
                        {"after", Utf8(write.after)}});
    }
    return list;
}

static Json RestartsJson() {
    Json list = Json::array();
    for (const machine::DeviceRestart& restart : machine::DeviceRestarts()) {
        list.push_back(
            {{"at_ms", restart.atMs}, {"device", Utf8(restart.device)}, {"means", restart.means}, {"ok", restart.ok}});
    }
    return list;
}

static Json TimelineJson(const Timeline& timeline) {
    Json list = Json::array();
    const std::vector<TimelineEntry>& entries = timeline.Entries();
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const TimelineEntry& entry = entries[i];
        Json row = {
            {"at_ms", entry.atMs}, {"source", entry.isOutside ? "outside" : "quillmarch"}, {"what", Utf8(entry.what)}};
        if (!entry.device.empty()) {
            row["device"] = Utf8(entry.device);
        }
        if (!entry.from.empty() || !entry.to.empty()) {
            row["from"] = Utf8(entry.from);
            row["to"] = Utf8(entry.to);
        }
        if (!entry.means.empty()) {
            row["means"] = entry.means;
        }
        if (entry.isDanger) {
            row["danger"] = true;
        }
        if (const std::string story = timeline.StoryOf(i); !story.empty()) {
            row["story"] = story;
        }
        list.push_back(std::move(row));
    }
    return list;
}

static Json NotesJson() {
    Json list = Json::array();
    for (const machine::MachineNote& note : machine::AllNotes()) {
        list.push_back({{"at_ms", note.atMs}, {"text", note.text}});
    }
    return list;
}

static Json CallsJson() {
    std::vector<const machine::Operation*> operations = machine::AllOperations();
    std::sort(operations.begin(), operations.end(),
              [](const auto* a, const auto* b) { return std::string_view(a->name) < std::string_view(b->name); });
    Json table = Json::object();
    for (const machine::Operation* operation : operations) {
        if (operation->count) {
            table[operation->name] = operation->count;
        }
    }
    return table;
}

constexpr const char* ColourOutside = "\x1b[36m";
constexpr const char* ColourProduct = "\x1b[1;32m";
constexpr const char* ColourDanger = "\x1b[1;31m";
constexpr const char* ColourOff = "\x1b[0m";

constexpr std::size_t MessageColumn = 26; // after time and source

// What changed comes first: that is what one looks for.
static std::string LineOf(const TimelineEntry& entry, const Look& look) {
    const auto nameOr = [](const std::string& name) { return name.empty() ? "no name" : Utf8(name); };
    std::string what;
    if (!entry.from.empty() || !entry.to.empty()) {
        what = fmt::format("{} -> {}  ", nameOr(entry.from), nameOr(entry.to));
    }
    what += Utf8(entry.what);
    if (!entry.device.empty()) {
        what += (entry.what.empty() ? "" : " ") + Utf8(entry.device);
    }
    if (!entry.means.empty()) {
        what += fmt::format(" ({})", entry.means);
    }
    const std::string source = fmt::format("{:<10}", entry.isDanger    ? "DANGER"
                                                     : entry.isOutside ? "outside"
                                                                       : "quillmarch");
    const char* colour = entry.isDanger ? ColourDanger : entry.isOutside ? ColourOutside : ColourProduct;
    const std::string line = fmt::format("{:>12}  {}{}{}  {}", TimeText(entry.atMs), look.hasColours ? colour : "",
                                         source, look.hasColours ? ColourOff : "", Shown(what));
    return Flow(line, look.width, MessageColumn) + "\n";
}

nlohmann::ordered_json MakeReport(const RunFacts& facts, const Timeline& timeline, const Balloons& balloons,
                                  const Verdict& verdict) {
    Json report;
    report["title"] = facts.title;
    report["seed"] = facts.seed ? Json(*facts.seed) : Json(nullptr);
    report["ended_at_ms"] = machine::Now();
    const bool hasEnded = facts.product && facts.product->ended;
    report["exit_code"] = hasEnded ? Json(static_cast<std::int32_t>(facts.product->exitCode)) : Json(nullptr);
    report["service_states"] = ServiceStatesJson();
    report["ports"] = PortsJson();
    report["dos_names"] = PairsJson(DosNames());
    report["com_database"] = ComDatabase();
    report["serialcomm"] = PairsJson(SerialComm());
    report["processes"] = ProcessesJson();
    report["balloons"] = BalloonsJson(balloons);
    report["message_boxes"] = BoxesJson();
    report["registry_writes"] = WritesJson(timeline);
    report["restarts"] = RestartsJson();
    report["timeline"] = TimelineJson(timeline);
    report["notes"] = NotesJson();
    report["calls"] = CallsJson();
    report["threads_started"] = machine::Counts().threadsStarted;
    SetLeaks(report, 0, 0);
    report["verdict"] = VerdictJson(verdict);
    return report;
}

void SetLeaks(nlohmann::ordered_json& report, std::size_t handles, std::size_t bytes) {
    report["leaked_handles"] = handles;
    report["leaked_bytes"] = bytes;
}

std::string ReportForPeople(const RunFacts& facts, const Timeline& timeline, const Balloons& balloons,
                            const Verdict& verdict, const Look& look) {
    std::string text;
    if (!facts.title.empty()) {
        text += Shown(facts.title) + "\n\n";
    }
    for (const machine::MachineNote& note : machine::AllNotes()) {
        text += Flow("note: " + Shown(note.text), look.width, 6) + "\n";
    }
    if (!machine::AllNotes().empty()) {
        text += "\n";
    }
    for (std::size_t i = 0; i < timeline.Entries().size(); ++i) {
        text += (timeline.IsStoryTitle(i) ? "\n" : "") + LineOf(timeline.Entries()[i], look);
    }
    return text + "\n" + Shown(EndOfRun(verdict, balloons, look.width));
}

} // namespace rehearse
