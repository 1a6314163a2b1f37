#include "simwin/devices/tree/DosNames.h"

#include "simwin/devices/api.h"
#include "simwin/kernel/Call.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace machine {

static DosNames* g_names;

RoomPtr MakeDosNames() {
    RoomPtr room = MakeRoom(g_names);
    g_names->Reset();
    return room;
}

DosNames& TheDosNames() {
    return *g_names;
}

unsigned ComNumberOf(std::string_view name) {
    if (name.size() < 4 || name.size() > 9 || !StartsWithNoCase(name, "COM")) {
        return 0;
    }
    unsigned number = 0;
    for (const char c : name.substr(3)) {
        if (c < '0' || c > '9') {
            return 0;
        }
        number = number * 10 + static_cast<unsigned>(c - '0');
    }
    return number;
}

void DosNames::Reset() {
    m_names.clear();
    m_order.clear();
    const std::function<void(const DosNameChange&)> watcher = std::exchange(m_watcher, {});
    Define("C:", "\\Device\\HarddiskVolume1", "outside");
    Define("NUL", "\\Device\\Null", "outside");
    Define("PIPE", "\\Device\\NamedPipe", "outside");
    m_watcher = watcher;
}

void DosNames::Tell(const std::string& name, const std::string& from, const std::string& to, const char* by) {
    if (from != to && m_watcher) {
        m_watcher({Now(), name, from, to, by});
    }
}

DefinitionId DosNames::Define(std::string_view name, std::string_view target, const char* by) {
    auto [entry, isNew] = m_names.try_emplace(std::string(name));
    Name& made = entry->second;
    const DefinitionId id = m_next++;
    if (isNew) {
        made.name = name;
        made.made = id;
        m_order.emplace(id, &made);
    }
    const std::string before = Top(made);
    made.stack.push_back({id, std::string(target), {}, false});
    Tell(made.name, before, made.stack.back().target, by);
    return id;
}

bool DosNames::Erase(NameMap::iterator entry, std::size_t at, const char* by) {
    Name& name = entry->second;
    const std::string spelling = name.name, before = Top(name);
    name.stack.erase(name.stack.begin() + static_cast<std::ptrdiff_t>(at));
    const std::string after = Top(name);
    if (name.stack.empty()) { // before anyone is notified: a look-up then finds no name without a definition
        m_order.erase(name.made);
        m_names.erase(entry);
    }
    Tell(spelling, before, after, by);
    return true;
}

bool DosNames::RemoveNewest(std::string_view name, const char* by) {
    const auto entry = m_names.find(name);
    return entry != m_names.end() && Erase(entry, entry->second.stack.size() - 1, by);
}

bool DosNames::RemoveMatching(std::string_view name, std::string_view target, bool exact, const char* by) {
    const auto entry = m_names.find(name);
    if (entry == m_names.end()) {
        return false;
    }
    const auto& stack = entry->second.stack;
    for (std::size_t i = stack.size(); i-- > 0;) {
        if (exact ? EqualNoCase(stack[i].target, target) : StartsWithNoCase(stack[i].target, target)) {
            return Erase(entry, i, by);
        }
    }
    return false;
}

bool DosNames::RemoveDefinition(std::string_view name, DefinitionId id, const char* by) {
    const auto entry = m_names.find(name);
    if (entry == m_names.end()) {
        return false;
    }
    const auto& stack = entry->second.stack;
    for (std::size_t i = 0; i < stack.size(); ++i) {
        if (stack[i].id == id) {
            return Erase(entry, i, by);
        }
    }
    return false;
}

bool DosNames::RemoveName(std::string_view name, const char* by) {
    bool any = false;
    while (RemoveNewest(name, by)) {
        any = true;
    }
    return any;
}

const DosDefinition* DosNames::InForce(std::string_view name) const {
    const auto entry = m_names.find(name);
    return entry == m_names.end() ? nullptr : &entry->second.stack.back();
}

const std::vector<DosDefinition>* DosNames::Stack(std::string_view name) const {
    const auto entry = m_names.find(name);
    return entry == m_names.end() ? nullptr : &entry->second.stack;
}

void DosNames::SetOpens(std::string_view name, const Opens& opens) {
    const auto entry = m_names.find(name);
    if (entry == m_names.end()) {
        return;
    }
    entry->second.stack.back().opens = opens;
    entry->second.stack.back().described = true;
}

std::vector<std::string> DosNames::Names() const {
    std::vector<std::string> names;
    names.reserve(m_order.size());
    for (const auto& [made, name] : m_order) {
        names.push_back(name->name);
    }
    return names;
}

void SetDosName(const DosNameDescription& name) {
    if (name.target.empty()) {
        TheDosNames().RemoveNewest(name.name, "outside");
        return;
    }
    TheDosNames().Define(name.name, name.target, "outside");
    if (name.opens) {
        TheDosNames().SetOpens(name.name, *name.opens);
    }
}

} // namespace machine
