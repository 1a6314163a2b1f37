#include "host/StartModes.h"

#include "support/system/Accounts.h"

namespace {
struct ModeRow {
    const char* name;
    const char* prefix; // of the command line; null: not chosen by it
};
} // namespace

constexpr ModeRow ModeTable[] = {
    {"nul", nullptr},
    {"service", nullptr},
    {"debug", "-debug"},
    {"nonservice", nullptr},
    {"setregarbiter", "-setregarbiter"},
    {"balloon", "-balloon"},
    {"ini", "-ini"},
    {"exec", "-exe"},
};
static_assert(sizeof(ModeTable) / sizeof(ModeTable[0]) == ModeCount);

static bool BeginsWith(const char* text, const char* prefix) {
    while (*prefix != 0 && *text == *prefix) {
        ++text;
        ++prefix;
    }
    return *prefix == 0;
}

const char* StartModeName(LONG mode) {
    return mode >= 0 && mode < ModeCount ? ModeTable[mode].name : "";
}

LONG ChooseStartMode(const char* userSid, bool isUserSession, const char* commandLine) {
    if (IsSystemSidText(userSid)) {
        return isUserSession ? ModeDebug : ModeService;
    }
    if (commandLine[0] == 0) {
        return ModeNul;
    }
    for (LONG mode = 0; mode < ModeCount; ++mode) {
        if (ModeTable[mode].prefix != nullptr && BeginsWith(commandLine, ModeTable[mode].prefix)) {
            return mode;
        }
    }
    return ModeNonservice;
}
