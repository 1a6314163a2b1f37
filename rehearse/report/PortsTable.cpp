#include "rehearse/report/PortsTable.h"

#include "rehearse/host/Flow.h"

#include "simwin/kernel/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <numeric>

namespace rehearse {

constexpr std::size_t ColumnCount = 7;
constexpr std::size_t DeviceIndent = 4; // of a device below its line
using Row = std::array<std::string, ColumnCount>;

static std::string OrDash(const std::string& text) {
    return text.empty() ? "-" : machine::Utf8FromAnsi(text);
}

static std::string WantedOf(const PortVerdict& port) {
    if (port.section.empty()) {
        return "-";
    }
    std::string text = fmt::format("[{}] {}", port.section, NumbersText(port.wanted, "COM"));
    if (port.lastResort) {
        text += fmt::format(" else COM{}", port.lastResort);
    }
    return text;
}

static std::string StateOf(const PortVerdict& port) {
    std::string text;
    for (const std::string& state : port.states) {
        text += (text.empty() ? "" : "; ") + state;
    }
    return text;
}

static Row RowOf(const PortVerdict& port) {
    return {OrDash(port.facts.dosName),
            WantedOf(port),
            StateOf(port),
            OrDash(port.facts.registryName),
            OrDash(port.facts.usbPort),
            fmt::format("{}", port.facts.restarts),
            machine::Utf8FromAnsi(port.facts.device)};
}

std::string PortsTable(const std::vector<PortVerdict>& ports, std::size_t width) {
    if (ports.empty()) {
        return "No ports.\n";
    }
    std::vector<Row> rows = {{"Port", "Wanted", "State", "Registry", "USB port", "Restarts", "Device"}};
    for (const PortVerdict& port : ports) {
        rows.push_back(RowOf(port));
    }
    std::array<std::size_t, ColumnCount> widths{};
    for (const Row& row : rows) {
        for (std::size_t i = 0; i < ColumnCount; ++i) {
            widths[i] = std::max(widths[i], ColumnsOf(row[i]));
        }
    }
    const std::size_t whole = std::accumulate(widths.begin(), widths.end(), 2 * (ColumnCount - 1));
    std::string text;
    for (const Row& row : rows) {
        std::string line;
        for (std::size_t i = 0; i + 1 < ColumnCount; ++i) {
            line += row[i] + std::string(widths[i] - ColumnsOf(row[i]) + 2, ' ');
        }
        if (width == 0 || whole <= width) {
            text += line + row.back() + "\n";
        } else {
            text += Flow(line.substr(0, line.find_last_not_of(' ') + 1), width, DeviceIndent) + "\n" +
                    std::string(DeviceIndent, ' ') + row.back() + "\n";
        }
    }
    return text;
}

} // namespace rehearse
