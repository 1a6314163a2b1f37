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

namespace {
// What the files hold, and what is to be said of it.
struct Exported {
    std::vector<std::string> files;
    std::vector<machine::ExportedKey> keys;
    std::vector<std::string> notes;
};
} // namespace

static int g_keepers;
static std::optional<Exported> g_kept;

KeptExports::KeptExports() {
    ++g_keepers;
}
KeptExports::~KeptExports() {
    if (--g_keepers == 0) {
        g_kept.reset();
    }
}

static void TellNotes(const std::string& file, const std::vector<machine::ExportNote>& notes,
                      std::vector<std::string>& lines) {
    if (notes.empty()) {
        return;
    }
    for (std::size_t i = 0; i < std::min(notes.size(), MostNotesOfFile); ++i) {
        const machine::ExportNote& note = notes[i];
        const std::string place = note.line ? PositionText({file, note.line, note.column}) : file;
        lines.push_back(fmt::format("{}: {}", place, machine::Utf8FromAnsi(note.text)));
    }
    lines.push_back(fmt::format("{}: {} left out, since {} cannot be read", file,
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

static Exported ReadAll(const Value& registry, const std::vector<std::string>& files) {
    Exported read{files, {}, {}};
    for (std::size_t i = 0; i < files.size(); ++i) {
        std::vector<machine::ExportedKey> ofFile;
        std::vector<machine::ExportNote> notes;
        ReadOne(files[i], registry.itemsAt.empty() ? registry.at : registry.itemsAt[i], ofFile, notes);
        TellNotes(files[i], notes, read.notes);
        std::move(ofFile.begin(), ofFile.end(), std::back_inserter(read.keys));
    }
    for (const std::string& line : machine::UnifyControlSets(read.keys)) {
        read.notes.push_back(machine::Utf8FromAnsi(line));
    }
    return read;
}

static void Apply(const Exported& exported) {
    for (const std::string& note : exported.notes) {
        machine::AddNote(note);
    }
    machine::ApplyExport(exported.keys, machine::TheRegistry());
}

void ImportExports(const TomlTable& description) {
    const Value* registry = description.Find("registry");
    if (!registry) {
        return;
    }
    const std::vector<std::string> files = description.TextsOf("registry");
    if (!g_keepers) {
        Apply(ReadAll(*registry, files));
    } else {
        if (!g_kept || g_kept->files != files) {
            g_kept = ReadAll(*registry, files);
        }
        Apply(*g_kept);
    }
    if (description.Has("properties")) {
        ReadProperties(description.TextOf("properties"), description.At("properties"));
    }
}

} // namespace rehearse
