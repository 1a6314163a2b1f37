// Programs other than the product: described ones follow their description, scripts run in the command processor.
#include "simwin/shell/Shell.h"

#include "simwin/desktop/Desktop.h"
#include "simwin/devices/drivers/Holders.h"
#include "simwin/files/Files.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/kernel/Setup.h"
#include "simwin/kernel/Text.h"
#include "simwin/texts/Environment.h"

#include <map>

namespace machine {

static std::map<std::string, Program, NoCaseLess>* g_programs;

RoomPtr MakePrograms() {
    return MakeRoom(g_programs);
}

constexpr const char* ProgramExtensions[] = {".exe", ".com", ".bat", ".cmd"};

static std::string ProductPath() {
    return TheSetup().directory + "\\" + TheSetup().executable;
}

static std::string CommandProcessor() {
    return SystemDirectory() + "\\cmd.exe";
}

static bool HasExtension(std::string_view path, std::string_view extension) {
    return path.size() > extension.size() && EqualNoCase(path.substr(path.size() - extension.size()), extension);
}

static bool IsProgramFile(std::string_view path) {
    return HasExtension(path, ".exe") || HasExtension(path, ".com") || IsBatchFile(path) || FindProgram(path);
}

static bool IsFile(const std::string& path) {
    const FileNode* node = TheFiles().Find(path);
    return node && !node->folder;
}

// The file itself, or with one of the extensions that a program's name may leave out.
static std::string WithExtension(const std::string& path) {
    if (path.empty() || IsFile(path)) {
        return path;
    }
    if (NameOfPath(path).find('.') == std::string::npos) {
        for (const char* extension : ProgramExtensions) {
            if (IsFile(path + extension)) {
                return path + extension;
            }
        }
    }
    return TheFiles().Exists(path) ? path : "";
}

static simwin::DWORD ErrorOfStart(const std::string& path) {
    if (const Program* program = FindProgram(path); program && program->failsWith) {
        return program->failsWith;
    }
    if (!TheFiles().Exists(path)) {
        return TheFiles().Exists(FolderOfPath(path)) ? simwin::ERROR_FILE_NOT_FOUND : simwin::ERROR_PATH_NOT_FOUND;
    }
    if (!IsFile(path)) {
        return simwin::ERROR_ACCESS_DENIED;
    }
    return IsProgramFile(path) ? 0 : simwin::DWORD{simwin::ERROR_BAD_EXE_FORMAT};
}

// A scripted program holds its port and shows its window until it ends.
static void PlayProgram(Process* process, const std::string& path) {
    const Program* described = FindProgram(path);
    const Program program = described ? *described : Program();
    if (!program.window.empty()) {
        ShowProgramWindow(process, program.window, process->showCommand);
    }
    if (!program.holds.empty()) {
        HoldPort(program.holds, process);
    }
    if (program.runsMs == Program::Forever) {
        return;
    }
    After(program.runsMs, [process, exitCode = program.exitCode, holds = program.holds] {
        if (process->ended) {
            return;
        }
        if (!holds.empty()) {
            ReleasePort(holds);
        }
        EndProcess(process, exitCode);
    });
}

// The first word of a part, without its quotes.
static std::string FirstWord(std::string_view part) {
    std::string word;
    bool isQuoted = false;
    for (const char c : part.substr(std::min(part.find_first_not_of(" \t"), part.size()))) {
        if (c == '"') {
            isQuoted = !isQuoted;
        } else if (!isQuoted && (c == ' ' || c == '\t')) {
            break;
        } else {
            word += c;
        }
    }
    return word;
}

// The command after the processor's /c or /k, as it reads it; nothing for another command line.
static std::optional<std::string> LineOfCommandProcessor(std::string_view commandLine) {
    std::size_t at = std::min(FindNoCase(commandLine, "/c"), FindNoCase(commandLine, "/k"));
    if (at == std::string_view::npos) {
        return std::nullopt;
    }
    at = commandLine.find_first_not_of(" \t", at + 2);
    std::string line(at == std::string_view::npos ? "" : commandLine.substr(at));
    const std::size_t last = line.rfind('"');
    const bool isBare = line.find_first_of("&<>()@^|") == std::string::npos && line.find('"', 1) == last;
    if (line.starts_with('"') && last > 0 && !(isBare && last + 1 == line.size())) {
        line = line.substr(1, last - 1) + line.substr(last + 1);
    }
    return line;
}

// Starts those parts of a line whose first word is a program, as children of the command processor.
static void RunParts(const Process& processor, const ProcessStart& start, std::string_view line, bool isFirstRun) {
    for (const std::string& part : CommandParts(line)) {
        const std::string path = isFirstRun ? "" : FindFileOfShell(FirstWord(part), start.currentDirectory);
        isFirstRun = false;
        if (path.empty() || !IsProgramFile(path)) {
            continue;
        }
        ProcessStart child = start;
        child.imagePath = path;
        child.commandLine = part.substr(part.find_first_not_of(" \t"));
        child.parentId = processor.id;
        simwin::DWORD error = 0;
        StartProgram(child, &error);
    }
}

static Process* StartScript(const ProcessStart& start) {
    ProcessStart processor = start;
    processor.imagePath = CommandProcessor();
    processor.commandLine = processor.imagePath + " /c \"" + start.commandLine + "\"";
    Process* process = StartScripted(processor);
    PlayProgram(process, start.imagePath);
    RunParts(*process, start, start.commandLine, /*isFirstRun=*/true);
    return process;
}

void DescribeProgram(std::string_view path, const Program& program) {
    g_programs->insert_or_assign(std::string(path), program);
}

const Program* FindProgram(std::string_view path) {
    const auto described = g_programs->find(path);
    return described == g_programs->end() ? nullptr : &described->second;
}

bool IsBatchFile(std::string_view path) {
    return HasExtension(path, ".bat") || HasExtension(path, ".cmd");
}

std::vector<std::string> CommandParts(std::string_view line) {
    std::vector<std::string> parts(1);
    bool isQuoted = false;
    for (std::size_t i = 0; i < line.size() && line[i] != '\n'; ++i) {
        const char c = line[i];
        if (c == '"') {
            isQuoted = !isQuoted;
        }
        if (!isQuoted && c == '^' && i + 1 < line.size()) {
            parts.back() += line[++i];
        } else if (!isQuoted && (c == '&' || c == '|')) {
            parts.emplace_back();
        } else {
            parts.back() += c;
        }
    }
    std::erase_if(parts, [](const std::string& part) { return part.find_first_not_of(" \t\r") == std::string::npos; });
    return parts;
}

std::string FindFileOfShell(std::string_view name, const std::string& directory) {
    if (name.empty()) {
        return {};
    }
    const std::string base = directory.empty() ? CurrentProcess()->currentDirectory : directory;
    if (name.find_first_of("\\/:") != std::string_view::npos) {
        return WithExtension(ParsePath(name, base).full);
    }
    std::vector<std::string> folders = {base, SystemDirectory(), WindowsDirectory()};
    for (const std::string& folder : Split(GetEnvironment("Path"), ';')) {
        folders.push_back(folder);
    }
    for (const std::string& folder : folders) {
        if (const std::string path = WithExtension(ParsePath(name, folder).full); !path.empty()) {
            return path;
        }
    }
    return {};
}

Process* StartProgram(const ProcessStart& start, simwin::DWORD* error) {
    *error = ErrorOfStart(start.imagePath);
    if (*error) {
        return nullptr;
    }
    if (EqualNoCase(start.imagePath, ProductPath())) {
        return StartProduct(start);
    }
    if (IsBatchFile(start.imagePath)) {
        return StartScript(start);
    }
    Process* process = StartScripted(start);
    PlayProgram(process, start.imagePath);
    if (EqualNoCase(start.imagePath, CommandProcessor())) {
        if (const std::optional<std::string> line = LineOfCommandProcessor(start.commandLine)) {
            RunParts(*process, start, *line, /*isFirstRun=*/false);
        }
    }
    return process;
}

} // namespace machine
