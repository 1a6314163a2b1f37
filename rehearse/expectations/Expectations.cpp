#include "rehearse/expectations/Expectations.h"

#include "rehearse/description/DescriptionReader.h"
#include "rehearse/expectations/DesktopExpectations.h"
#include "rehearse/expectations/Processes.h"
#include "rehearse/host/Durations.h"
#include "rehearse/machine/MachineBuilder.h"
#include "rehearse/machine/Surroundings.h"
#include "rehearse/watch/MachineFacts.h"

#include "simwin/devices/tree/DeviceWatch.h"
#include "simwin/files/Files.h"
#include "simwin/kernel/Notes.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/kernel/Text.h"
#include "simwin/registry/Registry.h"
#include "simwin/services/Services.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

namespace rehearse {

constexpr unsigned RegSz = 1, RegExpandSz = 2, RegMultiSz = 7;

static void Compare(Wrongs& wrongs, std::string_view what, const std::string& is, const std::string& wanted) {
    if (is != wanted) {
        wrongs.push_back(fmt::format("{} is '{}', not '{}'", what, is, wanted));
    }
}

template<typename T>
static void CompareNumber(Wrongs& wrongs, std::string_view what, T is, std::int64_t wanted) {
    if (static_cast<std::int64_t>(is) != wanted) {
        wrongs.push_back(fmt::format("{} is {}, not {}", what, is, wanted));
    }
}

static void CompareFlag(Wrongs& wrongs, std::string_view what, bool is, bool wanted) {
    if (is != wanted) {
        wrongs.push_back(fmt::format("it is {}{}", is ? "" : "not ", what));
    }
}

static void JudgeDevice(const TomlTable& expect, Wrongs& wrongs) {
    const PortFacts facts = FactsOf(expect.TextOf("device"));
    const std::string registryName = facts.registryName;
    if (expect.Has("port")) {
        Compare(wrongs, "port", facts.dosName, expect.TextOf("port"));
    }
    if (expect.Has("registry_name")) {
        Compare(wrongs, "registry_name", registryName, expect.TextOf("registry_name"));
    }
    if (expect.Has("friendly_name")) {
        Compare(wrongs, "friendly_name", facts.friendlyName, expect.TextOf("friendly_name"));
    }
    if (expect.Has("present")) {
        CompareFlag(wrongs, "present", facts.isPresent, expect.FlagOf("present"));
    }
    if (expect.Has("problem")) {
        CompareNumber(wrongs, "problem", facts.problem, expect.NumberOf("problem"));
    }
    if (expect.Has("restarts")) {
        CompareNumber(wrongs, "restarts", facts.restarts, expect.NumberOf("restarts"));
    }
    if (expect.Has("installed")) {
        CompareFlag(wrongs, "installed", IsInstalled(facts.device), expect.FlagOf("installed"));
    }
}

static void JudgeDosName(const TomlTable& expect, Wrongs& wrongs) {
    const std::string wanted = expect.TextOf("dos_name");
    const std::vector<std::pair<std::string, std::string>> names = DosNames();
    const auto name = std::find_if(names.begin(), names.end(),
                                   [&](const auto& pair) { return machine::EqualNoCase(pair.first, wanted); });
    if (name == names.end()) {
        if (!expect.FlagOf("gone")) {
            wrongs.push_back("there is no such name");
        }
        return;
    }
    if (expect.FlagOf("gone")) {
        wrongs.push_back(fmt::format("it leads to '{}'", name->second));
    } else if (expect.Has("target") && !machine::EqualNoCase(name->second, expect.TextOf("target"))) {
        wrongs.push_back(fmt::format("it leads to '{}', not '{}'", name->second, expect.TextOf("target")));
    }
}

static void JudgeComDatabase(const TomlTable& expect, Wrongs& wrongs) {
    std::vector<std::int64_t> wanted = expect.Find("com_database")->numbers;
    std::sort(wanted.begin(), wanted.end());
    const std::vector<unsigned> taken = ComDatabase();
    if (!std::equal(taken.begin(), taken.end(), wanted.begin(), wanted.end(),
                    [](unsigned a, std::int64_t b) { return static_cast<std::int64_t>(a) == b; })) {
        wrongs.push_back(fmt::format("it holds [{}], not [{}]", fmt::join(taken, ", "), fmt::join(wanted, ", ")));
    }
}

static bool IsSameValue(const machine::RegistryValue& value, const Value& wanted) {
    if (wanted.type == Text) {
        return (value.type == RegSz || value.type == RegExpandSz) && machine::TextOf(value) == wanted.text;
    }
    const RegistryData data = RegistryDataOf(wanted);
    if (wanted.type == Texts && value.type != RegMultiSz) {
        return false;
    }
    if (wanted.type == Number && value.type != data.type) {
        return false;
    }
    return value.data == data.data;
}

static void JudgeValue(const TomlTable& expect, const TomlTable& description, Wrongs& wrongs) {
    const TomlTable& table = *expect.TableOf("value");
    const machine::RegistryKey* key = machine::TheRegistry().FindKey(table.TextOf("key"), DescribedUser(description));
    const machine::RegistryValue* value = key ? key->FindValue(table.TextOf("name")) : nullptr;
    const bool isGone = expect.FlagOf("gone") || table.FlagOf("gone");
    if (!value) {
        if (!isGone) {
            wrongs.push_back(key ? "there is no such value" : "there is no such key");
        }
    } else if (isGone) {
        wrongs.push_back(fmt::format("it is '{}'", machine::ValueText(*value)));
    } else if (const Value* wanted = table.Find("is"); wanted && !IsSameValue(*value, *wanted)) {
        const RegistryData data = RegistryDataOf(*wanted);
        wrongs.push_back(fmt::format("it is '{}' (type {}), not '{}'", machine::ValueText(*value), value->type,
                                     machine::ValueText({"", data.type, data.data})));
    }
}

static void JudgeKey(const TomlTable& expect, const TomlTable& description, Wrongs& wrongs) {
    const std::string key = expect.TextOf("key");
    const bool isThere = machine::TheRegistry().FindKey(key, DescribedUser(description)) != nullptr;
    if (isThere == expect.FlagOf("gone")) {
        wrongs.push_back(isThere ? "it is there" : "there is no such key");
    }
    if (isThere && expect.Has("acl") && !machine::TheRegistry().IsSecurityUnchanged(key)) {
        wrongs.push_back("its access list is another than at the start");
    }
}

// On one line.
static std::string OneLine(std::string text) {
    for (const auto& [from, to] : {std::pair<const char*, const char*>{"\r", "\\r"}, {"\n", "\\n"}}) {
        for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += 2) {
            text.replace(at, 1, to);
        }
    }
    return text;
}

