#include "rehearse/PortsTable.h"

#include "simwin/kernel/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace rehearse {

namespace {

constexpr std::size_t ColumnCount = 6;
using Row = std::array<std::string, ColumnCount>;

std::string StateOf(const PortFacts& port) {
    if (!port.isPresent)
        return "not there";
    if (port.problem)
        return fmt::format("problem {}", port.problem);
    return "";
}

Row RowOf(const PortFacts& port) {
    return {port.dosName.empty() ? "-" : port.dosName,
            port.registryName.empty() ? "-" : port.registryName,
            port.usbPort.empty() ? "-" : port.usbPort,
            fmt::format("{}", port.restarts),
            StateOf(port),
            machine::Utf8FromAnsi(port.device)};
}

} // namespace

std::string PortsTable(const std::vector<PortFacts>& ports) {
    if (ports.empty())
        return "No ports.\n";
    std::vector<Row> rows = {{"Port", "Registry", "USB port", "Restarts", "State", "Device"}};
    for (const PortFacts& port : ports)
        rows.push_back(RowOf(port));
    std::array<std::size_t, ColumnCount> widths{};
    for (const Row& row : rows)
        for (std::size_t i = 0; i < ColumnCount; ++i)
            widths[i] = std::max(widths[i], row[i].size());
    std::string text;
    for (const Row& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < ColumnCount; ++i)
            line += i + 1 < ColumnCount ? fmt::format("{:<{}}  ", row[i], widths[i]) : row[i];
        text += line + "\n";
    }
    return text;
}

} // namespace rehearse
