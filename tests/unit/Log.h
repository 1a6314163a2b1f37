// The product's log as the debugger sees it, for tests that prove by a line what was done.
#pragma once

#include "tests/harness/Harness.h"

#include "simwin/files/Files.h"
#include "simwin/kernel/Process.h"
#include "support/log/LogFile.h"
#include "support/system/ProcessState.h"
#include "support/texts/BoundedText.h"

#include <string>

namespace logtest {

inline void ClearLog() {
    machine::CurrentProcess()->debugOutput.clear();
}

// Every record from here on goes to the debugger's output. The log has a file of settings for itself, so that a test's
// configuration does not switch it off.
inline void StartLog() {
    CopyText(szIniFile, "C:\\Log\\Quillmarch.ini");
    machine::TheFiles().Write(szIniFile, "[Settings]\r\nLogLevel=5\r\nWriteDebugOutput=1\r\n");
    LogFile_Init(/*rotate=*/0);
    ClearLog();
}

inline int CountLogged(const std::string& text) {
    const std::string& log = machine::CurrentProcess()->debugOutput;
    int count = 0;
    for (std::size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + text.size())) {
        ++count;
    }
    return count;
}

inline bool Logged(const std::string& text) {
    return CountLogged(text) > 0;
}

} // namespace logtest
