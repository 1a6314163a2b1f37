// Opens the log file safely: not through a link that a user has put in its place, and without blocking the threads that
// log forever when an oplock is never answered. Used by the log alone, under its lock; it logs nothing.
#pragma once

#include "platform/win32.h"

// Result of the check of an open file.
enum class LogFileIdentity {
    Own,     // the file with this name itself
    Link,    // another one: it or one of its folders is a link, or it has a second name
    Unknown, // the system gave no answer: nothing must be written this time
};

// The answer to a request. File is INVALID_HANDLE_VALUE unless Identity is Own.
struct LogFileAnswer {
    HANDLE File;
    DWORD Error;
    LogFileIdentity Identity;
};

// Finds the operation that gives final paths; without it (before Windows 6.0) attributes are checked. Once, before any
// open. Thread: the first one.
void LogFileOpening_Init();

// Whether this file or folder, or a folder above it, is a link. Reads only attributes, which no holder can delay.
bool LeadsThroughALink(const char* name);

// Opens for appending: with the given security, or without it if that fails for another reason than a file in use.
// Creates the file if it does not exist. name: full path. May block forever.
LogFileAnswer OpenLogFileNow(const char* name, SECURITY_ATTRIBUTES* security);

// A request of one thread answered by another, so that the first need not wait for long. One request at a time; the
// asking side is under the log lock, the answering side is one thread without a lock.
class LogFileRequest {
public:
    // Creates the event for answers. Returns: false without one; requests cannot be used then.
    bool Init();
    // Releases the event, and a handle that was never fetched. The answering thread must have ended.
    void Exit();

    // Requests a file: sets `wake`, then waits up to `waitMs` for the answer. security stays the caller's and must
    // outlive the answering thread. Returns: the answer; ERROR_TIMEOUT if there was none, now or for the previous
    // request.
    LogFileAnswer Ask(const char* name, SECURITY_ATTRIBUTES* security, HANDLE wake, DWORD waitMs);
    // Closes the file of an answer that came too late. Under the log lock.
    void DropLateAnswer();
    // The answering side: opens the requested file, if any.
    void AnswerIfAsked();

private:
    LogFileAnswer Take();

    HANDLE m_answered = nullptr; // manual reset
    LONG m_state = 0;            // who may touch the fields below: see the source
    char m_name[260] = {};
    SECURITY_ATTRIBUTES* m_security = nullptr;
    LogFileAnswer m_answer = {};
};
