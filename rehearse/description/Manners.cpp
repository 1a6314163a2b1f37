#include "rehearse/description/Manners.h"

#include "rehearse/host/Files.h"

#include "simwin/kernel/Text.h"

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

static unsigned DistanceOf(std::string_view a, std::string_view b) {
    std::vector<std::vector<unsigned>> rows(a.size() + 1, std::vector<unsigned>(b.size() + 1));
    for (unsigned i = 0; i <= a.size(); ++i) {
        for (unsigned k = 0; k <= b.size(); ++k) {
            if (i == 0 || k == 0) {
                rows[i][k] = i + k;
                continue;
            }
            const unsigned changed =
                rows[i - 1][k - 1] + (machine::LowerChar(a[i - 1]) != machine::LowerChar(b[k - 1]));
            rows[i][k] = std::min({rows[i - 1][k] + 1, rows[i][k - 1] + 1, changed});
            if (i > 1 && k > 1 && machine::EqualNoCase(a.substr(i - 2, 1), b.substr(k - 1, 1)) &&
                machine::EqualNoCase(a.substr(i - 1, 1), b.substr(k - 2, 1))) {
                rows[i][k] = std::min(rows[i][k], rows[i - 2][k - 2] + 1); // two letters changed places
            }
        }
    }
    return rows[a.size()][b.size()];
}

std::string NearestName(std::string_view word, const std::vector<std::string>& names) {
    std::string nearest;
    unsigned best = static_cast<unsigned>(std::max<std::size_t>(word.size() / 3, 1)) + 1;
    if (word.size() <= 100) { // longer than any name
        for (const std::string& name : names) {
            if (const unsigned distance = DistanceOf(word, name); distance < best) {
                best = distance;
                nearest = name;
            }
        }
    }
    return nearest;
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
                throw InputError({*output, 0, 0}, "this file is an input, it is not overwritten");
            }
        }
        for (const std::string& other : outputs) {
            if (other == name) {
                throw InputError({*output, 0, 0}, "two outputs cannot go to one file");
            }
        }
        outputs.push_back(name);
    }
}

} // namespace rehearse
