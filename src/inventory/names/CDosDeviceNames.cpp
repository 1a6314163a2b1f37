#include "inventory/names/CDosDeviceNames.h"

#include "support/log/DiagnosticNames.h"
#include "support/log/LogFile.h"
#include "support/system/ScopeGuard.h"
#include "support/texts/BoundedText.h"
#include "support/texts/StringTools.h"

// The list of all names: its initial size, how it grows, and the size at which reading it is given up.
constexpr DWORD FirstNamesSize = 16384;
constexpr DWORD NamesSizeStep = 4096;
constexpr DWORD NamesSizeLimit = 0x100000;

constexpr size_t FirstTargetsSize = 8192; // more than one target, DosTargetSize

constexpr DWORD DeleteFlags = DDD_REMOVE_DEFINITION | DDD_NO_BROADCAST_SYSTEM;
constexpr DWORD CreateFlags = DDD_RAW_TARGET_PATH | DDD_NO_BROADCAST_SYSTEM;
static_assert(DeleteFlags == 10 && CreateFlags == 9);

// The size that the last snapshot needed, so that the next one need not grow again. A single word without a lock: each
// snapshot allocates by its own copy, and a lost update costs one more try.
static constinit DWORD g_namesSize = FirstNamesSize;

// Reads the names into a new buffer of *sizeBytes bytes, the last of which is zero. Returns: the buffer, or null.
static char* ReadAllNames(DWORD* sizeBytes) {
    DWORD size = g_namesSize;
    OwnedArray<char> buffer;
    for (;;) {
        buffer.Reset(new char[size]);
        if (QueryDosDeviceA(nullptr, buffer.Get(), size - 1) != 0) {
            break;
        }
        if (GetLastError() != ERROR_INSUFFICIENT_BUFFER || size >= NamesSizeLimit) {
            g_namesSize = size;
            return nullptr;
        }
        size += NamesSizeStep;
    }
    g_namesSize = size;
    *sizeBytes = size;
    return buffer.Release();
}

namespace {
// Texts one after another in one block. It grows by doubling, so that many texts take few blocks.
class TextList {
public:
    void Add(const char* text) {
        const size_t length = TextLength(text) + 1;
        if (m_usedBytes + length > m_roomBytes) {
            m_roomBytes = 2 * m_roomBytes + FirstTargetsSize;
            OwnedArray<char> larger(m_roomBytes);
            CopyBytes(larger.Get(), m_texts.Get(), m_usedBytes);
            m_texts.Reset(larger.Release());
        }
        CopyBytes(m_texts.Get() + m_usedBytes, text, length);
        m_usedBytes += length;
    }
    char* Release() { return m_texts.Release(); }

private:
    OwnedArray<char> m_texts;
    size_t m_usedBytes = 0;
    size_t m_roomBytes = 0;
};
} // namespace

// Is the name COM and a number? A port's name comes from the registry, where its driver may have written "C:" or
// "PIPE": such names must be neither deleted nor created here.
static bool IsComName(const char* name) {
    constexpr char SmallLetters[] = "com";
    constexpr BYTE CaseBit = 0x20;
    for (const char* letter = SmallLetters; *letter != 0; ++letter, ++name) {
        if ((*name | CaseBit) != *letter) {
            return false;
        }
    }
    const char* digit = name;
    while (*digit >= '0' && *digit <= '9') {
        ++digit;
    }
    return digit != name && *digit == 0;
}

// Refuses any other name, with the last error and a line.
static bool MayBeChanged(const char* name) {
    if (IsComName(name)) {
        return true;
    }
    WriteLog(1, " DOS name %s is no COM name -> left alone", name);
    SetLastError(ERROR_INVALID_NAME);
    return false;
}

CDosDeviceNames::CDosDeviceNames(const char* filter) {
    DWORD size = 0;
    Buffer = ReadAllNames(&size);
    if (Buffer == nullptr) {
        WriteLog(3, " qdd(all) err=%s", LastErrorName());
        FATAL_SOFT("CDosDeviceNames", "CDosDeviceNames::CDosDeviceNames");
        return;
    }
    const char* const end = Buffer + size;
    LONG nameCount = 0;
    for (const char* name = Buffer; name < end && *name != 0; name += lstrlenA(name) + 1) {
        WriteLog(3, "ddn%i=%s", nameCount, name);
        ++nameCount;
    }
    Entries = new DosDeviceEntry[static_cast<size_t>(nameCount)];
    TextList targets;
    char* name = Buffer;
    for (LONG i = 0; i < nameCount; ++i, name += lstrlenA(name) + 1) {
        char target[DosTargetSize];
        if (filter != nullptr && StrStrIA(name, filter) == nullptr) {
            continue;
        }
        if (QueryDosName(name, target)) {
            targets.Add(target);
            Entries[Count].Name = name;
            ++Count;
        }
    }
    Targets = targets.Release();
    char* target = Targets;
    for (LONG i = 0; i < Count; ++i, target += TextLength(target) + 1) {
        Entries[i].Target = target;
    }
}

CDosDeviceNames::~CDosDeviceNames() {
    delete[] Entries;
    delete[] Targets;
    delete[] Buffer;
}

int QueryDosName(const char* name, char (&target)[DosTargetSize]) {
    for (char& character : target) {
        character = 0;
    }
    if (*name == 0) {
        // Some versions take an empty name as a request for all names.
        SetLastError(ERROR_FILE_NOT_FOUND);
        return 0;
    }
    if (QueryDosDeviceA(name, target, DosTargetSize - 1) == 0) {
        target[0] = 0;
        return 0;
    }
    return 1;
}

int DeleteDosName(const char* name) {
    if (*name == 0) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return 0;
    }
    return MayBeChanged(name) && DefineDosDeviceA(DeleteFlags, name, nullptr) ? 1 : 0;
}

int CreateDosName(const char* name, const char* kernelName) {
    return MayBeChanged(name) && DefineDosDeviceA(CreateFlags, name, kernelName) ? 1 : 0;
}
