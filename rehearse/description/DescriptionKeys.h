// The table of keys that a description may have: name, type, default, meaning. The reader is driven by it, and the
// tables of docs/rehearsing.md are printed from it, so that the two cannot differ. Constant data.
#pragma once

#include "rehearse/description/Description.h"

#include <span>
#include <string>
#include <string_view>

namespace rehearse {

struct Key {
    const char* section; // "" is the top of the file; a table inside a table is "outer.inner"
    const char* name;    // AnyKeys sections have one row with the name ""
    unsigned types;      // of ValueType
    const char* choices; // the texts that are allowed, with a bar between; null for any
    const char* initial; // what an absent key means, for the reader of the documents
    const char* with;    // events and expectations: the subjects that it goes with; "" for a subject itself
    const char* meaning;
};

std::span<const Key> AllKeys();
const Key* FindKey(std::string_view section, std::string_view name);
bool HasSubjects(std::string_view section); // whether its tables must have exactly one subject
bool IsSubject(const Key& key);             // of an event or an expectation
bool GoesWith(const Key& key, std::string_view subject);
std::string TypeText(unsigned types); // "text or number"
std::string KeyTables();              // all tables, in Markdown

} // namespace rehearse
