#include "simwin/devices/Description.h"

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
constexpr std::array<Unit, 4> Units = {{{"ms", 1}, {"s", 1000}, {"m", 60'000}, {"h", 3'600'000}}};

std::optional<std::uint64_t> DurationOf(std::string_view text) {
    std::size_t at = 0;
    std::uint64_t number = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9' && at < 15; ++at)
        number = number * 10 + static_cast<std::uint64_t>(text[at] - '0');
    if (at == 0)
        return std::nullopt;
    for (const Unit& unit : Units)
        if (text.substr(at) == unit.name)
            return number * unit.ms;
    return std::nullopt;
}

} // namespace

const char* DeviceKindName(DeviceKind kind) {
    for (const KindName& known : KindNames)
        if (kind == known.kind)
            return known.name;
    return "";
}

std::optional<DeviceKind> DeviceKindFromName(std::string_view name) {
    for (const KindName& known : KindNames)
        if (name == known.name)
            return known.kind;
    return std::nullopt;
}

std::optional<NameTaken> NameTakenFromName(std::string_view name) {
    for (const TakenName& known : TakenNames)
        if (name == known.name)
            return known.taken;
    return std::nullopt;
}

std::optional<Opens> OpensFromText(std::string_view text) {
    for (const OpensWord& known : OpensWords)
        if (text == known.word)
            return known.opens;
    constexpr std::string_view Late = "late ";
    if (text.substr(0, Late.size()) != Late)
        return std::nullopt;
    const auto delay = DurationOf(text.substr(Late.size()));
    return delay ? std::optional(Opens{0, false, *delay}) : std::nullopt;
}

} // namespace machine
