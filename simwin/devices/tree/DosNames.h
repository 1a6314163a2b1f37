// The DOS name space: one for the whole machine, whoever made a name. Definitions of a name stack; the newest is the
// one in force. Names compare without regard to case and are listed in the order in which they were made.
#pragma once

#include "simwin/devices/tree/Description.h"
#include "simwin/kernel/Room.h"
#include "simwin/kernel/Text.h"

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace machine {

using DefinitionId = std::uint64_t; // never given out twice; 0: none

struct DosDefinition {
    DefinitionId id;
    std::string target;
    Opens opens;            // the result of opening it when the target is no device
    bool described = false; // `opens` comes from the description
};

// A change of what a name leads to: "" for none.
struct DosNameChange {
    std::uint64_t atMs;
    std::string name, from, to;
    const char* by; // "driver", "program", "outside"
};

class DosNames {
public:
    // Puts a definition on top. Returns: its id.
    DefinitionId Define(std::string_view name, std::string_view target, const char* by);
    // Removes the newest definition; false if there is none.
    bool RemoveNewest(std::string_view name, const char* by);
    // The newest that leads to a target beginning with (or, exact, equal to) the text.
    bool RemoveMatching(std::string_view name, std::string_view target, bool exact, const char* by);
    // This definition, wherever it is in the stack.
    bool RemoveDefinition(std::string_view name, DefinitionId id, const char* by);
    // All definitions of the name.
    bool RemoveName(std::string_view name, const char* by);

    const DosDefinition* InForce(std::string_view name) const;            // null: no such name
    const std::vector<DosDefinition>* Stack(std::string_view name) const; // oldest first; null: no such name
    void SetOpens(std::string_view name, const Opens& opens);             // of the definition in force
    // With their spelling, in the order in which they were made.
    std::vector<std::string> Names() const;

    // As they are before any driver has started. Nobody is notified: the machine is off.
    void Reset();

    void WatchChanges(std::function<void(const DosNameChange&)> watcher) { m_watcher = std::move(watcher); }

private:
    struct Name {
        std::string name; // as it was made
        std::uint64_t made;
        std::vector<DosDefinition> stack;
    };
    using NameMap = std::map<std::string, Name, NoCaseLess>;

    bool Erase(NameMap::iterator entry, std::size_t at, const char* by);
    void Tell(const std::string& name, const std::string& from, const std::string& to, const char* by);
    static std::string Top(const Name& name) { return name.stack.empty() ? std::string() : name.stack.back().target; }

    NameMap m_names;
    std::map<std::uint64_t, const Name*> m_order; // by creation time
    std::uint64_t m_next = 1;
    std::function<void(const DosNameChange&)> m_watcher;
};

DosNames& TheDosNames();
// A name defined from outside: put on top; an empty target deletes the newest definition.
void SetDosName(const DosNameDescription& name);

// 'COM7' and its number; 0 if it is no COM name with a number.
unsigned ComNumberOf(std::string_view name);

RoomPtr MakeDosNames();

} // namespace machine
