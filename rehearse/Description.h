// What a description says, as records: each field with its type and the place where it stands, so that every complaint
// names file, line and column. The reader (DescriptionReader.h) makes them by the table of keys (DescriptionKeys.h);
// descriptions that build on one another are merged here, record by record. Host side, one thread.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace rehearse {

struct Position {
    std::string file;
    unsigned line = 1, column = 1;
};

// The input is wrong: nothing is run, the line is all that is said.
class InputError : public std::runtime_error {
public:
    InputError(const Position& at, std::string_view what);
};

// What a field may hold; a key of the table names one or several.
enum ValueType : unsigned {
    Text = 1,      // a text of the machine, kept in its code page
    Plain = 2,     // a text for people, kept in UTF-8
    HostFile = 4,  // a file beside the description, resolved against the description's own folder
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
class Record {
public:
    Record();
    Record(const Record& other);
    Record(Record&& other) noexcept;
    Record& operator=(const Record& other);
    Record& operator=(Record&& other) noexcept;
    ~Record();

    Position at;
    std::string section; // as in the table of keys: "device", "event.replug"

    const Value* Find(std::string_view key) const;
    bool Has(std::string_view key) const { return Find(key) != nullptr; }
    bool Is(std::string_view key, unsigned type) const;
    const Position& At(std::string_view key) const; // of the field; of the table if there is none

    // The field's value, or what is given instead of an absent one.
    std::string TextOf(std::string_view key, std::string_view otherwise = {}) const;
    std::int64_t NumberOf(std::string_view key, std::int64_t otherwise = 0) const;
    std::uint64_t MsOf(std::string_view key, std::uint64_t otherwise = 0) const;
    bool FlagOf(std::string_view key, bool otherwise = false) const { return NumberOf(key, otherwise) != 0; }
    std::vector<std::string> TextsOf(std::string_view key) const; // a single text is a list of one
    const Record* TableOf(std::string_view key) const;            // null if absent
    const std::vector<Record>& TablesOf(std::string_view key) const;

    void Set(std::string_view key, Value value);
    void Erase(std::string_view key);
    const std::vector<Field>& Fields() const { return m_fields; }

    // Adds what a description says that builds on this one: tables key by key, arrays replaced, devices and DOS names
    // amended by their id, other lists of tables appended, an empty table takes a key back.
    void Amend(const Record& with);

private:
    void AmendTables(const std::string& key, const Value& with);
    std::vector<Field> m_fields;
};

// What stands at a key, and where.
struct Value {
    Position at;
    unsigned type = Nothing;
    std::string text;               // Text, Plain, HostFile
    std::int64_t number = 0;        // Number, Flag, Duration
    std::vector<std::string> texts; // Texts, HostFiles
    std::vector<std::int64_t> numbers;
    std::vector<Position> itemsAt; // where each item of a list stands
    std::vector<Record> tables;    // Table and AnyKeys: one
};

struct Field {
    std::string key;
    Value value;
};

std::string PositionText(const Position& at); // "FILE:LINE:COLUMN"

} // namespace rehearse
