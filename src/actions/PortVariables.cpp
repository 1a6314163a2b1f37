#include "actions/PortVariables.h"

#include "inventory/ports/CComPorts.h"
#include "keys/ConfigurationKeys.h"
#include "support/texts/BoundedText.h"

namespace {
struct PortVariable {
    const char* name;
    const char* (*valueOf)(const CComPort& port);
};
} // namespace

// The order matters: a value may contain the placeholder of a later row.
constexpr PortVariable PortVariables[] = {
    {Placeholder("PortName"), [](const CComPort& port) -> const char* { return port.szPortName; }},
    {Placeholder("ComPort"), [](const CComPort& port) -> const char* { return port.szPortName; }},
    {Placeholder("ComPortNumber"), [](const CComPort& port) -> const char* { return port.PortNumberText; }},
    {Placeholder("PortNumber"), [](const CComPort& port) -> const char* { return port.PortNumberText; }},
    {Placeholder("KernelName"), [](const CComPort& port) -> const char* { return port.szKernelNameCom; }},
    {Placeholder("DeviceID"), [](const CComPort& port) -> const char* { return port.DeviceID; }},
    {Placeholder("DevicePath"), [](const CComPort& port) -> const char* { return port.DevPath; }},
    {Placeholder("DriverKeyName"), [](const CComPort& port) -> const char* { return port.DriverKeyName; }},
    {Placeholder("Class"), [](const CComPort& port) -> const char* { return port.Class; }},
    {Placeholder("ClassGuid"), [](const CComPort& port) -> const char* { return port.ClassGuid; }},
    {Placeholder("FriendlyName"), [](const CComPort& port) -> const char* { return port.FriendlyName; }},
    {Placeholder("BusType"), [](const CComPort& port) -> const char* { return port.BusTypeName; }},
    {Placeholder("Location"), [](const CComPort& port) -> const char* { return port.Location; }},
    {Placeholder("LocationPath"), [](const CComPort& port) -> const char* { return port.LocationPath; }},
    {Placeholder("ParentLocation"), [](const CComPort& port) -> const char* { return port.ParentLocation; }},
    {Placeholder("ParentLocationPath"), [](const CComPort& port) -> const char* { return port.ParentLocationPath; }},
    {Placeholder("Address"), [](const CComPort& port) -> const char* { return port.Address; }},
    {Placeholder("ParentAddress"), [](const CComPort& port) -> const char* { return port.ParentAddress; }},
    {Placeholder("UsbPort"), [](const CComPort& port) -> const char* { return port.UsbPort; }},
};
static_assert(sizeof(PortVariables) / sizeof(PortVariables[0]) == PlaceholderCount);

constexpr size_t ValueRoom = 520; // the longest field, the device path

// Where a character of the text comes from.
constexpr BYTE Configured = 0;
constexpr BYTE OfValue = 1;
constexpr BYTE AfterEmptyValue = 2;

namespace {
// A text and the origin of each of its characters, the final zero included.
struct MarkedText {
    char* text;
    size_t length;
    size_t limit;
    BYTE origins[MaxCommandLine + 1];
};
} // namespace

static bool IsOneOf(char c, const char* signs) {
    for (; *signs != '\0'; ++signs) {
        if (*signs == c) {
            return true;
        }
    }
    return false;
}

// Without separators a value could still form "..", alone or with adjacent characters, between two that the
// administrator wrote.
static size_t DropOuterDots(char* value, size_t length) {
    size_t first = 0;
    while (first < length && value[first] == '.') {
        ++first;
    }
    while (length > first && value[length - 1] == '.') {
        --length;
    }
    CopyBytes(value, value + first, length - first);
    return length - first;
}

static size_t DropDoubledDots(char* value, size_t length) {
    size_t kept = 0;
    for (size_t i = 0; i < length; ++i) {
        if (value[i] == '.' && value[i + 1] == '.') {
            while (value[i + 1] == '.') {
                ++i;
            }
            continue;
        }
        value[kept++] = value[i];
    }
    return kept;
}

