// What happened, in order of time: outside (the description's events, Windows, devices) and by the product. Filled
// while the machine runs, from the calls that the machine saw and from its own tree; never from the product's memory.
// In the scheduler's context or inside a call, on the one host thread.
#pragma once

#include "simwin/devices/build/Devices.h"
#include "simwin/devices/tree/DeviceWatch.h"

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace rehearse {

struct TimelineEntry {
    std::uint64_t atMs = 0;
    bool isOutside = true;
    std::string what; // for people, in the machine's code page
    std::string device, from, to, means;
    bool isDanger = false; // may harm a user of the port
};

// The entries from one on, until another story begins.
struct StoryStart {
    std::size_t firstEntry = 0; // its title
    std::string name;
};

struct WrittenValue {
    std::uint64_t atMs = 0;
    std::string key, name, before, after;
};

class Timeline {
public:
    // Starts to watch the machine. Called once, after it is built and before it runs; undone with the machine.
    void Watch();
    void Outside(std::string what, std::string device = {});
    void Add(TimelineEntry entry) { m_entries.push_back(std::move(entry)); }

    // What happens from now on belongs to this story, beginning with an entry that says so.
    void BeginStory(const std::string& name, const std::string& title);

    // Called with each value that the product has just written or deleted.
    void WatchWrites(std::function<void(const WrittenValue&)> watcher) { m_writeWatcher = std::move(watcher); }

    // Called with each call of the product, before its effect.
    void WatchCalls(std::function<void(const char* name, const char* object)> watcher) {
        m_callWatcher = std::move(watcher);
    }

    // What happens from now on is not reported: the run is over.
    void Close() { m_isClosed = true; }

    // Windows has restarted: reports ports that have a new name, and forgets what was in progress.
    void AfterBoot();
    // Notes what has changed since the last check: states of the service, names of ports.
    void CatchUp();

    const std::vector<TimelineEntry>& Entries() const { return m_entries; }
    const std::vector<StoryStart>& Stories() const { return m_stories; }
    // The story that an entry belongs to; "" for one before the first.
    std::string StoryOf(std::size_t entry) const;
    bool IsStoryTitle(std::size_t entry) const;
    const std::vector<WrittenValue>& Writes() const { return m_writes; }

private:
    // What is known of one port while the machine runs.
    struct PortState {
        std::string name;          // the last DOS name that led to its running device
        std::string pendingMeans;  // the product's cycle was accepted, the device is on its way out and back
        std::size_t runsEntry = 0; // the entry of its last start plus one; 0: already reported as the product's doing
        std::string nameBeforeRun;
        unsigned restarts = 0;         // of its driver that have been reported
        std::size_t namelessEntry = 0; // the entry plus one of the product's deletion of its name; 0: it has one
    };

    void OnDeviceChanged(const machine::DeviceNode& node, std::string_view what);
    std::vector<const machine::DeviceNode*> PortsBelow(const machine::DeviceNode* top) const;
    void OnRestarted(const machine::DeviceRestart& restart);
    void WarnOfHolders(const machine::DeviceNode& top, const machine::DeviceRestart& restart);
    PortState* PortOfNewName(const machine::DeviceNode& node, std::string* name);
    void OnDosNameChanged(const machine::DosNameChange& change);
    void OnDriverNameChanged(const machine::DosNameChange& change);
    void OnProcessStarted(const machine::Process& process);
    void OnProcessEnded(const std::string& image, std::uint32_t exitCode);

    std::vector<TimelineEntry> m_entries;
    std::vector<StoryStart> m_stories; // in the order of time
    std::vector<WrittenValue> m_writes;
    std::function<void(const WrittenValue&)> m_writeWatcher;
    std::function<void(const char*, const char*)> m_callWatcher;
    bool m_isClosed = false;
    std::size_t m_serviceReports = 0;
    std::map<std::string, PortState, machine::NoCaseLess> m_ports;
};

} // namespace rehearse