static std::string Shortened(const std::string& text) {
    constexpr std::size_t Longest = 200;
    return text.size() > Longest ? text.substr(0, Longest) + "..." : text;
}

static void JudgeFile(const TomlTable& expect, Wrongs& wrongs) {
    const std::optional<std::string> text = machine::TheFiles().Read(expect.TextOf("file"));
    if (!text) {
        if (!expect.FlagOf("gone")) {
            wrongs.push_back("there is no such file");
        }
        return;
    }
    if (expect.FlagOf("gone")) {
        wrongs.push_back("it is there");
    }
    if (expect.Has("text") && *text != expect.TextOf("text")) {
        wrongs.push_back(fmt::format("it holds '{}'", Shortened(*text)));
    }
    if (expect.Has("contains") && text->find(expect.TextOf("contains")) == std::string::npos) {
        wrongs.push_back(fmt::format("'{}' is not in it; it holds '{}'", expect.TextOf("contains"), Shortened(*text)));
    }
    if (expect.Has("same_as") && *text != ReadHostFile(expect.TextOf("same_as"), expect.At("same_as"))) {
        wrongs.push_back(fmt::format("it is not the same; it holds '{}'", Shortened(*text)));
    }
}

static void JudgeRestart(const TomlTable& expect, Wrongs& wrongs) {
    std::size_t fits = 0;
    std::string others;
    for (const machine::DeviceRestart& restart : machine::DeviceRestarts()) {
        if (!machine::EqualNoCase(restart.device, expect.TextOf("restart"))) {
            continue;
        }
        const bool isMeant = (!expect.Has("means") || restart.means == expect.TextOf("means")) &&
                             (!expect.Has("ok") || restart.ok == expect.FlagOf("ok")) &&
                             (!expect.Is("at", Duration) || restart.atMs == expect.MsOf("at"));
        if (isMeant) {
            ++fits;
        }
        others += fmt::format("{}{} {} at {}", others.empty() ? "" : ", ", restart.means, restart.ok ? "ok" : "failed",
                              TimeText(restart.atMs));
    }
    if (expect.Has("count") ? fits != static_cast<std::size_t>(expect.NumberOf("count")) : fits == 0) {
        wrongs.push_back(fmt::format("{} such restarts; there were: {}", fits, others.empty() ? "none" : others));
    }
}

