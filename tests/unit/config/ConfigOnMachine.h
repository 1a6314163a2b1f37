// A configuration on the simulated machine, for tests of the reader and of its users.
#pragma once

#include "tests/unit/Log.h"

#include "config/CCfgReader.h"
#include "config/CSettings.h"

namespace configtest {

using namespace logtest;

inline constexpr char IniPath[] = "C:\\Config\\Quillmarch.ini";

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
    reader.GetString(type, number, KeyName::Unchecked(key), Absent, value, sizeof(value));
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
