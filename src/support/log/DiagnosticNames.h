// Names of Windows constants for log lines: a reader of the log sees CM_PROB_DISABLED, not 22. Nothing here affects
// behaviour. Every text stays valid at least until the next call of the same function. The fallback buffers are not
// guarded: two threads that log at once may garble each other's text in the log, but nothing else. Any thread, no lock;
// ResultText alone has one of its own (SupportLocks.h).
#pragma once

#include "platform/win32.h"

const char* DeviceTypeName(DWORD deviceType);  // dbch_devicetype
const char* ConfigRetName(DWORD configRet);    // CONFIGRET
const char* DevNodeStatusName(DWORD status);   // devnode status flags
const char* ProblemName(DWORD problem);        // devnode problem number
const char* SessionChangeName(DWORD event);    // WM_WTSSESSION_CHANGE event
const char* PowerEventName(DWORD event);       // WM_POWERBROADCAST event
const char* VetoTypeName(DWORD vetoType);      // PNP_VETO_TYPE
const char* ServiceControlName(DWORD control); // service control code
const char* WaitResultName(DWORD result);      // result of a wait function
const char* SessionStateName(LONG state);      // WTS_CONNECTSTATE_CLASS
const char* DeviceGuidName(const GUID& guid);  // interface or class GUID

// ErrorName: "ACCESS_DENIED", or the number for a code without a name, in a ring of 10 such texts.
// ErrorText: the same with the system's own text after " -> ", in a ring of 10.
const char* ErrorName(DWORD code);
const char* ErrorText(DWORD code);

// The same of GetLastError(), which is preserved. LastErrorName is used for " err=%s".
const char* LastErrorName();
const char* LastErrorText();

// "res=%i" for a value that is not 0, else "err=%s" of the last error, in a ring of 4. The last error is kept.
const char* ResultText(LONG value);
