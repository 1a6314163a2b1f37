#include "rehearse/Surroundings.h"

#include "rehearse/DesktopEvents.h"
#include "rehearse/MachineBuilder.h"

#include "simwin/desktop/Desktop.h"
#include "simwin/files/Files.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Setup.h"
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

// Every box of the tool is in front of all windows: MB_SYSTEMMODAL matters only if an expectation names it.
static bool HasFlags(const machine::MessageBoxRecord& box, simwin::UINT wanted) {
    const simwin::UINT counts = wanted & simwin::MB_SYSTEMMODAL ? ~0u : ~simwin::UINT{simwin::MB_SYSTEMMODAL};
    return (box.flags & counts) == wanted;
}

// The program that was started to edit the configuration.
static void JudgeEditor(const TomlTable& expect, Wrongs& wrongs) {
    const std::string product = machine::TheSetup().directory + "\\" + machine::TheSetup().executable;
    std::string others;
    for (const machine::Process* process : machine::AllProcesses()) {
        if (machine::EqualNoCase(process->imagePath, expect.TextOf("editor"))) {
            return;
        }
        if (!machine::EqualNoCase(process->imagePath, product)) {
            others += fmt::format("{}'{}'", others.empty() ? "" : ", ", process->imagePath);
        }
    }
    wrongs.push_back(fmt::format("it was not started; there were: {}", others.empty() ? "none" : others));
}

void JudgeSurroundings(const TomlTable& expect, Wrongs& wrongs) {
    if (expect.Has("editor")) {
        JudgeEditor(expect, wrongs);
        return;
    }
    const std::string text = expect.TextOf("message");
    std::size_t fits = 0;
    std::string others;
    for (const machine::MessageBoxRecord& box : machine::MessageBoxes()) {
        const bool isMeant =
            (text.empty() || box.text == text) &&
            (!expect.Has("contains") || box.text.find(expect.TextOf("contains")) != std::string::npos) &&
            (!expect.Has("flags") || HasFlags(box, static_cast<simwin::UINT>(expect.NumberOf("flags"))));
        fits += isMeant;
        others += fmt::format("{}'{}' (flags {})", others.empty() ? "" : ", ", box.text, box.flags);
    }
    if (expect.Has("count") ? fits != static_cast<std::size_t>(expect.NumberOf("count")) : fits == 0) {
        wrongs.push_back(fmt::format("{} such boxes; there were: {}", fits, others.empty() ? "none" : others));
    }
}

} // namespace rehearse
