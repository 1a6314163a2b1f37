#include "rehearse/description/Description.h"
#include "rehearse/description/DescriptionKeys.h"

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

TomlTable::TomlTable() = default;
TomlTable::TomlTable(const TomlTable& other) = default;
TomlTable::TomlTable(TomlTable&& other) noexcept = default;
TomlTable& TomlTable::operator=(const TomlTable& other) = default;
TomlTable& TomlTable::operator=(TomlTable&& other) noexcept = default;
TomlTable::~TomlTable() = default;

const Value* TomlTable::Find(std::string_view key) const {
    const auto field = std::find_if(m_fields.begin(), m_fields.end(), [&](const Field& f) { return f.key == key; });
    return field == m_fields.end() ? nullptr : &field->value;
}

bool TomlTable::Is(std::string_view key, unsigned type) const {
    const Value* value = Find(key);
    return value && (value->type & type);
}

const Position& TomlTable::At(std::string_view key) const {
    const Value* value = Find(key);
    return value ? value->at : at;
}

std::string TomlTable::TextOf(std::string_view key, std::string_view otherwise) const {
    const Value* value = Find(key);
    return value && (value->type & (Text | Plain | HostFile)) ? value->text : std::string(otherwise);
}

std::int64_t TomlTable::NumberOf(std::string_view key, std::int64_t otherwise) const {
    const Value* value = Find(key);
    return value && (value->type & (Number | Flag | Duration)) ? value->number : otherwise;
}

std::uint64_t TomlTable::MsOf(std::string_view key, std::uint64_t otherwise) const {
    return static_cast<std::uint64_t>(NumberOf(key, static_cast<std::int64_t>(otherwise)));
}

std::vector<std::string> TomlTable::TextsOf(std::string_view key) const {
    const Value* value = Find(key);
    if (!value) {
        return {};
    }
    if (value->type & (Text | Plain | HostFile)) {
        return {value->text};
    }
    return value->texts;
}

const TomlTable* TomlTable::TableOf(std::string_view key) const {
    const Value* value = Find(key);
    return value && (value->type & (Table | AnyKeys)) ? &value->tables.front() : nullptr;
}

const std::vector<TomlTable>& TomlTable::TablesOf(std::string_view key) const {
    static const std::vector<TomlTable> None;
    const Value* value = Find(key);
    return value && value->type == Tables ? value->tables : None;
}

void TomlTable::Set(std::string_view key, Value value) {
    for (Field& field : m_fields) {
        if (field.key == key) {
            field.value = std::move(value);
            return;
        }
    }
    m_fields.push_back({std::string(key), std::move(value)});
}

void TomlTable::Erase(std::string_view key) {
    std::erase_if(m_fields, [&](const Field& field) { return field.key == key; });
}

void TomlTable::Amend(const TomlTable& with) {
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

void TomlTable::AmendTables(const std::string& key, const Value& with) {
    // A new table is merged into an empty one, so that an empty table inside it disappears.
    Value value;
    value.type = with.type;
    value.at = with.at;
    const Value* present = Find(key);
    if (present && present->type == with.type) {
        value = *present;
    }

    const char* identity = with.type == Tables ? IdentityOf(key) : nullptr;
    for (const TomlTable& table : with.tables) {
        auto target = value.tables.end();
        if (with.type != Tables) {
            target = value.tables.begin();
        } else if (identity) {
            target = std::find_if(value.tables.begin(), value.tables.end(), [&](const TomlTable& described) {
                return machine::EqualNoCase(described.TextOf(identity), table.TextOf(identity));
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
