#include "rehearse/Description.h"
#include "rehearse/DescriptionKeys.h"

#include "simwin/kernel/Text.h"

#include <fmt/format.h>

#include <algorithm>

namespace rehearse {

// The key that identifies a table in a list; null for a list that is only appended to.
static const char* IdentityOf(std::string_view list) {
    if (list == "device") {
        return "id";
    }
    if (list == "dos_name") {
        return "name";
    }
    return nullptr;
}

// A name of the input may hold line ends; a message about it is still one line.
static std::string OnOneLine(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\r' || c == '\n'; }, ' ');
    return text;
}

InputError::InputError(const Position& at, std::string_view what)
    : std::runtime_error(OnOneLine(fmt::format("{}: {}", PositionText(at), what))) {
}

std::string PositionText(const Position& at) {
    return fmt::format("{}:{}:{}", at.file, at.line, at.column);
}

Record::Record() = default;
Record::Record(const Record& other) = default;
Record::Record(Record&& other) noexcept = default;
Record& Record::operator=(const Record& other) = default;
Record& Record::operator=(Record&& other) noexcept = default;
Record::~Record() = default;

const Value* Record::Find(std::string_view key) const {
    const auto field = std::find_if(m_fields.begin(), m_fields.end(), [&](const Field& f) { return f.key == key; });
    return field == m_fields.end() ? nullptr : &field->value;
}

bool Record::Is(std::string_view key, unsigned type) const {
    const Value* value = Find(key);
    return value && (value->type & type);
}

const Position& Record::At(std::string_view key) const {
    const Value* value = Find(key);
    return value ? value->at : at;
}

std::string Record::TextOf(std::string_view key, std::string_view otherwise) const {
    const Value* value = Find(key);
    return value && (value->type & (Text | Plain | HostFile)) ? value->text : std::string(otherwise);
}

std::int64_t Record::NumberOf(std::string_view key, std::int64_t otherwise) const {
    const Value* value = Find(key);
    return value && (value->type & (Number | Flag | Duration)) ? value->number : otherwise;
}

std::uint64_t Record::MsOf(std::string_view key, std::uint64_t otherwise) const {
    return static_cast<std::uint64_t>(NumberOf(key, static_cast<std::int64_t>(otherwise)));
}

std::vector<std::string> Record::TextsOf(std::string_view key) const {
    const Value* value = Find(key);
    if (!value) {
        return {};
    }
    if (value->type & (Text | Plain | HostFile)) {
        return {value->text};
    }
    return value->texts;
}

const Record* Record::TableOf(std::string_view key) const {
    const Value* value = Find(key);
    return value && (value->type & (Table | AnyKeys)) ? &value->tables.front() : nullptr;
}

const std::vector<Record>& Record::TablesOf(std::string_view key) const {
    static const std::vector<Record> None;
    const Value* value = Find(key);
    return value && value->type == Tables ? value->tables : None;
}

void Record::Set(std::string_view key, Value value) {
    for (Field& field : m_fields) {
        if (field.key == key) {
            field.value = std::move(value);
            return;
        }
    }
    m_fields.push_back({std::string(key), std::move(value)});
}

void Record::Erase(std::string_view key) {
    std::erase_if(m_fields, [&](const Field& field) { return field.key == key; });
}

void Record::Amend(const Record& with) {
    for (const auto& [key, value] : with.m_fields) {
        if (value.type == Nothing) {
            Erase(key);
        } else if (value.type & (Table | AnyKeys | Tables)) {
            AmendTables(key, value);
        } else {
            Set(key, value);
        }
    }
}

void Record::AmendTables(const std::string& key, const Value& with) {
    // A new table is merged into an empty one, so that an empty table inside it disappears.
    Value value;
    value.type = with.type;
    value.at = with.at;
    const Value* present = Find(key);
    if (present && present->type == with.type) {
        value = *present;
    }

    const char* identity = with.type == Tables ? IdentityOf(key) : nullptr;
    for (const Record& table : with.tables) {
        auto target = value.tables.end();
        if (with.type != Tables) {
            target = value.tables.begin();
        } else if (identity) {
            target = std::find_if(value.tables.begin(), value.tables.end(), [&](const Record& record) {
                return machine::EqualNoCase(record.TextOf(identity), table.TextOf(identity));
            });
        }
        if (target == value.tables.end()) {
            value.tables.emplace_back();
            target = value.tables.end() - 1;
            target->at = table.at;
            target->section = table.section;
        }
        // An amended name keeps its spelling.
        const Value* known = identity ? target->Find(identity) : nullptr;
        const Value spelling = known ? *known : Value();
        target->Amend(table);
        if (known) {
            target->Set(identity, spelling);
        }
    }
    Set(key, std::move(value));
}

} // namespace rehearse
