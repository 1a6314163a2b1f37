#include "support/texts/CommandLine.h"

#include "support/texts/BoundedText.h"

constexpr size_t MaxCommandLine = 512; // characters with the final zero

// Steps over a quoted part. Returns: what follows its closing quote; null if the text ends inside.
static char* AfterQuote(char* openingQuote) {
    char* at = openingQuote + 1;
    while (*at != '"') {
        if (*at == '\0') {
            return nullptr;
        }
        ++at;
    }
    return at + 1;
}

void TokenizeCommandLine(LONG* count, char** tokens, LONG capacity) {
    static char text[MaxCommandLine];
    *count = 0;
    const char* commandLine = GetCommandLineA();
    const bool tooLong = TextLength(commandLine) >= MaxCommandLine;
    CopyText(text, tooLong ? "" : commandLine);
    if (capacity < 1) {
        return;
    }
    tokens[0] = text;
    LONG found = 1;
    char* at = text;
    while (at && *at != '\0') {
        if (*at == '"') {
            at = AfterQuote(at);
            continue;
        }
        if (*at != ' ') {
            ++at;
            continue;
        }
        *at++ = '\0';
        while (*at == ' ') {
            ++at;
        }
        if (found == capacity) {
            break; // the caller's table is full: the rest is left out
        }
        tokens[found++] = at;
        // The first character of a token is skipped, so a quote there does not open a quoted part.
        if (*at != '\0') {
            ++at;
        }
    }
    if (*tokens[found - 1] == '\0') {
        --found;
    }
    *count = found;
}
