// The product's log: forced on for the person who rehearses, followed while the machine runs, read back for
// expectations and for --log.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace rehearse {

class CheckLog;

// From now on the product's own reads of WriteLogfile, LogLevel and Logfile see a log that is on at this level, in its
// default place. The configuration file is unchanged.
void ForceLog(int level);

// From now on the product's own reads see debugger output that is on, for --explain; with --log both are on.
void ForceDebugOutput();
// The same for the observer: at the level at which the product logs all that it read of its configuration.
void ForceDebugOutputInFull();

// Whether the product writes a log: forced, or by the configuration as it is now.
bool IsLogOn();

std::string LogFilePath(); // on the machine

// Everything from the backup's first record to the file's last, verbatim.
std::string LogText();
std::vector<std::string> LogLines(); // without line ends

// The log of the second run, for who wants to read what stood around an event.
struct ObservedLog {
    std::string text;                     // UTF-8, a line for each message: time, thread, message
    std::vector<std::size_t> linesBefore; // each entry of the second run's timeline: how many lines precede it
    bool isCut = false;                   // it was longer than MostLogBytes: the rest is not there
};
inline constexpr std::size_t MostLogBytes = 10'000'000;

// Feeds a log's messages from the product's debugger output, which is forced on. Called once for a machine. also: gets
// each message after that.
void WatchLog(CheckLog& log, std::function<void(std::uint32_t thread, std::string_view message)> also = {});

// The messages of the product's debugger output, without their prefix; context: the thread. Forces nothing. Called once
// for a machine.
void WatchMessages(std::function<void(std::uint64_t context, std::string_view message)> watcher);

} // namespace rehearse
