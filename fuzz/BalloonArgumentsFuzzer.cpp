// The command line of a balloon child: whatever it holds, the texts end inside their fields and the process survives.
#include "fuzz/Stage.h"

#include "simwin/kernel/Process.h"

#include "balloon/BalloonArguments.h"

#include <cstring>

namespace fuzz {

void Prepare() {
}

void TryInput(std::string_view input) {
    machine::CurrentProcess()->commandLine = "Quillmarch.exe -balloon " + TextOf(input);
    const BalloonArguments arguments = ReadBalloonArguments();
    Require(std::memchr(arguments.Title, 0, sizeof(arguments.Title)) != nullptr, "the title ends inside its field");
    Require(std::memchr(arguments.Text, 0, sizeof(arguments.Text)) != nullptr, "the text ends inside its field");
    Require(std::strchr(arguments.Text, '~') == nullptr, "every tilde has become a dash");
    if (machine::CurrentProcess()->commandLine.size() >= 512) {
        Require(arguments.Title[0] == 0 && arguments.ShowTime == 0, "a line that is too long says nothing");
    }
}

} // namespace fuzz
