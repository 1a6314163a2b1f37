// What the product's own log says about its decisions: which section took a port, which row of a section failed, why a
// number was refused, how each check ended. Fed with the log's messages while the machine runs; keeps the latest of
// each port. Texts are in the machine's code page. Host side, one thread.
#pragma once

#include "simwin/kernel/Text.h"

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace rehearse {

// One section against one port: the rows are its configured criteria, and the first that fails ends the test.
struct SectionTrial {
    bool fits = false;
    unsigned rowsMet = 0;
    std::string failedKey;             // "UsbPort"; "" if none failed
    std::string portValue;             // of the port for that key
    std::vector<std::string> patterns; // "UsbPort=3-7-1", the forms of that key in the section
};

struct Refusal {
    std::string name, reason; // "COM12", "in use by \Device\VCP2"
};

// The latest check of a port.
struct PortCheck {
    std::uint64_t atMs = 0;
    std::string section;          // "ComPorts10"; "" if no rule took it
    std::vector<unsigned> wanted; // numbers of the section, in the order of preference
    unsigned lastResort = 0;      // a free number that the product appended; 0: none
    std::vector<Refusal> refused;
    std::string conclusion; // "keeps COM10"; "" while the check is in progress
};

// News of a check, as soon as it is known.
struct CheckNews {
    std::string port;    // what its registry called it at the check, its device without a name
    std::string refused; // a number that is not available; "" for a conclusion
    std::string text;    // the reason, or the conclusion
};

// What is known of one port.
struct CheckedPort {
    PortCheck last;
    std::map<std::string, SectionTrial> trials; // by section, the latest
    std::map<std::string, std::string> values;  // by key, as compared the last time
};

struct ConfiguredSection {
    std::string name;                                        // "ComPorts10"
    std::vector<std::pair<std::string, std::string>> values; // as the product read them
};

// One search for a section that fits a port, as the log has it.
struct SectionSearch {
    std::string device, type;                  // "ComPorts"
    std::string section;                       // "ComPorts10"; "" if none fits
    std::map<std::string, std::string> values; // what the criteria were compared with, by their plain names
};

// What CheckLog has gathered: the basis of a rehearsal's verdict.
struct LogFacts {
    bool isThere = false;                                              // false: nothing could be observed
    std::vector<ConfiguredSection> sections;                           // of the last configuration that was read
    std::vector<ConfiguredSection> actions;                            // the same of OnArrival and OnRemoval
    std::map<std::string, CheckedPort, machine::NoCaseLess> ports;     // by device
    std::map<std::string, std::set<std::string>, std::less<>> takenBy; // by section: devices, in any check
};

class CheckLog {
public:
    // One message without its prefix. context: the thread that wrote it.
    void Read(std::uint64_t context, std::uint64_t atMs, std::string_view message);
    // No more messages: checks that are open have ended.
    void Finish();
    const LogFacts& Facts() const { return m_facts; }
    const std::vector<SectionSearch>& Searches() const { return m_searches; } // in the order of the log
    // The device whose check, arrival or removal the thread is in, and its name there; "" if it is in none.
    std::string PortOf(std::uint64_t context) const;
    std::string NameOf(std::uint64_t context) const;
    bool IsInCheck(std::uint64_t context) const; // of a port that is known by now
    void OnNews(std::function<void(const CheckNews&)> watcher) { m_watcher = std::move(watcher); }

private:
    struct Context {
        bool isInCheck = false;
        bool isTrying = false;  // the numbers of the list, one after another
        bool isChanged = false; // the registry has the new number; the device has to follow
        PortCheck check;
        bool isReported = false; // the conclusion
        std::string device;
        std::string name;
        std::string subject;    // the device of the arrival or removal that the thread works for
        std::string candidate;  // the number that is tried
        std::string reason;     // why it is not available, if so
        std::size_t search = 0; // the last one of the thread, plus one; 0: none
        std::string trialSection;
        std::string key; // of the criterion that is tested
        std::string portValue;
        std::vector<std::string> patterns;
        unsigned rowsMet = 0;
        std::vector<ConfiguredSection>* reading = nullptr; // where the section that is read belongs
    };
    void ReadConfiguration(Context& context, std::string_view message);
    void ReadTrial(Context& context, std::string_view message);
    void EndTrial(Context& context, std::string_view message);
    void ReadCheck(Context& context, std::uint64_t atMs, std::string_view message);
    bool ReadDecision(Context& context, std::string_view message);
    bool ReadCandidate(Context& context, std::string_view message);
    bool ReadChange(Context& context, std::string_view message);
    void Refuse(Context& context);
    void GiveUp(Context& context);
    void Conclude(Context& context, std::string conclusion);
    void Settle(Context& context, std::string conclusion);
    std::string WhyNoRule(const Context& context) const;

    LogFacts m_facts;
    std::vector<SectionSearch> m_searches;
    std::map<std::string, std::string, machine::NoCaseLess> m_names; // of ports, at their last check
    std::function<void(const CheckNews&)> m_watcher;
    std::map<std::uint64_t, Context> m_contexts;
};

// Of two trials that failed the one is nearer that met more rows, then whose value agrees longer with a pattern.
bool IsNearer(const SectionTrial& one, const SectionTrial& than);
// "UsbPort is '3-7-1', not UsbPort=3-7-33", in the machine's code page.
std::string FailedRow(const SectionTrial& trial);

// The numbers in a section's values, as the product reads them: its keys in order, what follows "COM".
std::vector<unsigned> NumbersOfSection(const ConfiguredSection& section);

} // namespace rehearse
