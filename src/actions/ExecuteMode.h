// The mode "-exec": a copy of this executable in the user's session that takes the foreground with a small window,
// starts one program in front of all others, and ends. The service that started the copy gets no result.
// Thread: the first one of the process, with the log ready and no other object of the program.
#pragma once

#include "actions/ProcessCreation.h"
#include "platform/win32.h"

enum class ExecuteResult : BYTE {
    NotStarted = 0, // the start failed, or the shell started it and no process is known
    Running = 1,    // a process was created; it was not waited for, or outlasted the wait
    Ended = 2,      // it ended within the wait; also if the program does not exist
};

// A parsed command line of this mode.
struct ExecuteRequest {
    char program[1024];
    const char* params; // into the raw command line, up to its end
    bool wait;
};

// tokens, rawCommandLine: as below. directory: changed if a token names one.
void ReadExecuteRequest(LONG tokenCount, char* const* tokens, const char* rawCommandLine, ExecuteRequest* request,
                        char (&directory)[MAX_PATH]);

// The program's command line; parameters that begin with the program are one already.
void BuildRequestLine(const ExecuteRequest& request, char (&line)[MaxProcessLine]);

// Starts the program of a command line. tokens: of rawCommandLine, as TokenizeCommandLine gives them. directory: for
// the program unless a token names one. showCommand: as for ShowWindow. With -wait=1 it blocks for up to 11 seconds.
ExecuteResult AutoRunByCommandLine(LONG tokenCount, char* const* tokens, const char* rawCommandLine,
                                   char (&directory)[MAX_PATH], WORD showCommand);

// The whole mode. Blocks for up to about 20 seconds.
void RunExecuteMode(WORD showCommand);
