// The command line between the service and its copy in execute mode: whatever the parameters are, the copy starts the
// program with exactly these, and nothing in them becomes an option.
#include "fuzz/Stage.h"

#include "simwin/kernel/Process.h"

#include "actions/ExecuteMode.h"
#include "actions/ProgramLauncher.h"
#include "support/texts/BoundedText.h"
#include "support/texts/CommandLine.h"

#include <cstring>

namespace fuzz {

void Prepare() {
}

void TryInput(std::string_view input) {
    const std::string text = TextOf(input);
    OpenParams params = {};
    CopyText(params.szExe, text.size() % 2 ? "C:\\a.exe" : "C:\\b c\\d.exe");
    CopyText(params.szWorkDir, "C:\\b c\\");
    CopyText(params.szParams, text.c_str());
    char sent[MaxExecuteLine];
    BuildExecuteLine(params, /*wait=*/true, 7, sent);
    std::string& commandLine = machine::CurrentProcess()->commandLine;
    commandLine = std::string("\"C:\\q m\\q.exe\" ") + sent;
    char* tokens[32] = {};
    LONG count = 0;
    TokenizeCommandLine(&count, tokens);
    Require((count == 0) == (commandLine.size() >= ExecuteLineLimit), "a line that is too long gives nothing");
    ExecuteRequest request;
    char directory[MAX_PATH] = "D:\\";
    ReadExecuteRequest(count, tokens, commandLine.c_str(), &request, directory);
    if (count == 0) {
        Require(request.program[0] == '\0', "nothing is started");
        return;
    }
    Require(std::strcmp(request.program, params.szExe) == 0 && request.wait, "the program is the one that was sent");
    Require(std::strcmp(directory, params.szWorkDir) == 0, "so is the directory");
    char wanted[MaxProcessLine];
    char started[MaxProcessLine];
    BuildProcessLine(params.szExe, params.szParams, wanted);
    BuildRequestLine(request, started);
    Require(std::strcmp(wanted, started) == 0, "the program gets the parameters unchanged");

    commandLine = "q.exe " + text; // and any line at all is read without harm
    TokenizeCommandLine(&count, tokens);
    ReadExecuteRequest(count, tokens, commandLine.c_str(), &request, directory);
    BuildRequestLine(request, started);
}

} // namespace fuzz
