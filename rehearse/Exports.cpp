#include "rehearse/Exports.h"

#include "rehearse/DescriptionReader.h"

#include "simwin/kernel/Notes.h"
#include "simwin/kernel/Text.h"
#include "simwin/registry/ExportFilter.h"
#include "simwin/registry/Hive.h"
#include "simwin/registry/RegistryExport.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

namespace rehearse {

constexpr std::size_t MostNotesOfFile = 20; // each listed; beyond that only counted

static void ReadOne(const std::string& file, const Position& at, std::vector<machine::ExportedKey>& keys,
                    std::vector<machine::ExportNote>& notes) {
    const std::string bytes = ReadHostFile(file, at);
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

void ImportExports(const Record& description) {
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
}

} // namespace rehearse
