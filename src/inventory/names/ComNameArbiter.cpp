#include "inventory/names/ComNameArbiter.h"

#include "inventory/names/ComPortNumber.h"
#include "inventory/ports/CComPorts.h"
#include "support/log/LogFile.h"
#include "support/registry/RegistryTools.h"
#include "support/system/ScopeGuard.h"
#include "support/texts/Bitmap.h"
#include "support/texts/StringTools.h"

constexpr char ArbiterKey[] = "SYSTEM\\CurrentControlSet\\Control\\COM Name Arbiter";
constexpr char ComDbValue[] = "ComDB";
constexpr char NotFound[] = "ComDB reg value not found";

// Far above the 512 bytes that Windows ever uses; a larger value is damaged and would waste memory.
constexpr DWORD MaxComDbSize = 0x10000;

// The list of all DOS names, as in CDosDeviceNames, but with a size of its own that grows in smaller steps.
constexpr DWORD FirstNamesSize = 16384;
constexpr DWORD NamesSizeStep = 1024;
constexpr DWORD NamesSizeLimit = 0x100000;

// The size reached, for the next call. A single word without a lock: each call allocates by its own copy.
static constinit DWORD g_namesSize = FirstNamesSize;

namespace {
// One reading of the database: the bytes, and how many numbers they hold.
struct ComDb {
    DWORD SizeBytes = 0;
    OwnedArray<BYTE> Bytes;

    ComDb() : Bytes(ReadComDb(&SizeBytes)) {}
    DWORD Bits() const { return SizeBytes * 8; }
    // The highest number that is cleared, tested and given out; never the last bit.
    DWORD BitsBelowLast() const { return SizeBytes != 0 ? Bits() - 1 : 0; }
};
} // namespace

static int WriteComDb(const BYTE* bytes, DWORD sizeBytes) {
    const int res = RegWriteBinary(HKEY_LOCAL_MACHINE, ArbiterKey, ComDbValue, bytes, sizeBytes);
    WriteLog(3, " set ComDB=%s  res=%u", BytesToHex(bytes, sizeBytes), static_cast<DWORD>(res));
    return res;
}

// Shared by the two changes of one bit.
template<typename ChangeBit>
static int ChangeComDb(ChangeBit changeBit) {
    ComDb db;
    if (!db.Bytes) {
        WriteLog(1, " %s", NotFound);
        return 0;
    }
    WriteLog(3, " ComDB=%s", BytesToHex(db.Bytes.Get(), db.SizeBytes));
    if (!changeBit(db)) {
        WriteLog(3, " no change");
        return 0;
    }
    // The bit counts as changed even if the write fails: the failure is logged, and the next check sets it again.
    (void)WriteComDb(db.Bytes.Get(), db.SizeBytes);
    return 1;
}

// Reads all DOS names into a new buffer whose last byte is zero. Returns: the buffer and its size, or null.
static char* ReadAllNames(DWORD* sizeBytes) {
    DWORD size = g_namesSize;
    OwnedArray<char> buffer(size);
    while (QueryDosDeviceA(nullptr, buffer.Get(), size - 1) == 0) {
        if (GetLastError() != ERROR_INSUFFICIENT_BUFFER || size >= NamesSizeLimit) {
            return nullptr;
        }
        size += NamesSizeStep;
        buffer.Reset(new char[size]);
    }
    g_namesSize = size;
    *sizeBytes = size;
    return buffer.Release();
}

static bool IsComName(const char* name) {
    return BeginsWithCom(name) && name[3] >= '0' && name[3] <= '9';
}

static void FillBytes(BYTE* bytes, DWORD sizeBytes, BYTE value) {
    for (DWORD i = 0; i < sizeBytes; ++i) {
        bytes[i] = value;
    }
}

// Sets the bits of the live COM names in the bitmap, all others are zero. Returns: false if the names cannot be read.
static bool QueryLiveNames(BYTE* bitmap, DWORD sizeBytes, DWORD* count) {
    WriteLog(3, "query dos device names...");
    FillBytes(bitmap, sizeBytes, 0);
    DWORD namesSize = 0;
    const OwnedArray<char> names(ReadAllNames(&namesSize));
    if (!names) {
        return false;
    }
    const char* const end = names.Get() + namesSize;
    for (const char* name = names.Get(); name < end && *name != 0; name += lstrlenA(name) + 1) {
        const LONG number = IsComName(name) ? GetNumberOfPortName(name) : 0;
        if (number >= 1 && static_cast<DWORD>(number) <= sizeBytes * 8) {
            *count += BitmapSet(static_cast<DWORD>(number), bitmap, sizeBytes * 8) ? 1 : 0;
            WriteLog(3, " found %s", name);
        }
    }
    WriteLog(3, " %u ports found", *count);
    return true;
}

