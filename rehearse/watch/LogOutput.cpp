#include "rehearse/watch/LogOutput.h"

#include "rehearse/watch/CheckLog.h"

#include "simwin/files/Files.h"
#include "simwin/kernel/Livelock.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/kernel/Setup.h"
#include "simwin/kernel/Text.h"

#include <fmt/format.h>

#include <optional>
#include <string_view>
#include <utility>

namespace rehearse {

constexpr const char* DefaultLogFile = "C:\\_Quillmarch.log";
constexpr int DecisionsLevel = 3;                   // at which the product logs each decision
constexpr int FullLevel = 5;                        // and each value of a configuration in the registry
constexpr std::string_view Mark = "[QUILLMARCH]  "; // precedes the message in each line of debugger output
// A detailed log adds a dozen calls for each line, and of many ports there are many lines: those alone are no livelock.
// A real one ends the first run, and with it this one.
constexpr std::uint64_t CallsWithDetailedLog = 100 * machine::LivelockCalls;
constexpr unsigned ContextBits = 32;
static bool g_isForced = false; // the file
static bool g_isDebugOutputForced = false;
static int g_level = DecisionsLevel;

static std::string IniFile() {
    const machine::Setup& setup = machine::TheSetup();
    return setup.directory + "\\" + setup.executable.substr(0, setup.executable.rfind('.')) + ".INI";
}

static std::optional<std::string> IniValue(std::string_view key) {
    const std::optional<std::string> text = machine::TheFiles().Read(IniFile());
    return text ? machine::ProfileValue(*text, "Settings", key) : std::nullopt;
}

// The backup's name: "_bak.log" in place of each ".log".
static std::string BackupOf(const std::string& file) {
    std::string backup;
    std::size_t at = 0;
    for (std::size_t found; (found = machine::FindNoCase(file, ".log", at)) != std::string::npos; at = found + 4) {
        backup += file.substr(at, found - at) + "_bak.log";
    }
    return backup + file.substr(at);
}

static std::optional<std::string> ForcedValue(const std::string& file, std::string_view section, std::string_view key) {
    if (!machine::EqualNoCase(file, IniFile()) || !machine::EqualNoCase(section, "Settings")) {
        return std::nullopt;
    }
    if (machine::EqualNoCase(key, "LogLevel")) {
        return fmt::format("{}", g_level);
    }
    if (machine::EqualNoCase(key, "WriteDebugOutput") && g_isDebugOutputForced) {
        return "1";
    }
    if (machine::EqualNoCase(key, "WriteLogfile") && g_isForced) {
        return "1";
    }
    if (machine::EqualNoCase(key, "Logfile") && g_isForced) {
        return DefaultLogFile;
    }
    return std::nullopt;
}

void ForceLog(int level) {
    g_isForced = true;
    g_level = level;
    machine::SetProfileOverride(ForcedValue);
}

void ForceDebugOutput() {
    g_isDebugOutputForced = true;
    machine::SetProfileOverride(ForcedValue);
}

void ForceDebugOutputInFull() {
    g_level = FullLevel;
    ForceDebugOutput();
}

bool IsLogOn() {
    // A log that was on once stays on: the product switches it on while it runs, never off.
    return g_isForced || IniValue("WriteLogfile").value_or("").starts_with('1') || !LogText().empty();
}

std::string LogFilePath() {
    if (g_isForced) {
        return DefaultLogFile;
    }
    const std::string value = IniValue("Logfile").value_or("");
    if (value.empty()) {
        return DefaultLogFile;
    }
    const std::string full = machine::TheFiles().FullPath(value, machine::TheSetup().directory);
    const std::string folder = full.substr(0, full.rfind('\\'));
    return machine::TheFiles().Exists(folder) ? full : DefaultLogFile;
}

std::string LogText() {
    const std::string file = LogFilePath();
    return machine::TheFiles().Read(BackupOf(file)).value_or("") + machine::TheFiles().Read(file).value_or("");
}

std::vector<std::string> LogLines() {
    std::vector<std::string> lines = machine::Split(LogText(), '\n');
    for (std::string& line : lines) {
        if (line.ends_with('\r')) {
            line.pop_back();
        }
    }
    if (!lines.empty() && lines.back().empty()) {
        lines.pop_back();
    }
    return lines;
}

void WatchLog(CheckLog& log, std::function<void(std::uint32_t thread, std::string_view message)> also) {
    ForceDebugOutputInFull();
    machine::AllowCallsWithoutTime(CallsWithDetailedLog);
    WatchMessages([&log, also = std::move(also)](std::uint64_t context, std::string_view message) {
        log.Read(context, machine::Now(), message);
        if (also) {
            also(static_cast<std::uint32_t>(context), message);
        }
    });
}

void WatchMessages(std::function<void(std::uint64_t context, std::string_view message)> watcher) {
    machine::WatchDebugOutput([watcher = std::move(watcher)](const machine::Process& process, const char* text) {
        std::string_view message = text;
        const std::size_t at = message.find(Mark);
        const machine::Thread* thread = machine::CurrentThread();
        if (at == std::string_view::npos || !thread) {
            return;
        }
        message.remove_prefix(at + Mark.size());
        while (message.ends_with('\n') || message.ends_with('\r')) {
            message.remove_suffix(1);
        }
        watcher(std::uint64_t(process.id) << ContextBits | thread->id, message);
    });
}

} // namespace rehearse
