#include "rehearse/rules/QuietRun.h"

#include "rehearse/Balloons.h"
#include "rehearse/Events.h"
#include "rehearse/Expectations.h"
#include "rehearse/MachineBuilder.h"
#include "rehearse/Timeline.h"
#include "rehearse/rules/IniFile.h"
#include "rehearse/stories/Stories.h"

#include "simwin/files/Files.h"
#include "simwin/kernel/Image.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/kernel/Text.h"
#include "simwin/machine/Machine.h"
#include "simwin/registry/Registry.h"
#include "src/keys/ConfigurationKeys.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <stdexcept>

namespace rehearse {

constexpr std::uint64_t SettlingMs = 3'600'000; // after the last event, as in a rehearsal
constexpr std::string_view RegistryConfiguration = "HKLM\\SOFTWARE\\Tarn Holve\\Quillmarch";
constexpr std::string_view SearchStart = "GetFittingSectionNumber(";
constexpr std::string_view CheckStart = " check ";
constexpr std::string_view ValueStart = "  COM-Port's ";
constexpr std::string_view Mark = "[QUILLMARCH]  "; // precedes the message
constexpr std::string_view ResultStart = "result for [";

namespace {
// The searches of one run, from the lines of the log. Each thread goes through its own.
class SearchReader {
public:
    explicit SearchReader(std::vector<SectionSearch>& searches) : m_searches(searches) {}
    void Take(const void* thread, std::string_view message);

private:
    std::vector<SectionSearch>& m_searches;
    std::map<const void*, std::size_t> m_open; // the search of a thread
};
} // namespace

// "[ComPorts10] is 1": the number of the section.
static int NumberInResult(std::string_view text) {
    const std::size_t digit = text.find_first_of("0123456789]");
    int number = SectionWithoutNumber;
    if (digit != std::string_view::npos && text[digit] != ']') {
        std::from_chars(text.data() + digit, text.data() + text.size(), number);
    }
    return number;
}

void SearchReader::Take(const void* thread, std::string_view message) {
    if (message.starts_with(SearchStart)) {
        const std::size_t comma = message.find(", "), close = message.find(')'), id = message.find("   id=");
        const std::size_t end = message.rfind(" kn=");
        if (comma == std::string_view::npos || id == std::string_view::npos || end < id) {
            return;
        }
        const std::string_view name = message.substr(comma + 2, close - comma - 2);
        SectionSearch search{std::string(message.substr(id + 6, end - id - 6)), 0, 0, {}};
        while (search.type + 1 < SectionNameCount && name != SectionNames[search.type]) {
            ++search.type;
        }
        m_open[thread] = m_searches.size();
        m_searches.push_back(std::move(search));
        return;
    }
    const auto open = m_open.find(thread);
    if (open == m_open.end()) {
        return;
    }
    SectionSearch& search = m_searches[open->second];
    const std::size_t value = message.find(ValueStart);
    if (message.starts_with(CheckStart) && value != std::string_view::npos) {
        const std::size_t equals = message.find('=', value);
        search.values.emplace(message.substr(CheckStart.size(), value - CheckStart.size()), message.substr(equals + 1));
    } else if (message.starts_with(ResultStart) && message.ends_with(" is 1")) {
        search.section = NumberInResult(message);
        m_open.erase(open);
    }
}

// The product's log goes to its debugger output, at the level at which it tells each comparison.
static void WatchSearches(SearchReader& reader) {
    machine::SetProfileOverride(
        [](const std::string& file, std::string_view section, std::string_view key) -> std::optional<std::string> {
            if (!machine::EqualNoCase(file, ProductIni()) || !machine::EqualNoCase(section, "Settings")) {
                return std::nullopt;
            }
            if (machine::EqualNoCase(key, "LogLevel")) {
                return "3";
            }
            if (machine::EqualNoCase(key, "WriteDebugOutput")) {
                return "1";
            }
            return std::nullopt;
        });
    machine::WatchDebugOutput([&reader](const machine::Process&, const char* text) {
        std::string_view message = text;
        const std::size_t at = message.find(Mark);
        if (at == std::string_view::npos) {
            return;
        }
        message.remove_prefix(at + Mark.size());
        while (message.ends_with('\n') || message.ends_with('\r')) {
            message.remove_suffix(1);
        }
        reader.Take(machine::CurrentThread(), message);
    });
}

// The file under question stays what it is.
static Record WithoutEdits(const Record& description) {
    Record kept = description;
    if (!kept.Has("event")) {
        return kept;
    }
    Value events = *kept.Find("event");
    std::erase_if(events.tables, [](const Record& event) { return event.Has("edit_ini") || event.Has("delete_ini"); });
    kept.Set("event", std::move(events));
    return kept;
}

void PrepareProduct(const Options& options) {
    if (std::error_code error; !std::filesystem::exists(options.imageFile, error)) {
        throw InputError({options.imageFile, 1, 1}, "the product's shared object is not there");
    }
    if (const std::string wrong = machine::PrepareImages(options.imageFile); !wrong.empty()) {
        throw std::runtime_error("quillmarch-rehearse: " + wrong);
    }
}

QuietRun RunQuietly(const Record& description, const Options& options, const std::string& ini) {
    Record record = WithoutEdits(description);
    Options quiet = options;
    quiet.ini.reset();
    QuietRun run;
    SearchReader reader(run.searches);
    Timeline timeline;
    Balloons balloons;
    Stage stage(&record, &timeline, &balloons);
    const machine::Machine machine(SetupOf(record, quiet));
    machine::InstallCrashHandler();
    FillMachine(record, quiet);
    AddStories(record, quiet);
    if (machine::TheRegistry().FindKey(RegistryConfiguration)) {
        throw InputError(record.at, "this machine keeps its configuration in the registry, where no file counts");
    }
    machine::TheFiles().Write(ProductIni(), ini);
    timeline.Watch();
    balloons.Watch(timeline);
    WatchSearches(reader);
    ScheduleEvents(stage);
    const std::uint64_t last = std::max(LastEventMs(record) + SettlingMs, Expectations::LastMs(record));
    const machine::RunOutcome outcome =
        machine::RunMachine({options.untilMs ? *options.untilMs : record.MsOf("until", last)});
    timeline.CatchUp();
    stage.hasEnded = true;
    timeline.Close();
    balloons.Close();
    if (outcome.verdict != machine::Verdict::Done) {
        run.outcome = machine::OutcomeLine(outcome);
    }
    run.ports = AllPorts();
    return run;
}

} // namespace rehearse