BYTE* ReadComDb(DWORD* sizeBytes) {
    DWORD size = 0;
    if (!GetRegValueSize(HKEY_LOCAL_MACHINE, ArbiterKey, ComDbValue, &size) || size > MaxComDbSize) {
        WriteLog(1, "%s", NotFound);
        return nullptr;
    }
    OwnedArray<BYTE> bytes(size);
    if (!RegReadBinary(HKEY_LOCAL_MACHINE, ArbiterKey, ComDbValue, bytes.Get(), &size)) {
        return nullptr;
    }
    *sizeBytes = size;
    return bytes.Release();
}

int ComNameArbiterAdd(LONG number) {
    WriteLog(2, "ComNameArbiterAdd(%i)", number);
    return ChangeComDb(
        [number](ComDb& db) { return BitmapSet(static_cast<DWORD>(number), db.Bytes.Get(), db.Bits()); });
}

int ComNameArbiterAddByName(const char* portName) {
    return ComNameArbiterAdd(GetNumberOfPortName(portName));
}

int ComNameArbiterRemove(const char* portName) {
    WriteLog(2, "ComNameArbiterRemove(%s)", portName);
    const LONG number = GetNumberOfPortName(portName);
    return ChangeComDb(
        [number](ComDb& db) { return BitmapClear(static_cast<DWORD>(number), db.Bytes.Get(), db.BitsBelowLast()); });
}

LONG ComNameArbiterFindFree(LONG firstNumber) {
    const ComDb db;
    if (!db.Bytes) {
        WriteLog(1, " %s", NotFound);
        return 0;
    }
    const LONG bits = static_cast<LONG>(db.Bits());
    for (LONG number = firstNumber; number < bits; ++number) {
        if (!BitmapTest(static_cast<DWORD>(number), db.Bytes.Get(), db.BitsBelowLast())) {
            return number;
        }
    }
    return 0;
}

int CleanRegComPortArbiter(const char* listText) {
    WriteLog(1, "CleanRegComPortArbiter(%s)", listText);
    const ComDb db;
    if (!db.Bytes) {
        WriteLog(1, " %s", NotFound);
        return 0;
    }
    const DWORD size = db.SizeBytes;
    const OwnedArray<BYTE> wanted(size);
    const OwnedArray<BYTE> current(size);
    const OwnedArray<BYTE> cleaned(size);
    if (!ParseNumberList(listText, wanted.Get(), size)) {
        WriteLog(1, " nothing to clean");
        return 0;
    }
    WriteLog(3, " iniclean=%s", BytesToHex(wanted.Get(), size));
    // A number that is a DOS name at this moment is in use, whatever the list says. If the names cannot be read, that
    // may be any of them.
    DWORD liveCount = 0;
    if (!QueryLiveNames(current.Get(), size, &liveCount)) {
        FillBytes(current.Get(), size, 0xFF);
    }
    WriteLog(3, " ComDB  =%s", BytesToHex(db.Bytes.Get(), size));
    WriteLog(3, " current=%s", BytesToHex(current.Get(), size));
    bool changed = false;
    for (DWORD i = 0; i < size; ++i) {
        wanted[i] = static_cast<BYTE>(wanted[i] & ~current[i]);
        cleaned[i] = static_cast<BYTE>(db.Bytes[i] & ~wanted[i]);
        changed = changed || cleaned[i] != db.Bytes[i];
    }
    WriteLog(4, " toclean=%s", BytesToHex(wanted.Get(), size));
    if (!changed) {
        WriteLog(2, " no change");
        return 1;
    }
    return WriteComDb(cleaned.Get(), size);
}

DWORD GetDefinedComPortsBitmap(BYTE* bitmap, DWORD sizeBytes) {
    DWORD count = 0;
    return QueryLiveNames(bitmap, sizeBytes, &count) ? count : 0;
}
