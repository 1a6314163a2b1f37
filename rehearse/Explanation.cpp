#include "rehearse/Explanation.h"

#include "rehearse/LogOutput.h"

#include "simwin/kernel/Process.h"
#include "simwin/kernel/Scheduler.h"

#include <fmt/format.h>

#include <string_view>

namespace rehearse {

namespace {

// How the lines begin that tell a decision or its ground; the rest of the log is its trace.
constexpr std::string_view Decisions[] = {
    "using section [",
    "no [ComPortsNN] section for this port",
    "no ComPort defined in section",
    "new ComPorts=",
    "adding COM",
    "current portnumber ",
    "-> try next port",
    "other port will use section ",
    "changing name to ",
    "ComNameArbiterRemove(",
    "ComNameArbiterAdd(",
    "port came along with an upper device",
    "waiting for ",
    " port is restarting -> ignore removal",
    "CheckComPortAssignment skipped",
    " current kernel name of ",
    "the device we are just restarting",
};

constexpr std::string_view Mark = "[QUILLMARCH]  "; // stands in front of the message in each line of debugger output

// "Ports[2]=COM3 ...": a port has been entered in the list.
bool EntersAPort(std::string_view message) {
    return message.starts_with(" Ports[") && message.find("]=") != std::string_view::npos;
}

bool TellsADecision(std::string_view message) {
    if (EntersAPort(message))
        return true;
    for (const std::string_view start : Decisions)
        if (message.starts_with(start))
            return true;
    return false;
}

} // namespace

void ExplainDecisions(Timeline& timeline) {
    ForceDebugOutput();
    machine::WatchDebugOutput([&timeline](const machine::Process&, const char* text) {
        std::string_view message = text;
        const std::size_t at = message.find(Mark);
        if (at == std::string_view::npos)
            return;
        message.remove_prefix(at + Mark.size());
        while (message.ends_with('\n') || message.ends_with('\r'))
            message.remove_suffix(1);
        if (!TellsADecision(message))
            return;
        message.remove_prefix(message.find_first_not_of(' '));
        timeline.CatchUp();
        timeline.Add({machine::Now(), false, fmt::format("says: {}", message), {}, {}, {}, {}});
    });
}

} // namespace rehearse