static void JudgeService(const TomlTable& expect, const machine::Process* product, Wrongs& wrongs) {
    if (expect.Has("service")) {
        Compare(wrongs, "service", machine::ServiceStateText(machine::ServiceState(ServiceName)),
                expect.TextOf("service"));
    }
    if (expect.Has("checkpoints")) {
        const auto& reports = machine::ServiceReports();
        const auto count =
            std::count_if(reports.begin(), reports.end(), [](const auto& r) { return r.checkpoint > 0; });
        CompareNumber(wrongs, "checkpoints", count, expect.NumberOf("checkpoints"));
    }
    if (expect.Has("wait_hint")) {
        const auto& reports = machine::ServiceReports();
        CompareNumber(wrongs, "wait_hint", reports.empty() ? 0 : reports.back().waitHint, expect.NumberOf("wait_hint"));
    }
    if (expect.Has("exit_code")) {
        if (!product || !product->ended) {
            wrongs.push_back("the process has not ended");
        } else {
            CompareNumber(wrongs, "exit_code", static_cast<std::int32_t>(product->exitCode),
                          static_cast<std::int32_t>(expect.NumberOf("exit_code")));
        }
    }
}

static void JudgeNote(const TomlTable& expect, Wrongs& wrongs) {
    const std::string wanted = expect.TextOf("note");
    std::size_t fits = 0;
    for (const machine::MachineNote& note : machine::AllNotes()) {
        fits += note.text.find(wanted) != std::string::npos;
    }
    if (expect.Has("count") ? fits != static_cast<std::size_t>(expect.NumberOf("count")) : fits == 0) {
        wrongs.push_back(fmt::format("{} of {} notes hold it", fits, machine::AllNotes().size()));
    }
}

// The subject of the expectation, for its line.
static std::string SubjectOf(const TomlTable& expect) {
    for (const char* key : {"device", "dos_name", "key", "file", "restart", "message", "editor", "process", "log",
                            "log_match", "note", "balloon", "shown", "tooltip", "input"}) {
        if (expect.Has(key)) {
            return fmt::format("{} '{}'", key, Shortened(expect.TextOf(key)));
        }
    }
    if (const TomlTable* table = expect.TableOf("value")) {
        return fmt::format("value '{}\\{}'", table->TextOf("key"), table->TextOf("name"));
    }
    for (const char* key : {"com_database", "log_order", "log_complete", "service", "checkpoints", "exit_code"}) {
        if (expect.Has(key)) {
            return key;
        }
    }
    return "expectation";
}

static Wrongs WrongsOf(const TomlTable& expect, const Stage& stage) {
    Wrongs wrongs;
    if (expect.Has("device")) {
        JudgeDevice(expect, wrongs);
    } else if (expect.Has("dos_name")) {
        JudgeDosName(expect, wrongs);
    } else if (expect.Has("com_database")) {
        JudgeComDatabase(expect, wrongs);
    } else if (expect.Has("value")) {
        JudgeValue(expect, *stage.description, wrongs);
    } else if (expect.Has("key")) {
        JudgeKey(expect, *stage.description, wrongs);
    } else if (expect.Has("file")) {
        JudgeFile(expect, wrongs);
    } else if (expect.Has("log") || expect.Has("log_order") || expect.Has("log_match") || expect.Has("log_complete")) {
        JudgeLog(expect, wrongs);
    } else if (expect.Has("restart")) {
        JudgeRestart(expect, wrongs);
    } else if (expect.Has("note")) {
        JudgeNote(expect, wrongs);
    } else if (expect.Has("process")) {
        JudgeProcess(expect, wrongs);
    } else if (expect.Has("message") || expect.Has("editor")) {
        JudgeSurroundings(expect, wrongs);
    } else if (IsAboutDesktop(expect)) {
        JudgeDesktop(expect, stage, wrongs);
    } else {
        JudgeService(expect, stage.product.Get(), wrongs);
    }
    return wrongs;
}

