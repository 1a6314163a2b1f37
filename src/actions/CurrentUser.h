// Who is logged on: determined at program start and whenever an action needs a user and none is known.
// Thread: any; written by any caller. No lock: texts are replaced in place and always end inside their arrays. Except
// for CurrentUser all of it is for the log. A logoff does not reset it: an action for a user who has logged off fails
// when its process is created.
#pragma once

#include "platform/win32.h"

// Whether a user is known to be logged on.
bool IsUserKnown();

// Forgets the user, who becomes the previous user.
void ResetCurrentUserInfo();

// Finds the user: in a service run the one whose desktop the programs go to, else that of this process. Needs the
// settings. Returns: 1 if the user's groups were looked up, else 0. May block on a domain server.
int SetCurrentUserInfo();
