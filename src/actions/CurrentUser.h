// Who is logged on: asked when the program starts and whenever an action needs a user and none is known.
// Thread: any; written by whoever asks. No lock: texts are replaced in place and end inside their arrays at any moment.
// But for CurrentUser all of it serves the log. A logoff does not reset it: an action of a user who has gone fails
// when its process is to be made.
#pragma once

#include "platform/win32.h"

// Whether a user is known to be logged on.
bool IsUserKnown();

// Forgets the user; what he was becomes the previous user.
void ResetCurrentUserInfo();

// Finds out who the user is: in a service run the one whose desktop the programs go to, else that of this process.
// Needs the settings. Returns: 1 if his groups were looked up, else 0. May block on a domain's server.
int SetCurrentUserInfo();
