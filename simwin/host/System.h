// What the tool asks of the system that it runs on, apart from files: crashes, the terminal, a clock that ticks while a
// run lasts. One source for each system; plain types only, since Windows' own headers and the machine's cannot meet.
#pragma once

namespace host {

// First in a program. On Windows the command line becomes UTF-8, and what is written stays the bytes that it is.
void BeginProgram(int* count, char*** arguments);

// Crashes end the program after `report`, which gets what it was, in the system's words, and the address. It runs in a
// handler: it may neither take memory nor lock anything. exitCode: of the program.
void CatchCrashes(void (*report)(const char* what, const void* address), int exitCode);

// Straight to standard error, from a handler too.
void WriteError(const char* text);

struct Terminal {
    bool isThere = false;
    unsigned columns = 0; // 0: it does not say
};
Terminal TerminalOfOutput();
bool IsErrorTerminal();

// Calls `tick` once a second, between two instructions of the program or beside it, until the end.
void StartTicks(void (*tick)());
void StopTicks();

} // namespace host
