// The product's log: forced on for the person who rehearses, read back for expectations and for --log.
#pragma once

#include <string>
#include <vector>

namespace rehearse {

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

} // namespace rehearse
