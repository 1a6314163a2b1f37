#include "simwin/shell/Shell.h"

#include "simwin/desktop/Desktop.h"
#include "simwin/devices/PlugAndPlay.h"
#include "simwin/files/Files.h"
#include "simwin/kernel/Call.h"
#include "simwin/kernel/Machine.h"
#include "simwin/registry/Registry.h"
#include "simwin/services/ServiceRegistry.h"

#include <map>

namespace machine {

namespace {

struct ShellState {
    std::map<std::string, Program, NoCaseLess> programs;
    bool consent = true;
    std::vector<ShellCall> calls;
    std::map<simwin::DWORD, bool> comThreads;
};
ShellState* g_shell;

Room g_room(
    70, [] { g_shell = new ShellState; },
    [] {
        delete g_shell;
        g_shell = nullptr;
    });

constexpr int Done = 42; // any number above 32 says that it worked
constexpr int AssociationFound = 33;

std::string ProductPath() {
    return TheSetup().directory + "\\" + TheSetup().executable;
}

std::string Unquoted(std::string_view text) {
    if (text.size() >= 2 && text.front() == '"' && text.back() == '"')
        text = text.substr(1, text.size() - 2);
    return std::string(text);
}

std::string Extension(std::string_view path) {
    const std::size_t dot = path.rfind('.');
    const std::size_t slash = path.rfind('\\');
    if (dot == std::string_view::npos || (slash != std::string_view::npos && dot < slash))
        return {};
    return std::string(path.substr(dot));
}

bool IsProgramFile(std::string_view path) {
    const std::string extension = Extension(path);
    return EqualNoCase(extension, ".exe") || EqualNoCase(extension, ".com");
}

// The command processor runs it, but to FindExecutableA it is a program of its own.
bool IsBatchFile(std::string_view path) {
    const std::string extension = Extension(path);
    return EqualNoCase(extension, ".bat") || EqualNoCase(extension, ".cmd");
}

// Windows looks for a name without a folder in the directory that it was given and in its own folders.
std::string FindFile(const std::string& name, const std::string& directory) {
    const std::string base = directory.empty() ? CurrentProcess()->currentDirectory : directory;
    for (const std::string& folder : {base, SystemDirectory(), WindowsDirectory()}) {
        const std::string path = ParsePath(name, folder).full;
        if (!path.empty() && (TheFiles().Exists(path) || EqualNoCase(path, ProductPath())))
            return path;
    }
    return {};
}

simwin::DWORD MissingError(const std::string& path) {
    const std::size_t slash = path.rfind('\\');
    return slash == std::string::npos || TheFiles().Exists(path.substr(0, slash)) ? simwin::ERROR_FILE_NOT_FOUND
                                                                                  : simwin::ERROR_PATH_NOT_FOUND;
}

// A scripted program holds its port and shows its window until it ends.
void PlayProgram(Process* process) {
    const auto described = g_shell->programs.find(process->imagePath);
    const Program program = described == g_shell->programs.end() ? Program() : described->second;
    if (!program.window.empty())
        ShowProgramWindow(process, program.window, process->showCommand);
    if (!program.holds.empty())
        HoldPort(program.holds, process);
    After(program.runsMs, [process, exitCode = program.exitCode, holds = program.holds] {
        if (process->ended)
            return;
        if (!holds.empty())
            ReleasePort(holds);
        EndProcess(process, exitCode);
    });
}

struct Opened {
    std::string program, parameters;
    int error = 0;
};

// What a file means to the shell: itself with its parameters, or its program with the file.
Opened ResolveFile(const std::string& name, const std::string& parameters, const std::string& directory) {
    const std::string path = FindFile(name, directory);
    if (path.empty())
        return {{}, {}, MissingError(name) == simwin::ERROR_PATH_NOT_FOUND ? simwin::SE_ERR_PNF : simwin::SE_ERR_FNF};
    if (IsProgramFile(path))
        return {path, parameters, 0};
    const std::string program = AssociatedProgram(path);
    if (program.empty())
        return {{}, {}, simwin::SE_ERR_NOASSOC};
    return {program, "\"" + path + "\"", 0};
}

int OpenByShell(const ShellCall& call) {
    const bool isElevated = EqualNoCase(call.verb, "runas");
    if (!isElevated && !EqualNoCase(call.verb, "open"))
        NotModelled("ShellExecuteA", "the verb " + call.verb);
    const Opened opened = ResolveFile(Unquoted(call.file), call.parameters, call.directory);
    if (opened.error) {
        SetError(opened.error == simwin::SE_ERR_NOASSOC ? simwin::ERROR_NO_ASSOCIATION
                                                        : static_cast<simwin::DWORD>(opened.error));
        return opened.error;
    }
    const Process* caller = CurrentProcess();
    if (isElevated && !caller->administrator && !g_shell->consent) {
        SetError(simwin::ERROR_CANCELLED);
        return simwin::SE_ERR_ACCESSDENIED;
    }
    ProcessStart start;
    start.imagePath = opened.program;
    start.commandLine = "\"" + opened.program + "\"" + (opened.parameters.empty() ? "" : " ") + opened.parameters;
    start.currentDirectory = call.directory.empty() ? caller->currentDirectory : call.directory;
    start.user = caller->user;
    start.session = caller->session;
    start.administrator = caller->administrator || isElevated;
    start.rights = isElevated && caller->rights != Rights::System ? Rights::Elevated : caller->rights;
    start.showCommand = static_cast<unsigned>(call.show);
    start.parentId = caller->id;
    simwin::DWORD error = 0;
    if (StartProgram(start, &error))
        return Done;
    SetError(error);
    return static_cast<int>(error);
}

simwin::HINSTANCE ShellResult(int number) {
    return reinterpret_cast<simwin::HINSTANCE>(static_cast<simwin::ULONG_PTR>(number));
}

} // namespace

void DescribeProgram(std::string_view path, const Program& program) {
    g_shell->programs.insert_or_assign(std::string(path), program);
}

Process* StartProgram(const ProcessStart& start, simwin::DWORD* error) {
    if (EqualNoCase(start.imagePath, ProductPath()))
        return StartProduct(start);
    if (!TheFiles().Exists(start.imagePath)) {
        *error = MissingError(start.imagePath);
        return nullptr;
    }
    Process* process = StartScripted(start);
    PlayProgram(process);
    return process;
}

void SetAssociation(std::string_view extension, std::string_view program) {
    const std::string kind = std::string(extension.substr(extension.empty() ? 0 : 1)) + "file";
    Registry& registry = TheRegistry();
    registry.SetString("HKCR\\" + std::string(extension), "", kind);
    registry.SetString("HKCR\\" + kind + "\\shell\\open\\command", "", "\"" + std::string(program) + "\" \"%1\"");
}

// The default value of a class: the user's own if there is one, else the machine's.
static std::string ClassDefault(const std::string& key) {
    const std::string own = TheRegistry().GetString("HKCU\\Software\\Classes\\" + key, "");
    return own.empty() ? TheRegistry().GetString("HKCR\\" + key, "") : own;
}

std::string AssociatedProgram(std::string_view path) {
    const std::string extension = Extension(path);
    const std::string kind = extension.empty() ? "" : ClassDefault(extension);
    const std::string command = kind.empty() ? "" : ClassDefault(kind + "\\shell\\open\\command");
    if (command.empty())
        return {};
    if (command[0] == '"')
        return command.substr(1, command.find('"', 1) - 1);
    const std::string program = FirstProgram(command); // blanks may be a part of its name
    return program == command ? command.substr(0, command.find(' ')) : program;
}

void SetConsent(bool isGiven) {
    g_shell->consent = isGiven;
}

const std::vector<ShellCall>& ShellCalls() {
    return g_shell->calls;
}

} // namespace machine

