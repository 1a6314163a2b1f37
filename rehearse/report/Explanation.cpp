#include "rehearse/report/Explanation.h"

#include "rehearse/watch/LogOutput.h"

#include "simwin/kernel/Scheduler.h"

#include <fmt/format.h>

#include <string_view>
#include <utility>

namespace rehearse {

// The beginnings of lines that state a decision or its reason; the rest of the log is trace.
constexpr std::string_view Decisions[] = {
    "using section [",
    "no [ComPortsNN] section for this port",
    "no ComPort defined in section",
    "new ComPorts=",
    "adding COM",
    "current portnumber ",
    "other port will use section ",
    "changing name to ",
    "ComNameArbiterRemove(",
    "ComNameArbiterAdd(",
    "port came along with an upper device",
    " used by Ports[",
    " no, in use by ",
    " -> delete zombie symlink ",
    "  OK -> is available now",
    "unexpected gone ddn",
    "unexpected problem=",
    "-> try next port",
    "QuickAndDirty overrule",
    "waiting for ",
    " current kernel name of ",
    "the device we are just restarting",
};

// The middle part of such a line.
constexpr std::string_view Grounds[] = {
    " has no link without a device any more",
    " waits for the restart of ",
    " is present but should not",
    " has two Win32 names: ",
    " -> no swap",
    " has lost its DDN ",
};

// "Ports[2]=COM3 ...": a port was entered in the list.
static bool EntersAPort(std::string_view message) {
    return message.starts_with(" Ports[") && message.find("]=") != std::string_view::npos;
}

static bool TellsADecision(std::string_view message) {
    if (EntersAPort(message)) {
        return true;
    }
    for (const std::string_view start : Decisions) {
        if (message.starts_with(start)) {
            return true;
        }
    }
    for (const std::string_view ground : Grounds) {
        if (message.find(ground) != std::string_view::npos) {
            return true;
        }
    }
    return message.ends_with("  :-(");
}

// Lines that belong to what follows: what came of the check before them stands first.
static bool BeginsAnew(std::string_view message) {
    for (const std::string_view start :
         {"CheckComPortAssignment(", "FixFriendlyName(", "ComPortArrived(", "ComPortRemoved(", "ComNameArbiterAdd("}) {
        if (message.starts_with(start)) {
            return true;
        }
    }
    return false;
}

// What comes of an arrival or a removal that the product's own restart caused; "" for another message.
static std::string OwnRestart(std::string_view message, const std::string& name) {
    const std::string port = name.empty() ? "a port" : name;
    if (message == " port is restarting -> ignore removal") {
        return fmt::format("so {} leaves for its own restart: nothing to do", port);
    }
    if (message == "CheckComPortAssignment skipped") {
        return fmt::format("so {} comes from its own restart: nothing to check", port);
    }
    return "";
}

void Explanation::Watch(Timeline& timeline) {
    m_timeline = &timeline;
    m_log.OnNews([this](const CheckNews& news) { m_news.push_back(news); });
    ForceDebugOutput();
    WatchMessages([this](std::uint64_t context, std::string_view message) { Read(context, message); });
}

void Explanation::Read(std::uint64_t context, std::string_view message) {
    const bool wasInCheck = m_log.IsInCheck(context);
    const std::string before = m_log.NameOf(context);
    m_news.clear();
    m_log.Read(context, machine::Now(), message);
    m_timeline->CatchUp();
    if (BeginsAnew(message)) {
        for (const CheckNews& news : std::exchange(m_news, {})) {
            Tell(news);
        }
    }
    const bool isInCheck = m_log.IsInCheck(context);
    const std::string now = m_log.NameOf(context), name = now.empty() ? before : now;
    if (!wasInCheck && isInCheck) {
        m_timeline->Add({machine::Now(), false, fmt::format("checks {}:", name), m_log.PortOf(context), {}, {}, {}});
    }
    // Changes of the database after a check affect nothing that was decided.
    const bool isOfDatabase = message.starts_with("ComNameArbiter");
    const std::string own = OwnRestart(message, name);
    if (!own.empty()) {
        m_timeline->Add({machine::Now(), false, own, {}, {}, {}, {}});
    } else if (TellsADecision(message) && (isInCheck || !isOfDatabase)) {
        const std::string of = name.empty() || EntersAPort(message) ? "" : " of " + name;
        message.remove_prefix(message.find_first_not_of(' '));
        m_timeline->Add({machine::Now(), false, fmt::format("says{}: {}", of, message), {}, {}, {}, {}});
    }
    for (const CheckNews& news : std::exchange(m_news, {})) {
        Tell(news);
    }
}

void Explanation::Finish() {
    m_news.clear();
    m_log.Finish();
    for (const CheckNews& news : m_news) {
        Tell(news);
    }
}

void Explanation::Tell(const CheckNews& news) {
    const std::string what = news.refused.empty()
                                 ? fmt::format("so {} {}", news.port, news.text)
                                 : fmt::format("so {} cannot have {}: {}", news.port, news.refused, news.text);
    m_timeline->Add({machine::Now(), false, what, {}, {}, {}, {}});
}

} // namespace rehearse