// Copies a value into `out`, replacing or removing anything harmful. Returns: the length.
static size_t CopyHarmless(const char* value, ValueRules rules, char (&out)[ValueRoom]) {
    size_t length = 0;
    for (; value && *value != '\0' && length < ValueRoom - 1; ++value) {
        char c = *value;
        if (rules.inProgramPart && IsOneOf(c, "\\/:%")) {
            continue;
        }
        const auto code = static_cast<unsigned char>(c);
        const bool isControl = code < ' ' || code == 0x7F;
        if (isControl || (rules.forScript && IsOneOf(c, "&|<>^%!"))) {
            c = ' ';
        } else if (c == '"') {
            c = '\'';
        }
        out[length++] = c;
    }
    out[length] = '\0';
    if (rules.inProgramPart) {
        length = DropDoubledDots(out, length);
        length = DropOuterDots(out, length);
        out[length] = '\0';
    }
    return length;
}

static void ReplacePart(MarkedText* marked, size_t at, size_t oldLength, const char* value, size_t valueLength) {
    const size_t tail = marked->length - at - oldLength + 1; // with the final zero
    CopyBytes(marked->text + at + valueLength, marked->text + at + oldLength, tail);
    CopyBytes(marked->origins + at + valueLength, marked->origins + at + oldLength, tail);
    CopyBytes(marked->text + at, value, valueLength);
    for (size_t i = 0; i < valueLength; ++i) {
        marked->origins[at + i] = OfValue;
    }
    if (valueLength == 0 && marked->origins[at] == Configured) {
        marked->origins[at] = AfterEmptyValue;
    }
    marked->length = marked->length - oldLength + valueLength;
}

static void ReplaceVariable(MarkedText* marked, const char* placeholder, const char* value, size_t valueLength) {
    const size_t oldLength = TextLength(placeholder);
    size_t count = 0;
    for (const char* at = StrStrIA(marked->text, placeholder); at; at = StrStrIA(at + oldLength, placeholder)) {
        ++count;
    }
    if (count == 0 || marked->length - count * oldLength + count * valueLength > marked->limit) {
        return;
    }
    // Inserted text is not searched again: a value that contains its own placeholder would loop forever.
    size_t from = 0;
    for (size_t done = 0; done < count; ++done) {
        const char* at = StrStrIA(marked->text + from, placeholder);
        if (!at) {
            return;
        }
        const auto place = static_cast<size_t>(at - marked->text);
        ReplacePart(marked, place, oldLength, value, valueLength);
        from = place + valueLength;
    }
}

// An odd number of backslashes before a double quote would make it part of the argument, which would then continue past
// it.
static bool DoubleBackslashesBeforeQuotes(MarkedText* marked) {
    for (size_t quote = 0; quote < marked->length; ++quote) {
        if (marked->text[quote] != '"') {
            continue;
        }
        bool isByValue = marked->origins[quote] == AfterEmptyValue;
        size_t start = quote;
        while (start > 0 && marked->text[start - 1] == '\\') {
            --start;
            isByValue = isByValue || marked->origins[start] != Configured;
        }
        const size_t count = quote - start;
        if (!isByValue || count == 0) {
            continue;
        }
        if (marked->limit - marked->length < count) {
            return false;
        }
        CopyBytes(marked->text + quote + count, marked->text + quote, marked->length - quote + 1);
        CopyBytes(marked->origins + quote + count, marked->origins + quote, marked->length - quote + 1);
        for (size_t i = 0; i < count; ++i) {
            marked->text[quote + i] = '\\';
            marked->origins[quote + i] = OfValue;
        }
        marked->length += count;
        quote += count;
    }
    return true;
}

bool ExpandPortVariables(const CComPort& port, char* text, size_t limit, ValueRules rules) {
    MarkedText marked = {text, TextLength(text), limit < MaxCommandLine ? limit : MaxCommandLine, {}};
    if (marked.length > marked.limit) {
        text[0] = '\0';
        return false;
    }
    for (const PortVariable& variable : PortVariables) {
        char placeholder[32];
        FormatText(placeholder, "%%%s%%", variable.name);
        char value[ValueRoom];
        const size_t valueLength = CopyHarmless(variable.valueOf(port), rules, value);
        ReplaceVariable(&marked, placeholder, value, valueLength);
    }
    if (!DoubleBackslashesBeforeQuotes(&marked)) {
        text[0] = '\0';
        return false;
    }
    return true;
}