namespace simwin {

HINSTANCE ShellExecuteA(HWND, LPCSTR verb, LPCSTR file, LPCSTR parameters, LPCSTR directory, int show) {
    SIM_CALL("ShellExecuteA", file, ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND, ERROR_ACCESS_DENIED, ERROR_CANCELLED);
    if (simCall.error) {
        machine::SetError(simCall.error);
        return machine::ShellResult(simCall.error == ERROR_CANCELLED ? SE_ERR_ACCESSDENIED
                                                                     : static_cast<int>(simCall.error));
    }
    machine::ShellCall call = {machine::Now(), verb, file, parameters ? parameters : "", directory ? directory : "",
                               show,           0};
    call.result = machine::OpenByShell(call);
    machine::g_shell->calls.push_back(call);
    return machine::ShellResult(call.result);
}

HINSTANCE FindExecutableA(LPCSTR file, LPCSTR directory, LPSTR result) {
    SIM_CALL("FindExecutableA", file, ERROR_FILE_NOT_FOUND);
    result[0] = 0;
    if (simCall.error)
        return machine::ShellResult(SE_ERR_FNF);
    const std::string base = directory ? directory : "";
    machine::Opened opened = machine::ResolveFile(machine::Unquoted(file), "", base);
    if (opened.error == SE_ERR_NOASSOC && machine::IsBatchFile(machine::Unquoted(file)))
        opened = {machine::FindFile(machine::Unquoted(file), base), {}, 0};
    if (opened.error)
        return machine::ShellResult(opened.error);
    const std::size_t length = opened.program.copy(result, MAX_PATH - 1);
    result[length] = 0;
    return machine::ShellResult(machine::AssociationFound);
}

LANGID GetUserDefaultLangID() {
    SIM_CALL("GetUserDefaultLangID", "");
    return static_cast<LANGID>(machine::TheSetup().language);
}

HRESULT CoInitializeEx(LPVOID, DWORD) {
    SIM_CALL("CoInitializeEx", "");
    bool& isDone = machine::g_shell->comThreads[machine::CurrentThread()->id];
    const HRESULT result = isDone ? 1 : 0;
    isDone = true;
    return result;
}

} // namespace simwin
