#include "simwin/devices/tree/Description.h"

#include "simwin/kernel/Text.h"

#include <array>

namespace machine {

namespace {
struct KindName {
    DeviceKind kind;
    const char* name;
};
constexpr std::array<KindName, 8> KindNames = {{
    {DeviceKind::Port, "port"},
    {DeviceKind::Modem, "modem"},
    {DeviceKind::Controller, "controller"},
    {DeviceKind::RootHub, "root-hub"},
    {DeviceKind::Hub, "hub"},
    {DeviceKind::Usb, "usb"},
    {DeviceKind::Composite, "composite"},
    {DeviceKind::Other, "other"},
}};

struct TakenName {
    NameTaken taken;
    const char* name;
};
constexpr std::array<TakenName, 3> TakenNames = {{
    {NameTaken::NoName, "no-name"},
    {NameTaken::Fail, "fail"},
    {NameTaken::Take, "take"},
}};

struct OpensWord {
    const char* word;
    Opens opens;
};
constexpr std::array<OpensWord, 6> OpensWords = {{
    {"gone", {2, false, 0}},
    {"no-path", {3, false, 0}},
    {"no-device", {433, false, 0}},
    {"busy", {5, false, 0}},
    {"hangs", {0, true, 0}},
    {"ok", {0, false, 0}},
}};

struct Unit {
    const char* name;
    std::uint64_t ms;
};
} // namespace
constexpr std::array<Unit, 4> Units = {{{"ms", 1}, {"s", 1000}, {"m", 60'000}, {"h", 3'600'000}}};

static std::optional<std::uint64_t> DurationOf(std::string_view text) {
    std::size_t at = 0;
    std::uint64_t number = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9' && at < 15; ++at) {
        number = number * 10 + static_cast<std::uint64_t>(text[at] - '0');
    }
    if (at == 0) {
        return std::nullopt;
    }
    for (const Unit& unit : Units) {
        if (text.substr(at) == unit.name) {
            return number * unit.ms;
        }
    }
    return std::nullopt;
}

const char* DeviceKindName(DeviceKind kind) {
    for (const KindName& known : KindNames) {
        if (kind == known.kind) {
            return known.name;
        }
    }
    return "";
}

std::optional<DeviceKind> DeviceKindFromName(std::string_view name) {
    for (const KindName& known : KindNames) {
        if (name == known.name) {
            return known.kind;
        }
    }
    return std::nullopt;
}

std::optional<NameTaken> NameTakenFromName(std::string_view name) {
    for (const TakenName& known : TakenNames) {
        if (name == known.name) {
            return known.taken;
        }
    }
    return std::nullopt;
}

std::optional<Opens> OpensFromText(std::string_view text) {
    for (const OpensWord& known : OpensWords) {
        if (text == known.word) {
            return known.opens;
        }
    }
    constexpr std::string_view Late = "late ";
    if (text.substr(0, Late.size()) != Late) {
        return std::nullopt;
    }
    const auto delay = DurationOf(text.substr(Late.size()));
    return delay ? std::optional(Opens{0, false, *delay}) : std::nullopt;
}

template<typename T>
static void Over(std::optional<T>& base, const std::optional<T>& over) {
    if (over) {
        base = over;
    }
}

DeviceDescription MergeDescriptions(const DeviceDescription& base, const DeviceDescription& over) {
    DeviceDescription merged = base;
    Over(merged.parent, over.parent);
    Over(merged.kind, over.kind);
    Over(merged.className, over.className);
    Over(merged.classGuid, over.classGuid);
    Over(merged.service, over.service);
    Over(merged.description, over.description);
    Over(merged.friendlyName, over.friendlyName);
    Over(merged.hardwareId, over.hardwareId);
    Over(merged.driverKey, over.driverKey);
    Over(merged.location, over.location);
    Over(merged.locationPath, over.locationPath);
    Over(merged.address, over.address);
    Over(merged.irq, over.irq);
    Over(merged.ioPort, over.ioPort);
    Over(merged.portName, over.portName);
    Over(merged.dosDeviceName, over.dosDeviceName);
    Over(merged.nameValue, over.nameValue);
    Over(merged.nameTaken, over.nameTaken);
    Over(merged.kernelName, over.kernelName);
    Over(merged.kernelNamePath, over.kernelNamePath);
    Over(merged.interfaces, over.interfaces);
    Over(merged.hubPort, over.hubPort);
    Over(merged.ports, over.ports);
    Over(merged.knowsInMs, over.knowsInMs);
    Over(merged.cycleStatus, over.cycleStatus);
    Over(merged.plugged, over.plugged);
    Over(merged.problem, over.problem);
    Over(merged.startsInMs, over.startsInMs);
    Over(merged.leavesLink, over.leavesLink);
    Over(merged.linkGoes, over.linkGoes);
    Over(merged.vetoes, over.vetoes);
    Over(merged.refuses, over.refuses);
    Over(merged.heldBy, over.heldBy);
    Over(merged.isProtected, over.isProtected);
    return merged;
}

} // namespace machine
