// The command line of the process: its tokens are in one buffer, one after another, and never outgrow the table.
#include "fuzz/Stage.h"

#include "simwin/kernel/Process.h"

#include "support/texts/CommandLine.h"

#include <string_view>

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
        const char* free = nullptr; // where the next token may begin
        for (LONG i = 0; i < count; ++i) {
            Require(tokens[i] > free, "a token follows the last one");
            const std::string_view token = tokens[i] ? tokens[i] : "";
            Require(commandLine.find(token) != std::string::npos, "a token is in the command line");
            total += token.size();
            free = token.data() + token.size();
        }
        Require(total <= commandLine.size(), "the tokens are no longer than the command line");
    }
}

} // namespace fuzz
