#include "rehearse/expectations/Processes.h"

#include "rehearse/host/Durations.h"

#include "simwin/kernel/Process.h"
#include "simwin/kernel/Text.h"
#include "simwin/sessions/Tokens.h"

#include <fmt/format.h>

#include <algorithm>

namespace rehearse {

using Json = nlohmann::ordered_json;

static std::string Utf8(const std::string& text) {
    return machine::Utf8FromAnsi(text);
}

static std::string NameOfGroup(const std::string& sid) {
    const std::string name = machine::AccountOfSid(sid);
    return name.empty() ? sid : name;
}

static std::string ParentOf(const machine::Process& process) {
    const machine::Process* parent = process.parentId ? machine::FindProcess(process.parentId) : nullptr;
    return parent ? parent->imagePath : "";
}

static std::string IntegrityOf(machine::Process& process) {
    return machine::IntegrityName(machine::TokenOf(process).integrity);
}

// What follows the program's name.
static std::string ArgumentsOf(const std::string& commandLine) {
    std::size_t end = commandLine.starts_with('"') ? commandLine.find('"', 1) : commandLine.find_first_of(" \t");
    if (end != std::string::npos && commandLine[end] == '"') {
        ++end;
    }
    const std::size_t start = end == std::string::npos ? end : commandLine.find_first_not_of(" \t", end);
    return start == std::string::npos ? "" : commandLine.substr(start);
}

// A name with or without its domain, or a SID; a privilege with or without its ending.
static bool Has(const machine::TokenFacts& token, const std::string& wanted) {
    for (const machine::TokenGroup& group : token.groups) {
        const std::string name = NameOfGroup(group.sid);
        const bool isMeant = machine::EqualNoCase(wanted, group.sid) || machine::EqualNoCase(wanted, name) ||
                             machine::EqualNoCase(wanted, name.substr(name.find('\\') + 1));
        if (isMeant && group.attributes & simwin::SE_GROUP_ENABLED) {
            return true;
        }
    }
    return std::any_of(token.privileges.begin(), token.privileges.end(), [&](const machine::TokenPrivilege& one) {
        const std::string name = machine::PrivilegeName(one.number);
        return machine::EqualNoCase(wanted, name) || machine::EqualNoCase(wanted + "Privilege", name);
    });
}

static bool HasAll(const machine::TokenFacts& token, const std::vector<std::string>& wanted, bool has) {
    return std::all_of(wanted.begin(), wanted.end(), [&](const std::string& one) { return Has(token, one) == has; });
}

// The account and the rights.
static bool FitsToken(const TomlTable& expect, machine::Process& process) {
    const machine::TokenFacts& token = machine::TokenOf(process);
    return (!expect.Has("user") || machine::EqualNoCase(process.user, expect.TextOf("user"))) &&
           (!expect.Has("session") || process.session == expect.NumberOf("session")) &&
           (!expect.Has("rights") || machine::RightsName(process.rights) == expect.TextOf("rights")) &&
           (!expect.Has("integrity") || IntegrityOf(process) == expect.TextOf("integrity")) &&
           HasAll(token, expect.TextsOf("has"), true) && HasAll(token, expect.TextsOf("lacks"), false);
}

static bool Fits(const TomlTable& expect, machine::Process& process) {
    const bool mustEnd = expect.Has("ends_at") || expect.Has("exit");
    return IsAt(expect, "at", process.startedMs) && (!mustEnd || process.ended) &&
           IsAt(expect, "ends_at", process.endedMs) &&
           (!expect.Has("exit") || process.exitCode == static_cast<simwin::DWORD>(expect.NumberOf("exit"))) &&
           (!expect.Has("arguments") || ArgumentsOf(process.commandLine) == expect.TextOf("arguments")) &&
           (!expect.Has("command_line") || process.commandLine == expect.TextOf("command_line")) &&
           (!expect.Has("directory") || machine::EqualNoCase(process.startDirectory, expect.TextOf("directory"))) &&
           (!expect.Has("parent") || machine::EqualNoCase(ParentOf(process), expect.TextOf("parent"))) &&
           (!expect.Has("show") || process.showCommand == expect.NumberOf("show")) && FitsToken(expect, process);
}

static std::string DescriptionOf(machine::Process& process) {
    return fmt::format("{} at {} in '{}' by {} in session {} ({} {}, show {}), {}", process.commandLine,
                       TimeText(process.startedMs), process.startDirectory, process.user, process.session,
                       machine::RightsName(process.rights), IntegrityOf(process), process.showCommand,
                       process.ended ? fmt::format("ended at {} with {}", TimeText(process.endedMs), process.exitCode)
                                     : "running");
}

void JudgeProcess(const TomlTable& expect, Wrongs& wrongs) {
    std::size_t fits = 0;
    std::string others;
    for (machine::Process* process : machine::AllProcesses()) {
        if (!machine::EqualNoCase(process->imagePath, expect.TextOf("process"))) {
            continue;
        }
        fits += Fits(expect, *process);
        others += (others.empty() ? "" : "; ") + DescriptionOf(*process);
    }
    if (expect.Has("count") ? fits != static_cast<std::size_t>(expect.NumberOf("count")) : fits == 0) {
        wrongs.push_back(fmt::format("{} such processes; there were: {}", fits, others.empty() ? "none" : others));
    }
}

nlohmann::ordered_json ProcessesJson() {
    Json list = Json::array();
    for (machine::Process* process : machine::AllProcesses()) {
        const machine::TokenFacts& token = machine::TokenOf(*process);
        Json groups = Json::array(), privileges = Json::array();
        for (const machine::TokenGroup& group : token.groups) {
            if (group.attributes & simwin::SE_GROUP_ENABLED) {
                groups.push_back(Utf8(NameOfGroup(group.sid)));
            }
        }
        for (const machine::TokenPrivilege& privilege : token.privileges) {
            privileges.push_back(machine::PrivilegeName(privilege.number));
        }
        list.push_back({{"at_ms", process->startedMs},
                        {"image", Utf8(process->imagePath)},
                        {"command_line", Utf8(process->commandLine)},
                        {"directory", Utf8(process->startDirectory)},
                        {"user", Utf8(process->user)},
                        {"session", process->session},
                        {"rights", machine::RightsName(process->rights)},
                        {"parent", Utf8(ParentOf(*process))},
                        {"integrity", IntegrityOf(*process)},
                        {"groups", std::move(groups)},
                        {"privileges", std::move(privileges)},
                        {"show", process->showCommand},
                        {"exit_code", process->ended ? Json(process->exitCode) : Json(nullptr)},
                        {"ended_at_ms", process->ended ? Json(process->endedMs) : Json(nullptr)}});
    }
    return list;
}

} // namespace rehearse
