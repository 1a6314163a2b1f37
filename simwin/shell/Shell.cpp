#include "simwin/shell/Shell.h"

#include "simwin/files/Files.h"
#include "simwin/kernel/Call.h"
#include "simwin/kernel/Setup.h"
#include "simwin/registry/Registry.h"
#include "simwin/sessions/Tokens.h"
#include "simwin/texts/Environment.h"

#include <map>

namespace machine {

namespace {
struct ShellState {
    bool consent = true;
    std::vector<ShellCall> calls;
    std::map<simwin::DWORD, bool> comThreads;
};
} // namespace
static ShellState* g_shell;

RoomPtr MakeShell() {
    return MakeRoom(g_shell);
}

constexpr int Done = 42; // any number above 32 says that it worked
constexpr int AssociationFound = 33;

static std::string Unquoted(std::string_view text) {
    if (text.size() >= 2 && text.front() == '"' && text.back() == '"') {
        text = text.substr(1, text.size() - 2);
    }
    return std::string(text);
}

static std::string Extension(std::string_view path) {
    const std::size_t dot = path.rfind('.');
    const std::size_t slash = path.rfind('\\');
    if (dot == std::string_view::npos || (slash != std::string_view::npos && dot < slash)) {
        return {};
    }
    return std::string(path.substr(dot));
}

// Splits a command from the registry: the program, in quotes or up to the first blank at which a file ends, and the
// rest.
static std::string ProgramOfCommand(const std::string& command) {
    if (command.starts_with('"')) {
        return command.substr(1, command.find('"', 1) - 1);
    }
    for (std::size_t end = command.find(' '); end != std::string::npos; end = command.find(' ', end + 1)) {
        if (const std::string path = FindFileOfShell(command.substr(0, end), SystemDirectory()); !path.empty()) {
            return path;
        }
    }
    const std::string whole = FindFileOfShell(command, SystemDirectory());
    return whole.empty() ? command.substr(0, command.find(' ')) : whole;
}

namespace {
struct Opened {
    std::string program, parameters;
    int error = 0;
};
} // namespace

// What the shell starts for a file: itself with its parameters, or its program with the file.
static Opened ResolveFile(const std::string& name, const std::string& parameters, const std::string& directory) {
    const std::string path = FindFileOfShell(name, directory);
    if (path.empty()) {
        const std::size_t slash = name.rfind('\\');
        const bool hasFolder = slash == std::string::npos || TheFiles().Exists(name.substr(0, slash));
        return {{}, {}, hasFolder ? simwin::SE_ERR_FNF : simwin::SE_ERR_PNF};
    }
    const std::string extension = Extension(path);
    if (EqualNoCase(extension, ".exe") || EqualNoCase(extension, ".com") || IsBatchFile(path)) {
        return {path, parameters, 0};
    }
    const std::string program = AssociatedProgram(path);
    if (program.empty()) {
        return {{}, {}, simwin::SE_ERR_NOASSOC};
    }
    return {program, "\"" + path + "\"", 0};
}

// The token of a program once the user, or an administrator in the user's place, has agreed to more rights.
static TokenFacts WithConsent(const TokenFacts& own) {
    TokenFacts more;
    if (RightsOf(own) == Rights::System || HasGroup(own, SidAdministrators)) {
        return own;
    }
    if (LinkedToken(own, more)) {
        return more;
    }
    Logon logon = own.logon;
    logon.administrator = true;
    logon.filtered = false;
    return LogonToken(logon);
}

static int OpenByShell(const ShellCall& call) {
    const bool isElevated = EqualNoCase(call.verb, "runas");
    if (!isElevated && !EqualNoCase(call.verb, "open")) {
        NotModelled("ShellExecuteA", "the verb " + call.verb);
    }
    const Opened opened = ResolveFile(Unquoted(call.file), call.parameters, call.directory);
    if (opened.error) {
        SetError(opened.error == simwin::SE_ERR_NOASSOC ? simwin::ERROR_NO_ASSOCIATION
                                                        : static_cast<simwin::DWORD>(opened.error));
        return opened.error;
    }
    Process* caller = CurrentProcess();
    if (isElevated && !caller->administrator && !g_shell->consent) {
        SetError(simwin::ERROR_CANCELLED);
        return simwin::SE_ERR_ACCESSDENIED;
    }
    ProcessStart start;
    start.imagePath = opened.program;
    start.commandLine = "\"" + opened.program + "\"" + (opened.parameters.empty() ? "" : " ") + opened.parameters;
    start.currentDirectory = call.directory.empty() ? caller->currentDirectory : call.directory;
    start.showCommand = static_cast<unsigned>(call.show);
    start.parentId = caller->id;
    start.environmentOf = caller->environmentOf;
    const Ref<Token> token(new Token(isElevated ? WithConsent(TokenOf(*caller)) : TokenFacts(TokenOf(*caller))));
    StartWith(start, *token);
    simwin::DWORD error = 0;
    const Process* started = StartProgram(start, &error);
    if (started) {
        return Done;
    }
    SetError(error);
    return static_cast<int>(error);
}

static simwin::HINSTANCE ShellResult(int number) {
    return reinterpret_cast<simwin::HINSTANCE>(static_cast<simwin::ULONG_PTR>(number));
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
    const std::string shell = kind + "\\shell";
    std::string command = kind.empty() ? "" : ClassDefault(shell + "\\open\\command");
    const RegistryKey* verbs = kind.empty() ? nullptr : TheRegistry().FindKey("HKCR\\" + shell);
    if (command.empty() && verbs && !verbs->subKeys.empty()) { // the first verb will do
        command = ClassDefault(shell + "\\" + verbs->subKeys.begin()->second->name + "\\command");
    }
    return command.empty() ? "" : ProgramOfCommand(ExpandEnvironment(command));
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
    if (simCall.error) {
        return machine::ShellResult(SE_ERR_FNF);
    }
    const machine::Opened opened = machine::ResolveFile(machine::Unquoted(file), "", directory ? directory : "");
    if (opened.error) {
        return machine::ShellResult(opened.error == SE_ERR_PNF ? SE_ERR_FNF : opened.error);
    }
    const std::size_t length = opened.program.copy(result, MAX_PATH - 1);
    result[length] = 0;
    return machine::ShellResult(machine::AssociationFound);
}

LANGID GetUserDefaultLangID() {
    SIM_CALL("GetUserDefaultLangID", "");
    return static_cast<LANGID>(machine::TheSetup().language);
}

HRESULT CoInitializeEx(LPVOID, DWORD model) {
    SIM_CALL("CoInitializeEx", "");
    if (model & ~DWORD{0xE}) {
        machine::NotModelled("CoInitializeEx", "flags other than those of the model and of OLE 1");
    }
    bool& isDone = machine::g_shell->comThreads[machine::CurrentThread()->id];
    const HRESULT result = isDone ? 1 : 0;
    isDone = true;
    return result;
}

} // namespace simwin
