// Tokens of users: the one of the session that programs go to, its elevated and its restricted form, and acting in a
// user's name for a moment. Failures are log lines and results, never message boxes.
// Thread: any; an impersonation belongs to the thread that began it. No lock. A token that an operation gives is the
// caller's to close.
#pragma once

#include <cstddef>

#include "platform/win32.h"

constexpr size_t MaxNameChars = 256; // what Windows may give as a name of a user, group or domain

// The token of the session's user. session: NoSession asks nobody but the shell.
// Returns: a token; INVALID_HANDLE_VALUE if nobody is logged on there; null if neither Windows nor a shell gives one.
HANDLE GetSessionUserToken(LONG session);

// The token of the shell. session: its shell comes first, NoSession for none; then that of the task bar in sight, then
// the first process of the shell's name, whoever's it is. Returns: null without a shell.
HANDLE GetExplorersUserToken(LONG session);

// The token of the user whose desktop the programs go to, else the shell's. Needs the settings. Returns: null for none.
HANDLE GetCurrentUserToken();

// The elevated token that belongs to a filtered one. Returns: FALSE with *linked null and the last error.
BOOL GetLinkedToken(HANDLE token, HANDLE* linked);

// The same user without the rights of an administrator: the group for denying only, the privileges that amount to these
// rights deleted, from Windows 6.0 on medium integrity. token: stays open. Returns: null if Windows refuses a step.
HANDLE MakeRestrictedToken(HANDLE token);

// Acts as the current user on this thread, or ends that. isElevated: with the elevated token where there is one.
// Returns: 1, or 0 if the thread is not impersonating now. ImpersonationScope ends it on every path.
int ImpersonateCurrentUser(bool isOn, bool isElevated);

// Ends what ImpersonateCurrentUser began, at the end of the scope or before.
class ImpersonationScope {
public:
    explicit ImpersonationScope(bool isElevated) : m_isOn(ImpersonateCurrentUser(/*isOn=*/true, isElevated) != 0) {}
    ~ImpersonationScope() { End(); }
    ImpersonationScope(const ImpersonationScope&) = delete;
    ImpersonationScope& operator=(const ImpersonationScope&) = delete;
    bool IsOn() const { return m_isOn; }
    void End() {
        if (m_isOn) {
            m_isOn = false;
            ImpersonateCurrentUser(/*isOn=*/false, /*isElevated=*/false);
        }
    }

private:
    bool m_isOn;
};

// 1 if the process runs with the full one of a user's two tokens.
int IsProcessElevated(DWORD processId);

// Returns: 1 if the token has the privilege so now; 0 without the privilege, or after a failure, which is logged.
int SetPrivilege(HANDLE token, const char* name, bool isEnabled);

// Enables what a service needs to start processes for users. Without success nothing happens here: the later call that
// lacks the privilege reports it.
void EnableServicePrivileges();
