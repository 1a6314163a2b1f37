#include "rehearse/Surroundings.h"

#include "rehearse/DesktopEvents.h"
#include "rehearse/MachineBuilder.h"

#include "simwin/desktop/Desktop.h"
#include "simwin/files/Files.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Scheduler.h"
#include "simwin/kernel/Setup.h"
#include "simwin/kernel/Text.h"
#include "simwin/services/Power.h"
#include "simwin/sessions/Sessions.h"
#include "simwin/shell/Shell.h"

#include <fmt/format.h>

#include <algorithm>

namespace rehearse {

namespace {

constexpr std::int64_t LargestSession = 65535;
constexpr std::int64_t DefaultRunMs = 1000;

unsigned SessionIn(const Record& record, std::string_view key) {
    const std::int64_t id = record.NumberOf(key, 1);
    if (id < 0 || id > LargestSession)
        throw InputError(record.At(key), fmt::format("'{}' must be 0 to {}", key, LargestSession));
    return static_cast<unsigned>(id);
}

void SetUpFiles(const Record& description) {
    for (const Record& file : description.TablesOf("files")) {
        const std::string path = PathIn(file, "path");
        machine::FileNode* node = path.ends_with('\\') ? machine::TheFiles().MakeFolder(path)
                                                       : machine::TheFiles().Write(path, file.TextOf("text"));
        if (!node)
            throw InputError(file.At("path"), "'path' is no name on the machine");
        node->link = file.TextOf("link");
        node->names = static_cast<unsigned>(file.NumberOf("names", 1));
        if (file.Has("security")) {
            const auto security = machine::ParseSddl(file.TextOf("security"));
            if (!security)
                throw InputError(file.At("security"), "'security' is no owner and access list");
            node->security = std::make_shared<const machine::SecurityDescriptor>(*security);
        }
        const Record* program = file.TableOf("program");
        if (!program)
            continue;
        machine::DescribeProgram(path, {program->MsOf("runs", DefaultRunMs),
                                        static_cast<simwin::DWORD>(program->NumberOf("exit")), program->TextOf("holds"),
                                        program->TextOf("window")});
    }
}

void SetUpShell(const Record& description) {
    const Record* windows = description.TableOf("windows");
    if (const Record* associations = windows ? windows->TableOf("associations") : nullptr)
        for (const auto& [extension, program] : associations->Fields())
            machine::SetAssociation(extension, program.text);
    if (const Record* product = description.TableOf("quillmarch"))
        machine::SetConsent(product->FlagOf("consent", true));
}

machine::Session SessionOf(const Record& record, bool isConsole) {
    machine::Session session;
    session.id = SessionIn(record, "id");
    session.user = record.TextOf("user");
    session.state =
        *machine::SessionStateFromName(record.TextOf("state", session.user.empty() ? "connected" : "active"));
    session.console = record.FlagOf("console", isConsole);
    session.administrator = record.FlagOf("administrator");
    session.filtered = record.FlagOf("uac");
    return session;
}

void SetUpSessions(const Record& description) {
    const std::vector<Record>& records = description.TablesOf("session");
    const bool saysConsole = std::any_of(records.begin(), records.end(),
                                         [](const Record& record) { return record.FlagOf("console", false); });
    bool isFirst = true;
    for (const Record& record : records) {
        machine::DefineSession(SessionOf(record, isFirst && !saysConsole));
        isFirst = false;
    }
}

// Each user has a shell, whose windows are the desktop.
void StartShells(const Record& description) {
    for (const Record& record : description.TablesOf("session")) {
        const std::string user = record.TextOf("user");
        if (user.empty() || !record.FlagOf("shell", true))
            continue;
        machine::ProcessStart start;
        start.imagePath = start.commandLine = machine::WindowsDirectory() + "\\explorer.exe";
        start.currentDirectory = machine::WindowsDirectory();
        start.user = user;
        start.session = SessionIn(record, "id");
        start.rights = machine::Rights::User;
        start.administrator = false;
        machine::ShellStarted(machine::StartScripted(start));
    }
}

void SetUpAnswers(const Record& description) {
    for (const Record& record : description.TablesOf("answer"))
        machine::AddBoxAnswer(
            {record.TextOf("message"), machine::ButtonFromName(record.TextOf("button", "ok")), record.MsOf("after")});
}

Action LogonEvent(const Record& event, Stage& stage) {
    const Record& table = *event.TableOf("logon");
    const machine::Session session = SessionOf(table, /*isConsole=*/false);
    return [&stage, session] {
        stage.timeline->Outside(fmt::format("{} logs on to session {}", session.user, session.id));
        machine::LogOn(session);
    };
}

Action LogoffEvent(const Record& event, Stage& stage) {
    const unsigned id = SessionIn(event, "logoff");
    return [&stage, id] {
        stage.timeline->Outside(fmt::format("session {} ends", id));
        machine::LogOff(id);
    };
}

bool LogsOnLater(const Record& description, const std::string& user) {
    const std::vector<Record>& events = description.TablesOf("event");
    return std::any_of(events.begin(), events.end(), [&](const Record& event) {
        const Record* logon = event.TableOf("logon");
        return logon && machine::EqualNoCase(logon->TextOf("user"), user);
    });
}

// The program of a command line: in quotes, or up to the first blank.
std::string ProgramOf(const std::string& commandLine) {
    if (commandLine.starts_with('"'))
        return commandLine.substr(1, commandLine.find('"', 1) - 1);
    return commandLine.substr(0, commandLine.find(' '));
}

Action RunEvent(const Record& event, Stage& stage) {
    const std::vector<Record>& sessions = stage.description->TablesOf("session");
    const std::string first = sessions.empty() ? NamelessUser : sessions.front().TextOf("user");
    machine::ProcessStart start;
    start.user = event.TextOf("user", first);
    if (!LogsOnLater(*stage.description, start.user))
        start.session = SessionOfUser(*stage.description, start.user, event.At("user")).id;
    start.commandLine = event.TextOf("run");
    start.imagePath = ProgramOf(start.commandLine);
    if (start.imagePath.size() < 3 || start.imagePath[1] != ':')
        throw InputError(event.At("run"), "'run' must begin with the full path of a program");
    start.currentDirectory = start.imagePath.substr(0, start.imagePath.rfind('\\'));
    return [&stage, start] {
        machine::ProcessStart now = start;
        const machine::Session* session = machine::FindSessionOfUser(start.user);
        if (!session && (machine::HasBooted() || !machine::AllSessions().empty())) {
            stage.timeline->Outside(fmt::format("{} is not logged on, and runs nothing", start.user));
            return;
        }
        if (session)
            now.session = session->id;
        now.administrator = session && session->administrator && !session->filtered;
        now.rights = now.administrator ? machine::Rights::Elevated : machine::Rights::User;
        simwin::DWORD error = 0;
        const bool isStarted = machine::StartProgram(now, &error) != nullptr;
        stage.timeline->Outside(
            fmt::format("{} {}{}", start.user, isStarted ? "runs " : "cannot run ", start.commandLine));
    };
}

constexpr EventRow Rows[] = {{"logon", LogonEvent}, {"logoff", LogoffEvent}, {"run", RunEvent}};

} // namespace

std::string PathIn(const Record& record, std::string_view key) {
    const std::string path = record.TextOf(key);
    if (path.size() < 3 || path[1] != ':' || path[2] != '\\')
        throw InputError(record.At(key), fmt::format("'{}' must be a full path such as 'C:\\Tools\\term.exe'", key));
    return path;
}

SessionFacts SessionOfUser(const Record& description, const std::string& user, const Position& at) {
    const std::vector<Record>& sessions = description.TablesOf("session");
    if (sessions.empty())
        return {};
    const auto session = std::find_if(sessions.begin(), sessions.end(), [&](const Record& record) {
        return machine::EqualNoCase(record.TextOf("user"), user);
    });
    if (session == sessions.end())
        throw InputError(at, fmt::format("there is no session of '{}'", user));
    return {SessionIn(*session, "id"), session->FlagOf("uac")};
}

void SetUpSurroundings(const Record& description) {
    SetUpFiles(description);
    SetUpSessions(description);
    SetUpAnswers(description);
    SetUpShell(description);
    SetUpDesktop(description);
    StartShells(description);
}

std::span<const EventRow> SurroundingsEventRows() {
    return Rows;
}

namespace {

// Every box of the tool stands in front of all windows: MB_SYSTEMMODAL counts only where it is asked for.
bool HasFlags(const machine::MessageBoxRecord& box, simwin::UINT wanted) {
    const simwin::UINT counts = wanted & simwin::MB_SYSTEMMODAL ? ~0u : ~simwin::UINT{simwin::MB_SYSTEMMODAL};
    return (box.flags & counts) == wanted;
}

// The program that was started to edit the configuration.
void JudgeEditor(const Record& expect, Wrongs& wrongs) {
    const std::string product = machine::TheSetup().directory + "\\" + machine::TheSetup().executable;
    std::string others;
    for (const machine::Process* process : machine::AllProcesses()) {
        if (machine::EqualNoCase(process->imagePath, expect.TextOf("editor")))
            return;
        if (!machine::EqualNoCase(process->imagePath, product))
            others += fmt::format("{}'{}'", others.empty() ? "" : ", ", process->imagePath);
    }
    wrongs.push_back(fmt::format("it was not started; there were: {}", others.empty() ? "none" : others));
}

} // namespace

void JudgeSurroundings(const Record& expect, Wrongs& wrongs) {
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
    if (expect.Has("count") ? fits != static_cast<std::size_t>(expect.NumberOf("count")) : fits == 0)
        wrongs.push_back(fmt::format("{} such boxes; there were: {}", fits, others.empty() ? "none" : others));
}

} // namespace rehearse
