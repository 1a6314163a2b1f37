#include "rehearse/machine/MachineBuilder.h"

#include "rehearse/description/DescriptionReader.h"
#include "rehearse/host/Durations.h"
#include "rehearse/machine/DescribedSessions.h"
#include "rehearse/machine/DeviceTables.h"
#include "rehearse/machine/Exports.h"
#include "rehearse/machine/Surroundings.h"

#include "simwin/files/Files.h"
#include "simwin/kernel/Call.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Text.h"
#include "simwin/registry/Registry.h"
#include "simwin/services/Services.h"
#include "simwin/sessions/Sessions.h"
#include "simwin/sessions/Tokens.h"

#include <fmt/format.h>

#include <cstdio>

namespace rehearse {

constexpr std::int64_t LargestDword = 0xFFFFFFFF;
constexpr unsigned RegSz = 1, RegBinary = 3, RegDword = 4, RegMultiSz = 7;
constexpr unsigned DebugSession = 1;

namespace {
struct KnownVersion {
    unsigned major, minor, build, servicePack;
};
} // namespace
// The last build of each version and its service pack; the first row of a version is the one without a build.
constexpr KnownVersion KnownVersions[] = {
    {5, 0, 2195, 4}, {5, 1, 2600, 3}, {5, 2, 3790, 2}, {6, 0, 6002, 2},   {6, 0, 6001, 1},
    {6, 1, 7601, 1}, {6, 2, 9200, 0}, {6, 3, 9600, 0}, {10, 0, 19045, 0},
};

static const TomlTable& TableOrEmpty(const TomlTable& description, std::string_view key) {
    static const TomlTable Empty;
    const TomlTable* table = description.TableOf(key);
    return table ? *table : Empty;
}

// The row of exactly this build, else the version's first; null for an unknown version. build 0: not given.
static const KnownVersion* FindVersion(unsigned major, unsigned minor, unsigned build) {
    const KnownVersion* first = nullptr;
    for (const KnownVersion& row : KnownVersions) {
        if (row.major != major || row.minor != minor) {
            continue;
        }
        if (row.build == build) {
            return &row;
        }
        if (!first) {
            first = &row;
        }
    }
    return first;
}

static void SetVersion(machine::Setup& setup, const TomlTable& windows) {
    const std::string text = windows.TextOf("version", "10.0.19045");
    unsigned major = 0, minor = 0, build = 0;
    char rest = 0;
    const int parts = std::sscanf(text.c_str(), "%3u.%3u.%6u%c", &major, &minor, &build, &rest);
    const KnownVersion* known = FindVersion(major, minor, build);
    if ((parts != 2 && parts != 3) || !known) {
        throw InputError(windows.At("version"),
                         fmt::format("'{}' is no version of Windows such as \"10.0.19045\"", text));
    }
    setup.version = {major, minor, parts == 3 ? build : known->build};
    setup.servicePack = setup.version.build == known->build ? known->servicePack : 0;
}

static void SetClock(machine::Setup& setup, const TomlTable& windows) {
    if (!windows.Has("clock")) {
        return;
    }
    const std::string text = windows.TextOf("clock");
    char rest = 0;
    const int parts = std::sscanf(text.c_str(), "%4u-%2u-%2u %2u:%2u:%2u%c", &setup.year, &setup.month, &setup.day,
                                  &setup.hour, &setup.minute, &setup.second, &rest);
    constexpr unsigned LastDays[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool isDate = parts == 6 && setup.year >= 1970 && setup.month >= 1 && setup.month <= 12 && setup.day >= 1 &&
                        setup.day <= LastDays[setup.month - 1] && setup.hour < 24 && setup.minute < 60 &&
                        setup.second < 60;
    if (!isDate) {
        throw InputError(windows.At("clock"), fmt::format("'{}' is no time such as \"2026-03-02 14:03:22\"", text));
    }
}

static unsigned NumberIn(const TomlTable& table, std::string_view key, std::int64_t otherwise, std::int64_t least,
                         std::int64_t most) {
    const std::int64_t number = table.NumberOf(key, otherwise);
    if (number < least || number > most) {
        throw InputError(table.At(key), fmt::format("'{}' must be {} to {}", key, least, most));
    }
    return static_cast<unsigned>(number);
}

static void SetDescribedValues(const TomlTable& description) {
    const TomlTable& keys = TableOrEmpty(description, "registry_values");
    for (const auto& [key, values] : keys.Fields()) {
        CheckRegistryPath(key, values.at);
        for (const auto& [name, value] : values.tables.front().Fields()) {
            SetRegistryValue(description, key, name, value);
        }
    }
}

static void InstallProduct(const TomlTable& description, const Options& options) {
    const machine::Setup& setup = machine::TheSetup();
    machine::TheFiles().Write(setup.directory + "\\" + setup.executable, "");
    const TomlTable& product = TableOrEmpty(description, "quillmarch");
    if (product.Has("ini") && product.Has("ini_text")) {
        throw InputError(product.At("ini_text"), "'ini_text' cannot stand beside 'ini'");
    }
    if (options.ini) {
        machine::TheFiles().Write(ProductIni(), ReadHostFile(*options.ini, {*options.ini, 1, 1}));
    } else if (product.Has("ini")) {
        machine::TheFiles().Write(ProductIni(), ReadHostFile(product.TextOf("ini"), product.At("ini")));
    } else if (product.Has("ini_text")) {
        machine::TheFiles().Write(ProductIni(), product.TextOf("ini_text"));
    }
    if (product.FlagOf("registered", true)) {
        machine::DefineService(
            {ServiceName, ServiceName, fmt::format("\"{}\\{}\"", setup.directory, setup.executable)});
    }
}

static std::string ErrorsText(const machine::Operation& operation) {
    std::string text;
    for (std::size_t i = 1; i < operation.errorCount; ++i) {
        text += fmt::format("{}{}", text.empty() ? "" : ", ", operation.errors[i]);
    }
    return text.empty() ? "nothing" : text;
}

static void AddFaults(const TomlTable& description) {
    for (const TomlTable& table : description.TablesOf("fault")) {
        machine::Fault fault;
        fault.call = table.TextOf("call");
        const machine::Operation* operation = machine::FindOperation(fault.call);
        if (!operation) {
            throw InputError(table.At("call"),
                             fmt::format("'{}' is no operation that the product can call", fault.call));
        }
        fault.on = table.TextOf("on", "*");
        fault.error = NumberIn(table, "error", 0, 0, LargestDword);
        fault.delayMs = table.MsOf("delay");
        if (!fault.error && !fault.delayMs) {
            throw InputError(table.at, "this fault has neither 'error' nor 'delay'");
        }
        bool isKnown = fault.error == 0;
        for (std::size_t i = 1; i < operation->errorCount; ++i) {
            isKnown |= operation->errors[i] == fault.error;
        }
        if (!isKnown) {
            throw InputError(table.At("error"), fmt::format("'{}' can fail with {}, not with {}", fault.call,
                                                            ErrorsText(*operation), fault.error));
        }
        fault.after = NumberIn(table, "after", 0, 0, LargestDword);
        fault.times = NumberIn(table, "times", 1, 0, LargestDword);
        machine::AddFault(fault);
    }
}

// The account that runs the product when a user starts it.
static machine::ProcessStart StartByPerson(const TomlTable& description, const TomlTable& product) {
    machine::ProcessStart start;
    const std::string account = product.TextOf("account", "system");
    if (machine::EqualNoCase(account, "system")) {
        start.user = SystemUser;
        start.session = machine::ConsoleSession().value_or(DebugSession);
        start.rights = machine::Rights::System;
        start.administrator = true;
        return start;
    }
    machine::Logon logon = LogonOfUser(description, account, product.At("account"));
    logon.administrator = product.FlagOf("administrator", true);
    machine::StartWith(start, *new machine::Token(machine::LogonToken(logon)));
    return start;
}

static std::string WhyNotStarted(simwin::DWORD error) {
    switch (error) {
    case simwin::ERROR_SERVICE_ALREADY_RUNNING:
        return "the service runs already";
    case simwin::ERROR_SERVICE_MARKED_FOR_DELETE:
        return "the service is marked for deletion";
    case simwin::ERROR_FILE_NOT_FOUND:
    case simwin::ERROR_PATH_NOT_FOUND:
        return "the file that the service is registered with is not there";
    default:
        return fmt::format("error {}", error);
    }
}

// A user of a described session who has logged off since, or who was there before a boot.
static bool IsLoggedOff(const TomlTable& description, const std::string& account) {
    return !machine::EqualNoCase(account, "system") && !description.TablesOf("session").empty() &&
           !machine::FindSessionOfUser(account);
}

machine::Setup SetupOf(const TomlTable& description, const Options& options) {
    machine::Setup setup;
    const TomlTable& windows = TableOrEmpty(description, "windows");
    const TomlTable& product = TableOrEmpty(description, "quillmarch");
    SetVersion(setup, windows);
    SetClock(setup, windows);
    setup.x64Windows = windows.TextOf("edition", "x64") == "x64";
    setup.uptimeMs = windows.MsOf("uptime", MsPerHour);
    setup.language = NumberIn(windows, "language", 0x0409, 1, 0xFFFF);
    if (const Value* screen = windows.Find("screen")) {
        const bool isSize = screen->numbers.size() == 2 && screen->numbers[0] >= 1 && screen->numbers[1] >= 1 &&
                            screen->numbers[0] <= 0xFFFF && screen->numbers[1] <= 0xFFFF;
        if (!isSize) {
            throw InputError(screen->at, "'screen' must be a width and a height");
        }
        setup.screenWidth = static_cast<int>(screen->numbers[0]);
        setup.screenHeight = static_cast<int>(screen->numbers[1]);
    }
    setup.dpi = static_cast<int>(NumberIn(windows, "dpi", 96, 48, 960));
    setup.firstNode = NumberIn(windows, "first_node", 257, 1, 0x7FFF0000);
    if (windows.Has("pending_installs")) {
        setup.pendingInstallsUntilMs = windows.MsOf("pending_installs");
    }
    setup.firstInstallMs = windows.MsOf("first_install", setup.firstInstallMs);
    if (windows.Has("kill_services_after")) {
        setup.killServicesAfterMs = windows.MsOf("kill_services_after");
    }
    setup.bootUptimeMs = windows.MsOf("boot_uptime", setup.bootUptimeMs);
    setup.seed = options.seed;
    if (product.Has("directory")) {
        setup.directory = PathIn(product, "directory");
        while (setup.directory.ends_with('\\')) {
            setup.directory.pop_back();
        }
    }
    setup.productIsX64 = product.TextOf("edition", setup.x64Windows ? "x64" : "x86") == "x64";
    if (setup.productIsX64 && !setup.x64Windows) {
        throw InputError(product.At("edition"), "the x64 edition does not run on x86 Windows");
    }
    return setup;
}

std::string ProductIni() {
    return machine::TheSetup().directory + "\\Quillmarch.INI";
}

RegistryData RegistryDataOf(const Value& value) {
    if (value.type == Number) {
        if (value.number < 0 || value.number > LargestDword) {
            throw InputError(value.at, "a number of the registry must be 0 to 4294967295");
        }
        std::vector<std::uint8_t> bytes(4);
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            bytes[i] = static_cast<std::uint8_t>(value.number >> (8 * i));
        }
        return {RegDword, std::move(bytes)};
    }
    if (value.type == Numbers) {
        std::vector<std::uint8_t> bytes;
        for (std::size_t i = 0; i < value.numbers.size(); ++i) {
            if (value.numbers[i] < 0 || value.numbers[i] > 0xFF) {
                throw InputError(value.itemsAt[i], "a byte must be 0 to 255");
            }
            bytes.push_back(static_cast<std::uint8_t>(value.numbers[i]));
        }
        return {RegBinary, std::move(bytes)};
    }
    if (value.type == Texts) {
        std::vector<std::uint8_t> bytes;
        for (const std::string& text : value.texts) {
            const std::vector<std::uint8_t> one = machine::TextBytes(text);
            bytes.insert(bytes.end(), one.begin(), one.end());
        }
        bytes.push_back(0);
        return {RegMultiSz, std::move(bytes)};
    }
    return {RegSz, machine::TextBytes(value.text)};
}

void CheckRegistryPath(const std::string& key, const Position& at) {
    const std::string root = key.substr(0, key.find('\\'));
    if (!machine::TheRegistry().Root(root, SystemUser)) {
        throw InputError(at, fmt::format("'{}' begins with no root of the registry such as HKLM", key));
    }
}

void SetRegistryValue(const TomlTable& description, const std::string& key, const std::string& name,
                      const Value& value) {
    RegistryData data = RegistryDataOf(value);
    machine::Registry& registry = machine::TheRegistry();
    registry.PutValue(registry.CreateKey(key, DescribedUser(description)), name, data.type, std::move(data.data));
}

void FillMachine(const TomlTable& description, const Options& options) {
    ImportExports(description);
    InstallProduct(description, options);
    SetUpSurroundings(description);
    for (const TomlTable& session : description.TablesOf("session")) {
        if (session.Has("user")) { // SIDs are given in the order of the sessions
            (void)machine::SidOfAccount(session.TextOf("user"));
        }
    }
    SetDescribedValues(description);
    SetUpSessions(description); // the registry says whether their tokens are filtered
    SetUpDevices(description);
    AddFaults(description);
}

std::string DescribedUser(const TomlTable& description) {
    for (const TomlTable& session : description.TablesOf("session")) {
        if (session.Has("user")) {
            return session.TextOf("user");
        }
    }
    return SystemUser;
}

machine::Process* StartProductInRole(const TomlTable& description, std::string* why) {
    const TomlTable& product = TableOrEmpty(description, "quillmarch");
    const machine::Setup& setup = machine::TheSetup();
    const std::string role = product.TextOf("role", "service");
    if (role == "service" && machine::ServiceState(ServiceName) != 0) {
        if (const simwin::DWORD error = machine::StartServiceByMachine(ServiceName)) {
            *why = WhyNotStarted(error);
            return nullptr;
        }
        return machine::ServiceProcess(ServiceName);
    }
    const std::string account = product.TextOf("account", "system");
    if (role != "service" && IsLoggedOff(description, account)) {
        *why = account + " is not logged on";
        return nullptr;
    }
    machine::ProcessStart start = role == "service" ? machine::ProcessStart() : StartByPerson(description, product);
    if (role == "service") {
        start.user = SystemUser;
    }
    start.imagePath = setup.directory + "\\" + setup.executable;
    start.currentDirectory = setup.directory;
    const std::string arguments = product.TextOf("command_line", role == "debug" ? "-debug" : "");
    start.commandLine = fmt::format("\"{}\"{}{}", start.imagePath, arguments.empty() ? "" : " ", arguments);
    return machine::StartProduct(start);
}

} // namespace rehearse
