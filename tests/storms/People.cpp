#include "tests/storms/Plan.h"

#include <fmt/format.h>

#include <string>

namespace storm {

// Programs that a section starts: in every way and with every kind of user, waited for and late.
constexpr const char* Actions[] = {"C:\\Tools\\term.exe %PortName% \"%FriendlyName%\"\nWindowStyle_=hidden\nwait_=3s\n",
                                   "C:\\Tools\\term.exe /p %PortNumber%\n",
                                   "C:\\Tools\\port.cmd %PortName%\ndelay_=700\n",
                                   "C:\\Tools\\term.exe\nsystem_=1\nafterdelay_=1s\n",
                                   "C:\\Tools\\term.exe x\nrestricted_=1\nWindowStyle_=min\n",
                                   "C:\\Tools\\term.exe y\nelevated_=1\nwait_=20s\n",
                                   "C:\\Tools\\missing.exe\n"};
constexpr const char* Users[] = {"LAB\\anna", "LAB\\ben", "LAB-PC\\carl"};

static std::string ActionsText(Random& random, const char* section) {
    std::string text = fmt::format("[{}]\nDeviceID=*\n", section);
    for (unsigned i = 1 + random.Below(3); i > 0; --i) {
        std::string entry = fmt::format("open_={}", random.Of(Actions));
        for (std::size_t at = 0; (at = entry.find("_=", at)) != std::string::npos;) {
            entry[at] = static_cast<char>('0' + i);
        }
        text += entry;
    }
    return text;
}

void AddPeople(Plan& plan, Random& random) {
    constexpr unsigned Sessions = 4;
    for (Configuration& configuration : plan.configurations) {
        configuration.actions = ActionsText(random, "OnArrival");
        configuration.actions += ActionsText(random, "OnRemoval");
        configuration.settings.emplace_back("RemoteSessions", std::to_string(random.Below(3)));
    }
    plan.people = {"[[files]]\npath = 'C:\\Tools\\term.exe'\nprogram = { runs = \"4s\", window = \"Terminal\" }\n",
                   "[[files]]\npath = 'C:\\Tools\\port.cmd'\n"};
    if (random.Odds(60)) {
        plan.people.push_back("[[session]]\nid = 1\nuser = 'LAB\\anna'\nadministrator = true\nuac = true\n");
    }
    const std::uint64_t last = plan.events.back().atMs;
    for (unsigned i = 2 + random.Below(5); i > 0; --i) {
        const std::uint64_t at = random.Next() % (last + 1);
        const unsigned id = 1 + random.Below(Sessions), kind = random.Below(4);
        const char* user = random.Of(Users);
        const bool isAdministrator = random.Odds(50), isEither = random.Odds(50);
        const std::string what =
            kind < 2 ? fmt::format("logon = {{ id = {}, user = '{}', administrator = {}, uac = true, console = {} }}",
                                   id, user, isAdministrator, isEither)
            : kind == 2
                ? fmt::format("logoff = {}", id)
                : fmt::format("session = {{ id = {}, state = \"{}\" }}", id, isEither ? "disconnected" : "active");
        plan.events.push_back({at, what, -1, -1});
    }
}

} // namespace storm
