#include "simwin/texts/Environment.h"

#include "simwin/kernel/Process.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/kernel/Setup.h"
#include "simwin/kernel/Text.h"
#include "simwin/registry/Security.h"

#include <map>
#include <optional>

namespace machine {

using Variables = std::map<std::string, std::string, NoCaseLess>;

namespace {
struct EnvironmentRoom {
    Variables ofAll;
    std::map<std::string, Variables, NoCaseLess> ofAccounts; // in addition to their defaults
};
} // namespace
static EnvironmentRoom* g_environment;

RoomPtr MakeEnvironment() {
    RoomPtr room = MakeRoom(g_environment);
    const std::string windows = WindowsDirectory(), system = SystemDirectory();
    g_environment->ofAll = {{"SystemDrive", "C:"},
                            {"SystemRoot", windows},
                            {"windir", windows},
                            {"ProgramFiles", "C:\\Program Files"},
                            {"ProgramData", "C:\\ProgramData"},
                            {"ALLUSERSPROFILE", "C:\\ProgramData"},
                            {"PUBLIC", "C:\\Users\\Public"},
                            {"COMPUTERNAME", "LAB-PC"},
                            {"ComSpec", system + "\\cmd.exe"},
                            {"Path", system + ";" + windows}};
    if (TheSetup().x64Windows) {
        g_environment->ofAll["ProgramFiles(x86)"] = "C:\\Program Files (x86)";
    }
    return room;
}

// What differs by account. The system goes by the computer's name.
static Variables EnvironmentOfAccount(const std::string& account) {
    if (SidOfAccount(account) == SidSystem) {
        const std::string temp = WindowsDirectory() + "\\Temp";
        return {{"USERNAME", GetEnvironment("COMPUTERNAME") + "$"},
                {"USERPROFILE", SystemDirectory() + "\\config\\systemprofile"},
                {"TEMP", temp},
                {"TMP", temp}};
    }
    const std::size_t slash = account.find('\\');
    const std::string user = slash == std::string::npos ? account : account.substr(slash + 1);
    const std::string profile = "C:\\Users\\" + user, temp = profile + "\\AppData\\Local\\Temp";
    return {{"USERNAME", user}, {"USERPROFILE", profile}, {"TEMP", temp}, {"TMP", temp}};
}

static const std::string* FindIn(const Variables& environment, std::string_view name) {
    const auto place = environment.find(name);
    return place == environment.end() ? nullptr : &place->second;
}

std::string GetEnvironment(std::string_view name, bool* found) {
    const EnvironmentRoom& room = *g_environment;
    std::optional<std::string> value;
    if (const Thread* thread = CurrentThread()) {
        const auto described = room.ofAccounts.find(thread->process->environmentOf);
        if (described != room.ofAccounts.end()) {
            if (const std::string* own = FindIn(described->second, name)) {
                value = *own;
            }
        }
    }
    if (!value) {
        if (const std::string* common = FindIn(room.ofAll, name)) {
            value = *common;
        }
    }
    if (!value && CurrentThread()) {
        const Variables account = EnvironmentOfAccount(CurrentProcess()->environmentOf);
        if (const std::string* own = FindIn(account, name)) {
            value = *own;
        }
    }
    if (found) {
        *found = value.has_value();
    }
    return value.value_or("");
}

void SetUserEnvironment(std::string_view account, std::string_view name, std::string_view value) {
    g_environment->ofAccounts[std::string(account)].insert_or_assign(std::string(name), std::string(value));
}

void SetEnvironment(std::string_view name, std::string_view value) {
    g_environment->ofAll.erase(std::string(name));
    g_environment->ofAll.emplace(name, value);
}

std::string ExpandEnvironment(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const std::size_t start = text.find('%');
        const std::size_t end = start == std::string_view::npos ? start : text.find('%', start + 1);
        if (end == std::string_view::npos) {
            break;
        }
        bool found = false;
        const std::string value = GetEnvironment(text.substr(start + 1, end - start - 1), &found);
        result += text.substr(0, start);
        if (found) {
            result += value;
            text.remove_prefix(end + 1);
        } else {
            result += text.substr(start, end - start);
            text.remove_prefix(end); // its last character may be the first of the next name
        }
    }
    return result += text;
}

} // namespace machine
