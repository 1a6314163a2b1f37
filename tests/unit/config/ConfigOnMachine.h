// A configuration on the simulated machine, and the log as the debugger sees it: for tests that ask the reader, and for
// those of the rooms that work on what it gives.
#pragma once

#include "tests/harness/Harness.h"

#include "config/CCfgReader.h"
#include "config/CSettings.h"
#include "simwin/files/Files.h"
#include "simwin/kernel/Process.h"
#include "support/BoundedText.h"
#include "support/LogFile.h"
#include "support/ProcessState.h"

#include <string>

namespace configtest {

inline constexpr char IniPath[] = "C:\\Config\\Quillmarch.ini";

// Every record from here on goes to the debugger's output. The log has a file of settings for itself, so that a test's
// configuration does not switch it off.
inline void StartLog() {
    CopyText(szIniFile, "C:\\Log\\Quillmarch.ini");
    machine::TheFiles().Write(szIniFile, "[Settings]\r\nLogLevel=5\r\nWriteDebugOutput=1\r\n");
    LogFile_Init(/*rotate=*/0);
    machine::CurrentProcess()->debugOutput.clear();
}

inline bool Logged(const std::string& text) {
    return machine::CurrentProcess()->debugOutput.find(text) != std::string::npos;
}

inline int CountLogged(const std::string& text) {
    const std::string& log = machine::CurrentProcess()->debugOutput;
    int count = 0;
    for (size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + text.size())) {
        ++count;
    }
    return count;
}

inline void WriteIni(const std::string& text) {
    machine::TheFiles().Write(IniPath, text);
}

// The reader of the process on this text, and the settings from it. Both live until the process ends.
inline CCfgReader* UseIni(const std::string& text) {
    WriteIni(text);
    g_pCfgReader = new CCfgReader(IniPath, nullptr, nullptr);
    g_pCfgReader->CreateSnapshot("test");
    g_pSettings = new CSettings;
    g_pSettings->ReadSettings();
    return g_pCfgReader;
}

inline constexpr char Absent[] = "(absent)";

inline std::string Get(CCfgReader& reader, CfgSectionType type, LONG number, const char* key) {
    char value[2048];
    reader.GetString(type, number, key, Absent, value, sizeof(value));
    return value;
}

// The value that a file with this text gives.
inline std::string Read(const std::string& text, CfgSectionType type, LONG number, const char* key) {
    WriteIni(text);
    CCfgReader reader(IniPath, nullptr, nullptr);
    reader.CreateSnapshot("test");
    return Get(reader, type, number, key);
}

} // namespace configtest
