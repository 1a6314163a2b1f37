// Placeholders with hostile values: the configured quotes still pair, every argument inside them stays one.
#include "fuzz/Stage.h"

#include "actions/PortVariables.h"
#include "inventory/ports/CComPorts.h"
#include "support/texts/BoundedText.h"

#include <cstring>

namespace fuzz {

// The arguments of a command line, as a program's run-time library counts them.
static std::size_t CountArguments(const std::string& line) {
    std::size_t count = 0, slashes = 0;
    bool isQuoted = false, isInside = false;
    for (const char c : line) {
        if ((c == ' ' || c == '\t') && !isQuoted) {
            isInside = false;
        } else if (!isInside) {
            isInside = true;
            ++count;
        }
        if (c == '"' && slashes % 2 == 0) {
            isQuoted = !isQuoted;
        }
        slashes = c == '\\' ? slashes + 1 : 0;
    }
    return count + (isQuoted ? 1000 : 0);
}

void Prepare() {
}

void TryInput(std::string_view input) {
    CComPort port;
    port.BusTypeName = "";
    const std::string name = TextOf(input);
    const std::string location = TextOf(input.substr(name.size() < input.size() ? name.size() + 1 : name.size()));
    CopyText(port.FriendlyName, name.c_str());
    CopyText(port.Location, location.c_str());
    const std::size_t first = input.empty() ? 0 : static_cast<unsigned char>(input[0]);
    const ValueRules rules = {(first & 1) != 0, (first & 2) != 0};
    for (const char* line : {"\"%FriendlyName%\" \"a %location%%FriendlyName%\" \"C:\\%Location%\" b",
                             "\"%Location%%UsbPort%\" \"\\\\%FriendlyName%%Location%\" c"}) {
        char text[MaxCommandLine + 2] = {};
        CopyText(text, line);
        text[MaxCommandLine + 1] = '#';
        const std::size_t expected = CountArguments("\"x\" \"x\" x") + (std::strstr(line, " b") ? 1 : 0);
        const bool isExpanded = ExpandPortVariables(port, text, MaxCommandLine, rules);
        Require(text[MaxCommandLine + 1] == '#', "nothing is written after the text");
        Require(CountArguments(text) == (isExpanded ? expected : 0), "inside quotes a value stays one argument");
        char cut[64] = {};
        CopyText(cut, sizeof(cut) - 1, line);
        cut[63] = '#';
        (void)ExpandPortVariables(port, cut, 62, rules);
        Require(std::strlen(cut) <= 62 && cut[63] == '#', "the limit holds");
    }
}

} // namespace fuzz
