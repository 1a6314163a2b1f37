#include "rehearse/machine/Surroundings.h"

#include "rehearse/machine/DescribedDesktop.h"

#include "simwin/desktop/Desktop.h"
#include "simwin/files/Files.h"
#include "simwin/kernel/Text.h"
#include "simwin/registry/Security.h"
#include "simwin/shell/Shell.h"
#include "simwin/texts/Environment.h"

#include <fmt/format.h>

#include <algorithm>

namespace rehearse {

constexpr std::int64_t DefaultRunMs = 1000;

static machine::Program ProgramOf(const TomlTable& table) {
    machine::Program program;
    program.runsMs = table.Is("runs", Text) ? machine::Program::Forever : table.MsOf("runs", DefaultRunMs);
    program.exitCode = static_cast<simwin::DWORD>(table.NumberOf("exit"));
    program.holds = table.TextOf("holds");
    program.window = table.TextOf("window");
    program.failsWith = static_cast<simwin::DWORD>(table.NumberOf("fails"));
    program.blocksMs = table.MsOf("blocks");
    return program;
}

static void SetUpFiles(const TomlTable& description) {
    for (const TomlTable& file : description.TablesOf("files")) {
        const std::string path = PathIn(file, "path");
        machine::FileNode* node = path.ends_with('\\') ? machine::TheFiles().MakeFolder(path)
                                                       : machine::TheFiles().Write(path, file.TextOf("text"));
        if (!node) {
            throw InputError(file.At("path"), "'path' is no name on the machine");
        }
        node->link = file.TextOf("link");
        node->names = static_cast<unsigned>(file.NumberOf("names", 1));
        if (file.Has("security")) {
            const auto security = machine::ParseSddl(file.TextOf("security"));
            if (!security) {
                throw InputError(file.At("security"), "'security' is no owner and access list");
            }
            node->security = std::make_shared<const machine::SecurityDescriptor>(*security);
        }
        if (const TomlTable* program = file.TableOf("program")) {
            machine::DescribeProgram(path, ProgramOf(*program));
        }
    }
}

static void SetUpShell(const TomlTable& description) {
    const TomlTable* windows = description.TableOf("windows");
    if (windows && windows->Has("computer")) {
        machine::SetEnvironment("COMPUTERNAME", windows->TextOf("computer"));
    }
    if (const TomlTable* environment = windows ? windows->TableOf("environment") : nullptr) {
        for (const auto& [name, value] : environment->Fields()) {
            machine::SetEnvironment(name, value.text);
        }
    }
    if (const TomlTable* associations = windows ? windows->TableOf("associations") : nullptr) {
        for (const auto& [extension, program] : associations->Fields()) {
            machine::SetAssociation(extension, program.text);
        }
    }
    if (const TomlTable* product = description.TableOf("quillmarch")) {
        machine::SetConsent(product->FlagOf("consent", true));
    }
}

static void SetUpAnswers(const TomlTable& description) {
    for (const TomlTable& table : description.TablesOf("answer")) {
        machine::AddBoxAnswer(
            {table.TextOf("message"), machine::ButtonFromName(table.TextOf("button", "ok")), table.MsOf("after")});
    }
}

std::string PathIn(const TomlTable& table, std::string_view key) {
    const std::string path = table.TextOf(key);
    if (path.size() < 3 || path[1] != ':' || path[2] != '\\') {
        throw InputError(table.At(key), fmt::format("'{}' must be a full path such as 'C:\\Tools\\term.exe'", key));
    }
    return path;
}

void SetUpSurroundings(const TomlTable& description) {
    SetUpFiles(description);
    SetUpAnswers(description);
    SetUpShell(description);
    SetUpDesktop(description);
}

} // namespace rehearse
