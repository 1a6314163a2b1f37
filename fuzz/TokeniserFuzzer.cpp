// The command line of the process: its tokens are in one buffer, one after another, and never outgrow the table.
#include "fuzz/Stage.h"

#include "simwin/kernel/Process.h"

#include "support/texts/CommandLine.h"

#include <cstring>

namespace fuzz {

constexpr LONG RoomyTable = 64;

void Prepare() {
}

void TryInput(std::string_view input) {
    std::string& commandLine = machine::CurrentProcess()->commandLine;
    commandLine = TextOf(input);
    char* tokens[RoomyTable] = {};
    for (const LONG capacity : {RoomyTable, LONG{3}, LONG{1}}) {
        LONG count = -1;
        TokenizeCommandLine(&count, tokens, capacity);
        Require(count >= 0 && count <= capacity, "the tokens fit the table");
        Require(tokens[0] != nullptr, "the first token is there");
        std::size_t total = 0;
        for (LONG i = 0; i < count; ++i) {
            Require(i == 0 || tokens[i] > tokens[i - 1] + std::strlen(tokens[i - 1]), "a token follows the last one");
            Require(commandLine.find(tokens[i]) != std::string::npos, "a token is in the command line");
            total += std::strlen(tokens[i]);
        }
        Require(total <= commandLine.size(), "the tokens are no longer than the command line");
    }
}

} // namespace fuzz