// The time of a restart, a process or a balloon says when it was; it is judged at the end.
static bool IsTimed(const TomlTable& expect) {
    return expect.Is("at", Duration) && !expect.Has("restart") && !expect.Has("process") && !expect.Has("balloon");
}

// A pair of durations, both ends included.
static void CheckPair(const TomlTable& expect, const char* key) {
    const Value* value = expect.Find(key);
    if (!value || value->type != Texts) {
        return;
    }
    const bool isPair = (expect.Has("process") || expect.Has("balloon")) && value->texts.size() == 2 &&
                        ParseDuration(value->texts[0]) && ParseDuration(value->texts[1]);
    if (!isPair) {
        throw InputError(value->at,
                         fmt::format("'{}' must be a time; of a process or a balloon also a pair of them", key));
    }
}

bool IsAt(const TomlTable& expect, std::string_view key, std::uint64_t atMs) {
    const Value* value = expect.Find(key);
    if (value && value->type == Duration) {
        return static_cast<std::int64_t>(atMs) == value->number;
    }
    if (value && value->type == Texts) {
        return atMs >= *ParseDuration(value->texts[0]) && atMs <= *ParseDuration(value->texts[1]);
    }
    return true;
}

void Expectations::Check() const {
    for (const TomlTable& expect : m_stage.description->TablesOf("expect")) {
        CheckPair(expect, "ends_at");
        for (const char* key : {"device", "restart"}) {
            if (expect.Has(key) && !IsKnownDevice(expect.TextOf(key))) {
                throw InputError(expect.At(key), fmt::format("there is no device '{}'", expect.TextOf(key)));
            }
        }
        CheckPair(expect, "at");
        CheckPair(expect, "until");
        if (expect.Has("same_as")) {
            (void)ReadHostFile(expect.TextOf("same_as"), expect.At("same_as"));
        }
        if (expect.Has("key")) {
            CheckRegistryPath(expect.TextOf("key"), expect.At("key"));
        }
        if (const TomlTable* table = expect.TableOf("value")) {
            CheckRegistryPath(table->TextOf("key"), table->At("key"));
            if (const Value* wanted = table->Find("is")) {
                (void)RegistryDataOf(*wanted);
            }
        }
    }
}

void Expectations::Schedule() {
    const std::vector<TomlTable>& expects = m_stage.description->TablesOf("expect");
    m_results.resize(expects.size());
    for (std::size_t i = 0; i < expects.size(); ++i) {
        if (IsTimed(expects[i])) {
            machine::At(expects[i].MsOf("at"), machine::Due::Expectation, [this, i] {
                if (!m_stage.hasEnded) {
                    Judge(i);
                }
            });
        }
    }
}

void Expectations::Judge(std::size_t index) {
    const TomlTable& expect = m_stage.description->TablesOf("expect")[index];
    const Wrongs wrongs = WrongsOf(expect, m_stage);
    if (wrongs.empty()) {
        m_results[index] = "";
        return;
    }
    const std::string what = fmt::format("{}: {}", SubjectOf(expect), fmt::join(wrongs, "; "));
    m_results[index] = fmt::format("{}: at {}: {}", PositionText(expect.at), TimeText(machine::Now()),
                                   machine::Utf8FromAnsi(OneLine(what)));
}

void Expectations::JudgeEnd() {
    const std::vector<TomlTable>& expects = m_stage.description->TablesOf("expect");
    for (std::size_t i = 0; i < expects.size(); ++i) {
        if (!IsTimed(expects[i])) {
            Judge(i);
        } else if (!m_results[i]) {
            m_results[i] = fmt::format("{}: the run ended at {}, before {}", PositionText(expects[i].at),
                                       TimeText(machine::Now()), TimeText(expects[i].MsOf("at")));
        }
    }
}

std::vector<std::string> Expectations::Failures() const {
    std::vector<std::string> failures;
    for (const std::optional<std::string>& result : m_results) {
        if (result && !result->empty()) {
            failures.push_back(*result);
        }
    }
    return failures;
}

std::uint64_t Expectations::LastMs(const TomlTable& description) {
    std::uint64_t last = 0;
    for (const TomlTable& expect : description.TablesOf("expect")) {
        if (IsTimed(expect)) {
            last = std::max(last, expect.MsOf("at"));
        }
    }
    return last;
}

} // namespace rehearse
