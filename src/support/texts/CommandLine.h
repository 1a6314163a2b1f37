// The tokens of this process's command line, in a static buffer: for the one thread that parses it. Quotes stay in the
// tokens. A quote right after a blank opens no quoted part, so all command lines of the program put the quote after the
// "=".
#pragma once

#include <cstddef>

#include "platform/win32.h"

// tokens: a table for at most capacity pointers (at least 1) into the static buffer, valid until the next call.
// Tokens beyond the table are left out. *count: the tokens found, 0 with an empty first token for a command line of 512
// characters or more.
void TokenizeCommandLine(LONG* count, char** tokens, LONG capacity);
template<size_t N>
void TokenizeCommandLine(LONG* count, char* (&tokens)[N]) {
    TokenizeCommandLine(count, tokens, static_cast<LONG>(N));
}
