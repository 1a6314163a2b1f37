// Tokens of users: the one of the session that programs go to, its elevated and its restricted form, and temporary
// impersonation of a user. Failures are log lines and results, never message boxes.
// Thread: any; an impersonation belongs to the thread that began it. No lock. The caller closes each token that an
// operation returns.
#pragma once

#include <cstddef>

#include "platform/win32.h"

constexpr size_t MaxNameChars = 256; // longest name of a user, group or domain

// The token of the session's user. session: with NoSession only the shell is asked.
// Returns: a token; INVALID_HANDLE_VALUE if no user is logged on there; null if neither Windows nor a shell gives one.
HANDLE GetSessionUserToken(LONG session);

// The token of the shell. session: its shell comes first, NoSession for none; then that of the visible task bar, then
// the first process with the shell's name, whoever owns it. Returns: null without a shell.
HANDLE GetExplorersUserToken(LONG session);

// The token of the user whose desktop the programs go to, else the shell's. Needs the settings. Returns: null for none.
HANDLE GetCurrentUserToken();

// The elevated token that belongs to a filtered one. Returns: FALSE with *linked null and the last error.
BOOL GetLinkedToken(HANDLE token, HANDLE* linked);

// The same user without administrator rights: the group for denying only, privileges that amount to these rights
// deleted, medium integrity from Windows 6.0 on. token: stays open. Returns: null if Windows refuses a step.
HANDLE MakeRestrictedToken(HANDLE token);

// Impersonates the current user on this thread, or ends that. isElevated: with the elevated token where there is one.
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

// Returns: 1 if the token now has the privilege; 0 without it, or after a failure, which is logged.
int SetPrivilege(HANDLE token, const char* name, bool isEnabled);

// Enables what a service needs to start processes for users. A failure is ignored here: the later call that lacks the
// privilege reports it.
void EnableServicePrivileges();
