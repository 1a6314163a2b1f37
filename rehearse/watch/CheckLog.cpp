#include "rehearse/watch/CheckLog.h"

#include "rehearse/watch/Patterns.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

namespace rehearse {

constexpr std::string_view RulesType = "ComPorts";
constexpr std::string_view Types[] = {RulesType, "OnArrival", "OnRemoval"}; // those with criteria that an event tests

// In the order of preference.
constexpr std::string_view NumberKeys[] = {"PortNames", "PortName",  "PortName1", "PortName2", "PortName3", "PortName4",
                                           "PortName5", "PortName6", "PortName7", "PortName8", "PortName9"};
constexpr std::size_t MostNumbers = 256;
constexpr unsigned HighestNumber = 65536;

// Removes the start of a message; false leaves it unchanged.
static bool Take(std::string_view& message, std::string_view start) {
    if (!message.starts_with(start)) {
        return false;
    }
    message.remove_prefix(start.size());
    return true;
}

// The text between two marks; "" without both.
static std::string Between(std::string_view message, std::string_view from, std::string_view to) {
    const std::size_t start = message.find(from);
    if (start == std::string_view::npos) {
        return "";
    }
    message.remove_prefix(start + from.size());
    const std::size_t end = message.find(to);
    return end == std::string_view::npos ? "" : std::string(message.substr(0, end));
}

// The numbers that a text names after each "COM".
static void AddNumbers(std::string_view text, std::vector<unsigned>& numbers) {
    for (std::size_t at = 0; (at = machine::FindNoCase(text, "COM", at)) != std::string_view::npos;) {
        at += 3;
        std::size_t digits = text.find_first_not_of(" \t", at);
        unsigned number = 0;
        if (digits == std::string_view::npos) {
            continue;
        }
        const auto [last, error] = std::from_chars(text.data() + digits, text.data() + text.size(), number);
        if (error == std::errc() && number >= 1 && number <= HighestNumber && numbers.size() < MostNumbers) {
            numbers.push_back(number);
        }
    }
}

// "ComPorts10" as the log writes it, however the file does; "" if the section is of another type.
static std::string SectionName(std::string_view name, std::string_view type) {
    const std::size_t size = std::min(name.size(), type.size());
    const bool isOfType = machine::EqualNoCase(name.substr(0, size), type) &&
                          name.find_first_not_of("0123456789", size) == std::string_view::npos;
    return isOfType ? std::string(type) + std::string(name.substr(size)) : "";
}

// Of two ports that fail in the same row the one is nearer that was probably meant.
static std::size_t LikenessOf(const SectionTrial& trial) {
    std::size_t best = 0;
    for (const std::string& form : trial.patterns) {
        best = std::max(best, Likeness(trial.portValue, form.substr(std::min(form.size(), form.find('=') + 1))));
    }
    return best;
}

// The device of an interface path: '\\?\FTDIBUS#A#0000#{...}'.
static std::string DeviceOfPath(std::string_view path) {
    if (path.starts_with("\\\\?\\")) {
        path.remove_prefix(4);
    }
    std::string device(path.substr(0, path.rfind('#')));
    std::replace(device.begin(), device.end(), '#', '\\');
    return device;
}

bool IsNearer(const SectionTrial& one, const SectionTrial& than) {
    return std::pair(one.rowsMet, LikenessOf(one)) > std::pair(than.rowsMet, LikenessOf(than));
}

std::string FailedRow(const SectionTrial& trial) {
    std::string patterns;
    for (const std::string& pattern : trial.patterns) {
        patterns += (patterns.empty() ? "" : " or ") + pattern;
    }
    return fmt::format("{} is '{}', not {}", trial.failedKey, trial.portValue, patterns);
}

std::vector<unsigned> NumbersOfSection(const ConfiguredSection& section) {
    std::vector<unsigned> numbers;
    for (const std::string_view key : NumberKeys) {
        const auto value = std::find_if(section.values.begin(), section.values.end(),
                                        [key](const auto& one) { return machine::EqualNoCase(one.first, key); });
        if (value != section.values.end()) {
            AddNumbers(value->second, numbers);
        }
    }
    return numbers;
}

void CheckLog::Read(std::uint64_t context, std::uint64_t atMs, std::string_view message) {
    m_facts.isThere = true;
    if (message.starts_with(" P[")) {
        return; // a record of the table: with a thousand ports nearly all lines, since each test of a number lists them
    }
    Context& now = m_contexts[context];
    ReadConfiguration(now, message);
    ReadTrial(now, message);
    ReadCheck(now, atMs, message);
}

void CheckLog::Finish() {
    for (auto& [number, context] : m_contexts) {
        GiveUp(context);
    }
}

std::string CheckLog::PortOf(std::uint64_t context) const {
    const auto found = m_contexts.find(context);
    if (found == m_contexts.end()) {
        return "";
    }
    return found->second.isInCheck ? found->second.device : found->second.subject;
}

std::string CheckLog::NameOf(std::uint64_t context) const {
    const std::string device = PortOf(context);
    const auto name = m_names.find(device);
    return name == m_names.end() ? device : name->second;
}

bool CheckLog::IsInCheck(std::uint64_t context) const {
    const auto found = m_contexts.find(context);
    return found != m_contexts.end() && found->second.isInCheck && !found->second.isReported &&
           !found->second.device.empty();
}

void CheckLog::ReadConfiguration(Context& context, std::string_view message) {
    if (message.starts_with("CCfgReader::CreateSnapshot(")) {
        m_facts.sections.clear();
        m_facts.actions.clear();
        for (auto& [device, port] : m_facts.ports) {
            port.trials.clear(); // of rules that are no more
        }
        context.reading = nullptr;
    } else if (message.ends_with("] found") && (Take(message, " section [") || Take(message, " CfgSec ["))) {
        const std::string_view written = message.substr(0, message.find(']'));
        context.reading = nullptr;
        for (const std::string_view type : Types) {
            if (const std::string name = SectionName(written, type); !name.empty()) {
                context.reading = type == RulesType ? &m_facts.sections : &m_facts.actions;
                context.reading->push_back({name, {}});
            }
        }
    } else if (context.reading && message.starts_with("section [")) {
        context.reading->pop_back(); // doubled, or with a number too high: ignored
        context.reading = nullptr;
    } else if (context.reading && (Take(message, "  value ") || message.starts_with(" Values["))) {
        const bool isOfRegistry = message.starts_with(" Values[");
        if (isOfRegistry) {
            message.remove_prefix(std::min(message.size(), message.find(": ") + 2));
        }
        const std::string_view mark = isOfRegistry ? " = " : "=";
        const std::size_t equals = message.find(mark);
        if (equals != std::string_view::npos) {
            context.reading->back().values.emplace_back(message.substr(0, equals),
                                                        message.substr(equals + mark.size()));
        }
    }
}

void CheckLog::ReadTrial(Context& context, std::string_view message) {
    if (Take(message, "GetFittingSectionNumber(")) {
        m_searches.push_back({Between(message, "id=", " kn="), Between(message, ", ", ")"), {}, {}});
        context.search = m_searches.size();
        return;
    }
    if (context.search == 0) {
        return;
    }
    SectionSearch& search = m_searches[context.search - 1];
    if (Take(message, "reading criterions from [")) {
        context.trialSection = message.substr(0, message.find(']'));
        context.rowsMet = 0;
        context.key.clear();
    } else if (message.starts_with(" check ") && message.find("  COM-Port's ") != std::string_view::npos) {
        context.key = Between(message, " check ", "  COM-Port's ");
        context.portValue = message.substr(std::min(message.size(), message.find('=') + 1));
        context.patterns.clear();
        m_facts.ports[search.device].values[context.key] = context.portValue;
        search.values.emplace(context.key, context.portValue);
    } else if (message == " test passed") {
        ++context.rowsMet;
    } else if (!context.key.empty() && message.starts_with(" " + context.key)) {
        context.patterns.emplace_back(message.substr(1));
    } else {
        EndTrial(context, message);
    }
}

void CheckLog::EndTrial(Context& context, std::string_view message) {
    if (!message.starts_with("  test for ") && !message.starts_with("result for [")) {
        return;
    }
    SectionSearch& search = m_searches[context.search - 1];
    SectionTrial& trial = m_facts.ports[search.device].trials[context.trialSection];
    if (message.starts_with("  test for ")) {
        trial = {false, context.rowsMet, context.key, context.portValue, context.patterns};
    } else if (message.ends_with(" is 1")) {
        trial = {true, context.rowsMet, "", "", {}};
        search.section = context.trialSection;
        if (search.type != RulesType) {
            m_facts.takenBy[search.section].insert(search.device); // of rules there is a line
        }
        context.search = 0; // it is over
    } else if (trial.failedKey.empty()) {
        trial = {}; // a section without criteria
    }
}

void CheckLog::ReadCheck(Context& context, std::uint64_t atMs, std::string_view message) {
    if (message.starts_with("ComPortArrived(") || message.starts_with("ComPortRemoved(")) {
        GiveUp(context);
        context.subject = DeviceOfPath(Between(message, "(", ")"));
    } else if (message.starts_with("CheckComPortAssignment(") && message.ends_with(")")) {
        GiveUp(context);
        context.isInCheck = true;
        context.isChanged = false;
        context.isReported = false;
        context.check = {};
        context.check.atMs = atMs;
        context.device.clear();
    } else if (!context.isInCheck) {
        return;
    } else if (context.device.empty()) {
        if (Take(message, " regportname='")) {
            context.device = Between(message, "devid='", "'");
        }
        context.name = message.substr(0, message.find('\''));
        if (context.name.empty()) {
            context.name = context.device;
        }
        if (!context.device.empty()) {
            m_names[context.device] = context.name;
        }
        if (context.device.empty()) {
            context.isInCheck = message.starts_with("-"); // a record without a device
        }
    } else if (!ReadDecision(context, message) && !ReadChange(context, message) && !ReadCandidate(context, message)) {
        const bool isAdding = message.starts_with("ComNameArbiterAdd(");
        if (message.starts_with("FixFriendlyName(") || (context.isTrying && isAdding)) {
            GiveUp(context);
        }
    }
}

// The lines that end a check, or state its starting point.
bool CheckLog::ReadDecision(Context& context, std::string_view message) {
    PortCheck& check = context.check;
    if (Take(message, "using section [")) {
        check.section = message.substr(0, message.find(']'));
        m_facts.takenBy[check.section].insert(context.device);
    } else if (Take(message, "new ComPorts=")) {
        context.isTrying = true;
        const auto section = std::find_if(m_facts.sections.begin(), m_facts.sections.end(),
                                          [&](const auto& one) { return one.name == check.section; });
        if (section != m_facts.sections.end()) {
            check.wanted = NumbersOfSection(*section);
        } else {
            AddNumbers(message, check.wanted);
        }
    } else if (Take(message, "adding COM")) {
        std::from_chars(message.data(), message.data() + message.size(), check.lastResort);
    } else if (Take(message, "current portnumber ")) {
        Conclude(context, fmt::format("keeps COM{}", message.substr(0, message.find(' '))));
    } else if (message.starts_with("no [ComPortsNN] section")) {
        Conclude(context, "stays as it is: no rule" + WhyNoRule(context));
    } else if (message.starts_with("no ComPort defined in section")) {
        Conclude(context, "stays as it is: its rule names no number");
    } else if (message.starts_with(" does not look like a 'COM' port")) {
        Conclude(context, "stays as it is: it is no COM port");
    } else if (message.find(" has two Win32 names: ") != std::string_view::npos) {
        Conclude(context, fmt::format("has {} already and loses its other name", context.candidate));
    } else if (message.starts_with("other port will use section ")) {
        Conclude(context, fmt::format("swaps numbers with the port that has {}", context.candidate));
    } else {
        return false;
    }
    return true;
}

// The lines of a change in progress: what is known of its result by then.
bool CheckLog::ReadChange(Context& context, std::string_view message) {
    const bool isStart = Take(message, "changing name to ");
    if (!isStart && (context.isTrying || context.candidate.empty())) {
        return false;
    }
    if (isStart) {
        context.isTrying = false;
        context.candidate = message;
        context.reason = "the registry could not be written";
        context.check.conclusion = fmt::format("changes to {}", message);
    } else if (message.starts_with("update Port[")) {
        context.isChanged = true;
    } else if (message.starts_with("port came along with an upper device")) {
        Settle(context, fmt::format("gets {} when the device above it has restarted", context.candidate));
    } else if (message.ends_with("  :-(")) {
        Settle(context, fmt::format("has {} in the registry, but it did not appear within 5 s", context.candidate));
    } else if (message.starts_with("QueryDosDevice(") && message.find(")...  kn=") != std::string_view::npos) {
        Settle(context, fmt::format("has {} now", context.candidate));
        m_names[context.device] = context.candidate;
    } else if (message.starts_with(context.candidate + " created as ")) {
        Settle(context, fmt::format("has {} now, without a restart", context.candidate));
        m_names[context.device] = context.candidate;
    } else {
        return false;
    }
    m_facts.ports[context.device].last = context.check;
    return true;
}

// The lines about one number of the list.
bool CheckLog::ReadCandidate(Context& context, std::string_view message) {
    constexpr std::string_view Waits = " waits for the restart of ";
    const std::size_t waits = message.find(Waits);
    const bool isTest = Take(message, "CComPorts::IsComPortNameAvailable(");
    const bool isBegin = isTest || waits != std::string_view::npos;
    if (context.isChanged || (!isBegin && context.candidate.empty())) {
        return false;
    }
    if (isTest) {
        Refuse(context);
        context.isTrying = true;
        context.check.conclusion.clear();
        context.candidate = message.substr(0, message.find(')'));
    } else if (isBegin) {
        Refuse(context);
        context.candidate = message.substr(0, waits);
        context.reason = "its present holder is about to restart";
        Refuse(context);
    } else if (message.starts_with(" used by Ports[")) {
        context.reason = "in use by " + Between(message, " id=", " kn=");
    } else if (message == "-> try next port") {
        Refuse(context);
    } else if (message.starts_with(" no, in use by ") && message.ends_with(" not found")) {
        context.reason = "a dead name that could not be deleted";
    } else if (message.starts_with(" no, in use by ")) {
        if (context.reason.empty()) {
            context.reason = message.substr(std::string_view(" no, ").size());
        }
    } else if (message == "  OK -> is available now" || message.starts_with(" yes (")) {
        context.reason.clear();
    } else {
        return false;
    }
    return true;
}

void CheckLog::Refuse(Context& context) {
    if (!context.candidate.empty()) {
        const std::string reason = context.reason.empty() ? "refused" : context.reason;
        context.check.refused.push_back({context.candidate, reason});
        if (m_watcher) {
            m_watcher({context.name, context.candidate, reason});
        }
    }
    context.candidate.clear();
    context.reason.clear();
}

// The check is over, and the product says nothing of it: all numbers have been tried, or the restart failed.
void CheckLog::GiveUp(Context& context) {
    if (context.isInCheck && context.isTrying) {
        Refuse(context);
        Conclude(context, "stays as it is: no number can be had");
    } else if (context.isInCheck && context.isChanged && !context.isReported) {
        Conclude(context, fmt::format("has {} in the registry, but could not restart", context.candidate));
    }
    context.isInCheck = false;
    context.isTrying = false;
}

void CheckLog::Conclude(Context& context, std::string conclusion) {
    Settle(context, std::move(conclusion));
    context.candidate.clear();
    context.reason.clear();
    context.isTrying = false;
    context.isInCheck = false;
}

void CheckLog::Settle(Context& context, std::string conclusion) {
    context.check.conclusion = std::move(conclusion);
    context.isReported = true;
    m_facts.ports[context.device].last = context.check;
    if (m_watcher) {
        m_watcher({context.name, "", context.check.conclusion});
    }
}

// The section that came nearest.
std::string CheckLog::WhyNoRule(const Context& context) const {
    const auto port = m_facts.ports.find(context.device);
    const std::pair<const std::string, SectionTrial>* nearest = nullptr;
    if (port != m_facts.ports.end()) {
        for (const auto& trial : port->second.trials) {
            if (trial.first.starts_with(RulesType) && !trial.second.failedKey.empty() &&
                (!nearest || IsNearer(trial.second, nearest->second))) {
                nearest = &trial;
            }
        }
    }
    return nearest ? fmt::format("; nearest [{}]: {}", nearest->first, FailedRow(nearest->second)) : "";
}

} // namespace rehearse
