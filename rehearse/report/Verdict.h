// The result of a rehearsal: how each port compares with what its rule wants, what the rules took, what restarts
// together, what is dangerous. Only facts, collected once after the run from the machine, the timeline and
// what was observed of the product's log; the texts, the JSON and any other form of the report draw on them. Texts are
// UTF-8 except for device ids and names, which are in the machine's code page.
#pragma once

#include "rehearse/watch/CheckLog.h"
#include "rehearse/watch/MachineFacts.h"
#include "rehearse/watch/Timeline.h"

#include <cstdint>
#include <string>
#include <vector>

namespace rehearse {

// What is noted before the machine runs.
struct StartFacts {
    std::vector<PortFacts> ports;
    std::vector<unsigned> database; // numbers taken
};
StartFacts FactsAtStart();

// Of a port that has none of its wanted numbers, or no name.
enum class Shortfall { None, NoName, NotObtained, NextPlug };
const char* ShortfallName(Shortfall shortfall); // "no name", "not obtained", "next plug", ""

struct PortVerdict {
    PortFacts facts;
    std::string nameBefore;       // its DOS name before the run
    std::string heldBy;           // path of the program that has it open at the end; "" none
    std::string section;          // "ComPorts10"; "" if no rule took it
    std::vector<unsigned> wanted; // in the order of preference
    unsigned lastResort = 0;      // appended by the product; 0: none
    std::vector<Refusal> refused; // at its last check
    Shortfall shortfall = Shortfall::None;
    std::vector<std::string> states; // for people, the most important first: "held by …", "ring with COM11, COM13"
};

struct RuleVerdict {
    std::string section;
    std::vector<unsigned> wanted;
    std::vector<std::string> took; // devices, in any check of the run
    // Of a rule that took nothing: the port that meets most of its rows, and the row that fails there.
    std::string nearest; // a device; "" if no port was compared with it
    unsigned rowsMet = 0;
    std::string failedKey, portValue;
    std::vector<std::string> patterns;
    std::string takenBy; // it would fit the nearest port, but this earlier section took it
};

// Ports and other working devices below a device that the product restarts as a whole.
struct Together {
    std::string device, what, means; // "the hub", "the composite device", "the Bluetooth radio", "the device"
    unsigned times = 0;
    std::vector<std::string> ports, others; // device ids
};

struct Ring {
    std::vector<std::string> devices; // each wants the number of the next one
};

struct Verdict {
    bool isObserved = false;        // false: what the product's log says is not known
    std::vector<PortVerdict> ports; // by number; those without, and absent ones, last
    std::vector<unsigned> databaseBefore, databaseAfter;
    std::vector<RuleVerdict> rules; // in the order of the configuration
    // Sections that start programs: took is what they did it for. Each waits for its event, so a run without it says
    // nothing about the section, and `--strict` does not ask for it.
    std::vector<RuleVerdict> actions;
    std::vector<Together> together;
    std::vector<Ring> rings;
    std::vector<TimelineEntry> dangers;

    // Why `--strict` fails, a line for each; empty: every port has a name and a wanted number, and every rule a port.
    std::vector<std::string> Shortcomings() const;
    std::string Sentence() const; // the whole in one sentence
};

Verdict MakeVerdict(const StartFacts& start, const LogFacts& log, const Timeline& timeline);

std::string NameOfPort(const PortFacts& port); // "COM20", or its registry name or id if it has none
std::string NumbersText(const std::vector<unsigned>& numbers, const char* prefix); // "COM3, COM18-COM22", "1, 3-58"

} // namespace rehearse
