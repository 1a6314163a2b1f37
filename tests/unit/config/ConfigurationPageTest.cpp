// docs/configuration.md against the tables of keys: no key without its row, no row without a key, and the numbers that
// the page gives as defaults are those that the program has without the key.
#include "keys/ConfigurationKeys.h"
#include "tests/unit/config/ConfigOnMachine.h"

#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <regex>
#include <set>
#include <string>

using namespace configtest;

// Key, with its digit cut off -> the third cell of its row, in the sections whose headings have brackets.
static std::map<std::string, std::string> KeysOfThePage() {
    std::map<std::string, std::string> keys;
    std::ifstream page(QM_SOURCE_FOLDER "/docs/configuration.md");
    bool isSection = false;
    for (std::string line; std::getline(page, line);) {
        if (line.starts_with("## ")) {
            isSection = line.starts_with("## [");
        }
        std::smatch cells;
        if (!isSection || !std::regex_match(line, cells, std::regex(R"(\| (`[^|]*`) \|[^|]*\| *([^|]*?) *\|.*)"))) {
            continue;
        }
        const std::string names = cells[1];
        const std::regex name("`([A-Za-z]\\w*?)\\d?`");
        for (std::sregex_iterator at(names.begin(), names.end(), name), end; at != end; ++at) {
            keys.try_emplace((*at)[1], cells[2]);
        }
    }
    return keys;
}

static std::string WithoutMark(std::string_view name) {
    return std::string(name.ends_with('_') ? name.substr(0, name.size() - 1) : name);
}

TEST(ConfigurationPage, HasExactlyTheKeysThatTheProductReads) {
    std::set<std::string> read;
    const auto add = [&](const auto& table) {
        for (const KnownKey& key : table) {
            read.insert(WithoutMark(key.name));
        }
    };
    add(SettingsKeys);
    add(BalloonKeys);
    add(CriterionKeys);
    add(PortKeys);
    add(EntryKeys);
    std::set<std::string> documented;
    for (const auto& [name, cell] : KeysOfThePage()) {
        documented.insert(name);
    }
    EXPECT_EQ(documented, read);
}

TEST(ConfigurationPage, GivesTheDefaultsThatTheProductHasWithoutTheKeys) {
    UseIni("");
    std::map<std::string, std::string> page = KeysOfThePage();
    const std::map<std::string, LONG> settings = {
        {"TelitHack", g_pSettings->TelitHack},
        {"RegisterAllDevClasses", g_pSettings->RegisterAllDevClasses},
        {"QuickAndDirtyMode", g_pSettings->QuickAndDirtyMode},
        {"RemoveDosDeviceNameOnStartup", g_pSettings->RemoveDosDeviceNameOnStartup},
        {"RemoveDosDeviceNameOnRemoval", g_pSettings->RemoveDosDeviceNameOnRemoval},
        {"RemovePortDeviceOnRemoval", g_pSettings->RemovePortDeviceOnRemoval},
        {"RemoveUsbDeviceOnRemoval", g_pSettings->RemoveUsbDeviceOnRemoval},
        {"CheckPortsOnStartup", g_pSettings->CheckPortsOnStartup},
        {"CheckPortsOnResume", g_pSettings->CheckPortsOnResume},
        {"MaxPortNumber", g_pSettings->MaxPortNumber},
        {"WaitNoPendingInstallEventsOnInit", g_pSettings->WaitNoPendingInstallEventsOnInit},
        {"RemoteSessions", g_pSettings->RemoteSessions},
        {"Enabled", g_pSettings->Enabled},
        {"Timeout", g_pSettings->Timeout},
    };
    for (const auto& [name, value] : settings) {
        EXPECT_EQ(page[name], std::to_string(value)) << name;
    }
    for (const KnownKey& key : SettingsKeys) {
        if (key.kind == KeyKind::Flag || key.kind == KeyKind::Number) {
            EXPECT_EQ(page[key.name], std::to_string(key.defaultNumber)) << key.name;
        }
    }
    EXPECT_EQ(page["TextRemoved"], g_pSettings->TextRemoved);
    EXPECT_EQ(g_pSettings->TimeoutOnRemoval, g_pSettings->Timeout / 2);
}

// Where nothing has been read yet, nothing is switched on: a failed first reading must not do what nobody asked for.
TEST(ConfigurationPage, IsSafeBeforeAnyReading) {
    const CSettings settings;
    for (const LONG flag :
         {settings.TelitHack, settings.QuickAndDirtyMode, settings.RemoveDosDeviceNameOnStartup,
          settings.RemoveDosDeviceNameOnRemoval, settings.RemovePortDeviceOnRemoval, settings.RemoveUsbDeviceOnRemoval,
          settings.CheckPortsOnStartup, settings.CheckPortsOnResume, settings.Enabled, settings.EnabledOnRemoval}) {
        EXPECT_EQ(flag, 0);
    }
    EXPECT_EQ(settings.MaxPortNumber, FindKey("MaxPortNumber")->defaultNumber);
}
