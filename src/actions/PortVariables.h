// Placeholders such as %PortName% in the command line of an action. Their values come from devices, so they are made
// harmless when inserted: a value never ends the quotes that the administrator put around its placeholder.
// Thread: a callback timer's. No lock: the record is read while the engine may change it, as elsewhere.
#pragma once

#include <cstddef>

#include "platform/win32.h"

struct CComPort;

// The longest command line of an action, without its final zero. Arrays are one element longer.
constexpr size_t MaxCommandLine = 2048;

// What a value loses in addition to quotes and control characters.
struct ValueRules {
    bool forScript;     // signs that cmd.exe evaluates even inside quotes become blanks
    bool inProgramPart; // no separators of paths, no variables: the value cannot choose another folder
};

// Replaces all placeholders in place, one kind after another, ignoring case; unknown ones stay. A later placeholder
// inside a value is replaced as well.
// limit: the longest result, up to MaxCommandLine; the array needs one character more. A kind of placeholder whose
// values would exceed it stays in the text. In a value double quotes become single ones and control characters blanks.
// Backslashes before a double quote are doubled where a value, also an empty one, is the reason that they are there.
// Returns: false with an empty text if those backslashes would exceed the limit.
bool ExpandPortVariables(const CComPort& port, char* text, size_t limit, ValueRules rules);
