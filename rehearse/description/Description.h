// What a description says, as tables: each field with its type and its place, so that every message names file, line
// and column. The reader (DescriptionReader.h) creates them by the table of keys (DescriptionKeys.h); descriptions that
// build on one another are merged here, table by table. Host side, one thread.
#pragma once

#include "rehearse/host/InputError.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace rehearse {

// What a field may hold; a key of the table names one or several.
enum ValueType : unsigned {
    Text = 1,      // a text of the machine, kept in its code page
    Plain = 2,     // a text for people, kept in UTF-8
    HostFile = 4,  // a file of the host, relative to the description's own folder
    Number = 8,    // a whole number
    Flag = 16,     // true or false
    Duration = 32, // milliseconds, from a text such as "10s"
    Texts = 64,    // a list of texts
    Numbers = 128, // a list of whole numbers
    HostFiles = 256,
    Table = 512,    // one table with keys of its own
    Tables = 1024,  // [[...]]
    AnyKeys = 2048, // a table whose keys are names of the machine
    Nothing = 4096  // an empty table: takes the key back
};

struct Value;
struct Field;

// The fields of one table, in the order of the file.
class TomlTable {
public:
    TomlTable();
    TomlTable(const TomlTable& other);
    TomlTable(TomlTable&& other) noexcept;
    TomlTable& operator=(const TomlTable& other);
    TomlTable& operator=(TomlTable&& other) noexcept;
    ~TomlTable();

    Position at;
    std::string section; // as in the table of keys: "device", "event.replug"

    const Value* Find(std::string_view key) const;
    bool Has(std::string_view key) const { return Find(key) != nullptr; }
    bool Is(std::string_view key, unsigned type) const;
    const Position& At(std::string_view key) const; // of the field; of the table if there is none

    // The field's value, or the given default.
    std::string TextOf(std::string_view key, std::string_view otherwise = {}) const;
    std::int64_t NumberOf(std::string_view key, std::int64_t otherwise = 0) const;
    std::uint64_t MsOf(std::string_view key, std::uint64_t otherwise = 0) const;
    bool FlagOf(std::string_view key, bool otherwise = false) const { return NumberOf(key, otherwise) != 0; }
    std::vector<std::string> TextsOf(std::string_view key) const; // a single text is a list of one
    const TomlTable* TableOf(std::string_view key) const;         // null if absent
    const std::vector<TomlTable>& TablesOf(std::string_view key) const;

    void Set(std::string_view key, Value value);
    void Erase(std::string_view key);
    const std::vector<Field>& Fields() const { return m_fields; }

    // Merges a description that builds on this one: tables key by key, arrays replaced, devices and DOS names
    // amended by their id, other lists of tables appended, an empty table takes a key back.
    void Amend(const TomlTable& with);

private:
    void AmendTables(const std::string& key, const Value& with);
    std::vector<Field> m_fields;
};

// The value of a key, and its place.
struct Value {
    Position at;
    unsigned type = Nothing;
    std::string text;               // Text, Plain, HostFile
    std::int64_t number = 0;        // Number, Flag, Duration
    std::vector<std::string> texts; // Texts, HostFiles
    std::vector<std::int64_t> numbers;
    std::vector<Position> itemsAt; // the place of each item of a list
    std::vector<TomlTable> tables; // Table and AnyKeys: one
};

struct Field {
    std::string key;
    Value value;
};

} // namespace rehearse
