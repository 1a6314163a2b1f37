#include "rehearse/Manners.h"

#include "rehearse/Files.h"
#include "rehearse/rules/IniFile.h"

#include <fmt/format.h>

#include <algorithm>

namespace rehearse {

// Every file that a description names.
static void AddFiles(const TomlTable& table, std::vector<std::string>& files) {
    files.push_back(table.at.file);
    for (const Field& field : table.Fields()) {
        if (field.value.type == HostFile) {
            files.push_back(field.value.text);
        } else if (field.value.type == HostFiles) {
            files.insert(files.end(), field.value.texts.begin(), field.value.texts.end());
        }
        for (const TomlTable& below : field.value.tables) {
            AddFiles(below, files);
        }
    }
}

std::string DidYouMean(std::string_view word, const std::vector<std::string>& names) {
    const std::string near = NearestName(word, names);
    return near.empty() ? "" : fmt::format("; did you mean '{}'?", near);
}

std::string DidYouMeanFile(const std::string& file) {
    const std::string folder = FolderOfPath(file), name = NameOfPath(file);
    std::vector<std::string> names = NamesInFolder(folder.empty() ? "." : folder);
    std::erase(names, name); // it is there, but is a folder, or may not be read
    return DidYouMean(name, names);
}

void CheckOutputs(const Options& options, const TomlTable* description) {
    std::vector<std::string> inputs = {options.description};
    inputs.insert(inputs.end(), options.moreExports.begin(), options.moreExports.end());
    for (const auto& input : {options.ini, options.rules, options.compare}) {
        if (input) {
            inputs.push_back(*input);
        }
    }
    if (description) {
        AddFiles(*description, inputs);
    }
    std::vector<std::string> outputs;
    for (const auto& output : {options.json, options.log, options.html}) {
        if (!output || *output == "-") {
            continue;
        }
        const std::string name = KeyOfFile(*output);
        for (const std::string& input : inputs) {
            if (!input.empty() && KeyOfFile(input) == name) {
                throw InputError({*output, 1, 1}, "this file is an input, it is not overwritten");
            }
        }
        for (const std::string& other : outputs) {
            if (other == name) {
                throw InputError({*output, 1, 1}, "two outputs cannot go to one file");
            }
        }
        outputs.push_back(name);
    }
}

} // namespace rehearse
