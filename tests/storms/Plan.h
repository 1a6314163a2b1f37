// What one seed means: a machine, its configurations, its faults and a history, as plain data that can be made smaller
// and written as a description. Everything comes from the seed; nothing here runs anything.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace storm {

inline constexpr std::uint64_t Minute = 60'000; // ms

// SplitMix64, as the machine's own schedule uses it.
class Random {
public:
    explicit Random(std::uint64_t seed) : m_state(seed) {}
    std::uint64_t Next();
    unsigned Below(unsigned bound) { return static_cast<unsigned>(Next() % bound); }
    bool Odds(unsigned percent) { return Below(100) < percent; }
    template<typename T, std::size_t N>
    const T& Of(const T (&list)[N]) {
        return list[Below(N)];
    }

private:
    std::uint64_t m_state;
};

// Kinds of events and trouble; each seed has some of them.
struct Switches {
    bool firstNodeOne = false, debugRole = false, failing = false, slow = false, stubborn = false, links = false,
         stops = false, resumes = false, edits = false, flicker = false, hubs = false, problems = false, quick = false,
         hack = false, removesNames = false, uninstalls = false, sameNames = false, contested = false, atWrap = false,
         atBoot = false, refusing = false,
         // Drawn apart, so that each seed keeps the rest of its history.
        power = false,  // sleeps, boots and fast startups
        people = false; // sessions, logons, logoffs, and programs that are started for ports
};

struct Device {
    std::string id, parent;
    std::size_t unit = 0; // what is plugged in and pulled out as a unit
    bool isPort = false;
    std::vector<std::string> lines; // of its table in the description
};

struct Section {
    unsigned number = 1; // 100: without a number
    std::string key, pattern;
    std::vector<unsigned> wants;
    std::string quick; // the value of the mode, "" for no such key
};

struct Configuration {
    std::vector<std::pair<std::string, std::string>> settings;
    std::vector<Section> sections;
    bool balloons = false;
    std::string actions; // the sections that start programs
};

struct Event {
    std::uint64_t atMs = 0;
    std::string text;       // the line that says what happens
    int configuration = -1; // written as edit_ini
    int unit = -1;          // goes with this unit
};

struct Plan {
    std::uint64_t seed = 0;
    Switches switches;
    std::vector<std::string> windows, dosNames, faults, people; // lines and tables of the description
    std::vector<std::string> units;                             // id of each unit's top
    std::vector<Device> devices;
    std::vector<Configuration> configurations; // the first at the start, the last in the calm
    std::vector<Event> events;                 // of the shaking, in order of time
    std::uint64_t calmAtMs = 0;                // when the calm begins
    std::uint64_t settledAtMs = 0;             // when every device has arrived again in the calm
};

Plan PlanOf(std::uint64_t seed);
// People, and the programs that configurations start for ports: somebody may be there at the start; people come and go,
// at the console and by remote desktop. plan: with its history.
void AddPeople(Plan& plan, Random& random);
std::string SwitchesText(const Switches& switches);

struct CalmTimes {
    std::uint64_t settledAtMs = 0; // when every device has arrived again
    std::uint64_t lastCheckMs = 0; // the last check of all ports; 0: there is none
};

// The events of the calm: everything is plugged in, arrives again and is checked until nothing should be left to do.
std::vector<Event> CalmEvents(const Plan& plan, CalmTimes* times);

// As quillmarch-rehearse reads it.
std::string Description(const Plan& plan);

// The section that matches the device in this configuration; null if none does.
const Section* FittingSection(const Configuration& configuration, const Device& device);
// Whether no configuration of the plan has a section for it.
bool IsNeverMeant(const Plan& plan, const Device& device);

} // namespace storm
