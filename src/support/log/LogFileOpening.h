// Opens the log file so that it harms nobody: not through a link that a user has put in its place, and not without
// end for the threads that log, when somebody never answers the question whether the file may be opened (an oplock).
// Used by the log alone, under its lock; it logs nothing.
#pragma once

#include "platform/win32.h"

// What the check of an open file says.
enum class LogFileIdentity {
    Own,     // the file of this name itself
    Link,    // another one: a link stands in its place or in that of a folder, or it has a second name
    Unknown, // the system did not say: nothing must be written this time
};

// The answer to a request. File is INVALID_HANDLE_VALUE unless Identity is Own.
struct LogFileAnswer {
    HANDLE File;
    DWORD Error;
    LogFileIdentity Identity;
};

// Finds the operation that gives final paths; without it (before Windows 6.0) attributes are looked at. Once, before
// any open. Thread: the first one.
void LogFileOpening_Init();

// Opens for appending: with the security given, and without it if that fails otherwise than by a holder. Makes the file
// if it is not there. name: full path. May block for ever.
LogFileAnswer OpenLogFileNow(const char* name, SECURITY_ATTRIBUTES* security);

// A request of one thread that another one answers, so that the first waits no longer than it wants. One request at a
// time; the asking side is under the log lock, the answering side is one thread without a lock.
class LogFileRequest {
public:
    // Makes the event for answers. Returns: false without one, the requests cannot be used then.
    bool Init();
    // Gives back the event, and a handle that nobody has taken. The answering thread must have ended.
    void Exit();

    // Asks for a file, after `wake` was set waits up to `waitMs` for the answer. security stays the caller's and must
    // outlive the answering thread. Returns: the answer; ERROR_TIMEOUT if none came, now or since the request before.
    LogFileAnswer Ask(const char* name, SECURITY_ATTRIBUTES* security, HANDLE wake, DWORD waitMs);
    // Closes the file of an answer that came too late. Under the log lock.
    void DropLateAnswer();
    // The answering side: opens what is asked for, if anything is.
    void AnswerIfAsked();

private:
    LogFileAnswer Take();

    HANDLE m_answered = nullptr; // manual reset
    LONG m_state = 0;            // who may touch the fields below: see the source
    char m_name[260] = {};
    SECURITY_ATTRIBUTES* m_security = nullptr;
    LogFileAnswer m_answer = {};
};
