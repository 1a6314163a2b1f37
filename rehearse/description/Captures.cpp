#include "rehearse/description/Captures.h"

#include "rehearse/description/DescriptionReader.h"
#include "rehearse/host/Files.h"

#include "simwin/kernel/Text.h"
#include "simwin/registry/Hive.h"
#include "simwin/registry/RegistryExport.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <fstream>

namespace rehearse {

static constexpr const char* DescriptionName = "machine.toml";
static constexpr const char* ConnectedName = "connected.txt";
static constexpr const char* PropertiesName = "properties.txt";
static constexpr std::size_t HeadBytes = 256; // enough to recognise an export or a hive

static Value TextValue(unsigned type, const std::string& text, const Position& at) {
    Value value;
    value.type = type;
    value.text = text;
    value.at = at;
    return value;
}

static std::string EndingOf(const std::string& name) {
    const std::size_t dot = name.rfind('.');
    return dot == std::string::npos ? "" : machine::Lower(name.substr(dot));
}

// By its name or its content: a capture keeps its export as registry.txt, so that a double click merges nothing.
static bool IsExportFile(const std::string& path) {
    if (!IsFile(path)) {
        return false;
    }
    if (EndingOf(path) == ".reg") {
        return true;
    }
    std::array<char, HeadBytes> head{};
    std::ifstream stream(StreamPath(path), std::ios::binary);
    stream.read(head.data(), head.size());
    const std::string_view bytes(head.data(), static_cast<std::size_t>(stream.gcount()));
    return machine::IsHive(bytes) || machine::IsExport(bytes);
}

static void SetExports(TomlTable& described, const std::vector<std::string>& files) {
    Value registry;
    registry.type = HostFiles;
    registry.at = {files.front(), 1, 1};
    registry.texts = files;
    for (const std::string& file : files) {
        registry.itemsAt.push_back({file, 1, 1});
    }
    described.Set("registry", std::move(registry));
}

static void SetIni(TomlTable& described, const std::string& file) {
    TomlTable product;
    product.section = "quillmarch";
    product.at = {file, 1, 1};
    product.Set("ini", TextValue(HostFile, file, product.at));
    Value table;
    table.type = Table;
    table.at = product.at;
    table.tables.push_back(std::move(product));
    described.Set("quillmarch", std::move(table));
}

static TomlTable ReadBareFolder(const std::string& folder, bool hasIni) {
    std::vector<std::string> exports, configurations;
    std::string error;
    (void)ListFolder(folder, error);
    if (!error.empty()) {
        throw InputError({folder, 0, 0}, "this folder cannot be looked into: " + error);
    }
    for (const std::string& name : NamesInFolder(folder)) {
        const std::string path = InFolder(folder, name);
        if (!IsFolder(path)) {
            CheckIsInside({folder}, path, {path, 1, 1});
        }
        if (IsExportFile(path)) {
            exports.push_back(path);
        } else if (EndingOf(name) == ".ini") {
            configurations.push_back(path);
        }
    }
    TomlTable described;
    described.at = {folder, 1, 1};
    if (exports.empty()) {
        throw InputError({folder, 0, 0},
                         fmt::format("this folder has neither a {} nor an export of the registry", DescriptionName));
    }
    SetExports(described, exports);
    for (const auto& [key, name] : {std::pair("connected", ConnectedName), std::pair("properties", PropertiesName)}) {
        const std::string path = InFolder(folder, name);
        if (IsFile(path)) {
            described.Set(key, TextValue(HostFile, path, {path, 1, 1}));
        }
    }
    if (configurations.size() > 1 && !hasIni) {
        throw InputError({configurations[1], 1, 1}, "this folder has a second INI file: name one with --ini, and move "
                                                    "the other elsewhere");
    }
    if (configurations.size() == 1) {
        SetIni(described, configurations.front());
    }
    return described;
}

static TomlTable ReadExports(const Options& options) {
    std::vector<std::string> files = {options.description};
    files.insert(files.end(), options.moreExports.begin(), options.moreExports.end());
    for (const std::string& file : files) {
        if (IsFolder(file)) {
            throw InputError({file, 0, 0}, "this is a folder: only exports can be named side by side");
        }
        if (!IsFile(file)) {
            throw InputError({file, 1, 1}, fmt::format("there is no file '{}' that can be read", file));
        }
        if (!IsExportFile(file)) {
            throw InputError({file, 1, 1}, "this is no export of the registry: only exports can be named side by side");
        }
    }
    TomlTable described;
    described.at = {files.front(), 1, 1};
    SetExports(described, files);
    return described;
}

// What a machine without a description of its own gets.
static void SetUsual(TomlTable& described, const std::string& name) {
    if (!described.Has("title")) {
        described.Set("title", TextValue(Plain, name, described.at));
    }
    if (!described.Has("stories")) {
        Value all;
        all.type = Texts;
        all.at = described.at;
        all.texts = {"all"};
        all.itemsAt = {described.at};
        described.Set("stories", std::move(all));
    }
}

static std::string NameOf(std::string path) {
    while (path.size() > 1 && (path.ends_with('/') || path.ends_with('\\'))) {
        path.pop_back();
    }
    const std::size_t last = path.find_last_of("/\\");
    return last == std::string::npos ? path : path.substr(last + 1);
}

// The folder's description, also if a medium without small letters was on the way; "" if it has none. A link that leads
// nowhere is one, or the exports beside it would pass for the machine.
static std::string DescriptionIn(const std::string& folder) {
    for (const std::string& name : NamesInFolder(folder)) {
        const std::string path = InFolder(folder, name);
        if (machine::EqualNoCase(name, DescriptionName) && !IsFolder(path)) {
            return path;
        }
    }
    return "";
}

// A file that was cut off when it was copied would be a machine without ports, of which all is well.
static void CheckIsMachine(const TomlTable& described) {
    if (described.TextsOf("registry").empty() && described.TablesOf("device").empty()) {
        throw InputError(described.at, "this describes no machine: it names no export under 'registry', and no device");
    }
}

static TomlTable ReadFolder(const Options& options) {
    const std::string& folder = options.description;
    const std::string description = DescriptionIn(folder);
    TomlTable described;
    if (description.empty()) {
        described = ReadBareFolder(folder, options.ini || options.rules);
    } else {
        Folders within = {folder};
        if (!options.within.empty()) {
            within.push_back(options.within);
        }
        CheckIsInside(within, description, {description, 1, 1});
        described = ReadDescription(description, within);
        CheckIsMachine(described);
    }
    SetUsual(described, NameOf(folder));
    return described;
}

TomlTable ReadMachine(const Options& options) {
    const std::string& named = options.description;
    if (options.moreExports.empty() && IsFolder(named)) {
        return ReadFolder(options);
    }
    if (options.moreExports.empty() && !IsExportFile(named)) {
        if (options.within.empty()) {
            return ReadDescription(named);
        }
        TomlTable described = ReadDescription(named, {FolderOfPath(named), options.within});
        CheckIsMachine(described);
        return described;
    }
    TomlTable described = ReadExports(options);
    SetUsual(described, NameOf(named));
    return described;
}

} // namespace rehearse
