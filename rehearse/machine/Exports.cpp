#include "rehearse/machine/Exports.h"

#include "rehearse/description/DescriptionReader.h"

#include "simwin/devices/tree/CapturedProperties.h"
#include "simwin/kernel/Notes.h"
#include "simwin/kernel/Text.h"
#include "simwin/registry/ExportFilter.h"
#include "simwin/registry/Hive.h"
#include "simwin/registry/RegistryExport.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <optional>

namespace rehearse {

constexpr std::size_t MostNotesOfFile = 20; // each listed; beyond that only counted

static void ReadOne(const std::string& file, const Position& at, std::vector<machine::ExportedKey>& keys,
                    std::vector<machine::ExportNote>& notes) {
    const std::string bytes = ReadHostFile(file, at, MostExportBytes);
    if (machine::IsHive(bytes)) {
        if (const auto reason = machine::ReadHive(file, keys, notes)) {
            throw InputError({file, 1, 1}, machine::Utf8FromAnsi(*reason));
        }
    } else if (const auto error = machine::ReadExport(bytes, keys, notes)) {
        throw InputError({file, error->line, error->column}, machine::Utf8FromAnsi(error->text));
    }
    machine::LeaveOutWrongTypes(keys, notes);
}

static void TellNotes(const std::string& file, const std::vector<machine::ExportNote>& notes) {
    if (notes.empty()) {
        return;
    }
    for (std::size_t i = 0; i < std::min(notes.size(), MostNotesOfFile); ++i) {
        const machine::ExportNote& note = notes[i];
        const std::string place = note.line ? PositionText({file, note.line, note.column}) : file;
        machine::AddNote(fmt::format("{}: {}", place, machine::Utf8FromAnsi(note.text)));
    }
    machine::AddNote(fmt::format("{}: {} left out, since {} cannot be read", file,
                                 notes.size() == 1 ? "1 entry is" : fmt::format("{} entries are", notes.size()),
                                 notes.size() == 1 ? "it" : "they"));
}

// Each line has an id, its parent, and a location path, with tabs between them; a parent or path may be empty.
static void ReadProperties(const std::string& file, const Position& at) {
    const std::optional<std::string> text = machine::AnsiFromFile(ReadHostFile(file, at));
    if (!text) {
        throw InputError({file, 1, 1}, "this is no text: neither UTF-16 nor UTF-8 nor ANSI");
    }
    std::vector<std::string> lines = machine::Split(*text, '\n');
    const std::string cut = std::move(lines.back());
    lines.pop_back();
    unsigned number = 0;
    for (const std::string& line : lines) {
        ++number;
        const std::vector<std::string> parts = machine::Split(line.substr(0, line.find('\r')), '\t');
        if (parts.size() == 1 && parts[0].empty()) {
            continue;
        }
        if (parts.size() != 3 || parts[0].find('\\') == std::string::npos) {
            throw InputError({file, number, 1},
                             "this line is not a device's id, its parent and its location path with tabs between them");
        }
        (void)machine::StoreCapturedProperties(parts[0], parts[1], parts[2]); // it may know more than the exports
    }
    if (!cut.empty()) {
        throw InputError({file, number + 1, static_cast<unsigned>(cut.size()) + 1},
                         "the file ends in the middle of a line");
    }
}

void ImportExports(const TomlTable& description) {
    const Value* registry = description.Find("registry");
    if (!registry) {
        return;
    }
    const std::vector<std::string> files = description.TextsOf("registry");
    std::vector<machine::ExportedKey> keys;
    for (std::size_t i = 0; i < files.size(); ++i) {
        std::vector<machine::ExportedKey> ofFile;
        std::vector<machine::ExportNote> notes;
        ReadOne(files[i], registry->itemsAt.empty() ? registry->at : registry->itemsAt[i], ofFile, notes);
        TellNotes(files[i], notes);
        std::move(ofFile.begin(), ofFile.end(), std::back_inserter(keys));
    }
    for (const std::string& line : machine::UnifyControlSets(keys)) {
        machine::AddNote(machine::Utf8FromAnsi(line));
    }
    machine::ApplyExport(keys, machine::TheRegistry());
    if (description.Has("properties")) {
        ReadProperties(description.TextOf("properties"), description.At("properties"));
    }
}

} // namespace rehearse
