// Any line is split or refused: the result fits, is complete, and a value does not choose the program.
#include "fuzz/Stage.h"

#include "simwin/files/Files.h"
#include "simwin/shell/Shell.h"

#include "actions/CommandSplit.h"
#include "inventory/ports/CComPorts.h"
#include "support/system/ProcessState.h"
#include "support/texts/BoundedText.h"

#include <cstring>

namespace fuzz {

void Prepare() {
    CopyText(szWindowsDir, "C:\\Windows");
    for (const char* file : {"C:\\a.exe", "C:\\b c\\d.exe", "C:\\e.txt", "C:\\Windows\\n.exe", "C:\\s.cmd"}) {
        machine::TheFiles().Write(file, "MZ");
    }
    machine::SetAssociation(".txt", "C:\\Windows\\n.exe");
}

void TryInput(std::string_view input) {
    const std::string line = TextOf(input);
    char exe[MAX_PATH];
    char params[MaxProgramParams];
    for (const std::string& text : {line, "C:\\b c\\d.exe " + line, "C:\\e.txt " + line}) {
        const int isSplit = SplitCommandLine(text.c_str(), "C:\\", exe, params);
        Require((isSplit != 0) == (exe[0] != '\0'), "a program comes with success alone");
        Require(isSplit != 0 || params[0] == '\0', "nothing comes with failure");
        Require(!isSplit || machine::TheFiles().Exists(exe), "the program is there");
    }
    CComPort port;
    port.BusTypeName = "";
    CopyText(port.FriendlyName, line.c_str());
    for (const auto& [configured, program] : {std::pair{"C:\\a.exe %FriendlyName%", "C:\\a.exe"},
                                              std::pair{"C:\\b c\\d.exe /x %FriendlyName%", "C:\\b c\\d.exe"},
                                              std::pair{"C:\\s.cmd %FriendlyName%", "C:\\s.cmd"}}) {
        Require(SplitPortCommandLine(port, configured, UserType::normal, "C:\\", exe, params) == 1, "it is split");
        Require(std::strcmp(exe, program) == 0, "a value does not choose the program");
        Require(program[3] != 's' || !std::strpbrk(params, "&|<>^%!"), "a script gets nothing to evaluate");
    }
}

} // namespace fuzz
