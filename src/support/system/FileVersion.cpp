#include "support/system/FileVersion.h"

#include <cstddef>

#include "support/system/Handles.h"
#include "support/system/ProcessState.h"
#include "support/system/ScopeGuard.h"
#include "support/system/SystemTools.h"
#include "support/texts/BoundedText.h"

constexpr DWORD MaxVersionData = 4096;
constexpr size_t SafetyBytes = 64;     // zeros after data cut by the limit
constexpr DWORD ShownPrivateFrom = 10; // from this private part on, the program's own version shows it

using GetFileVersionInfoOperation = BOOL(WINAPI*)(LPCSTR, DWORD, DWORD, LPVOID);
using VerQueryValueOperation = BOOL(WINAPI*)(LPCVOID, LPCSTR, LPVOID*, PUINT);

namespace {
struct Translation {
    WORD Language;
    WORD CodePage;
};
} // namespace

// The part of the data that a query returns, if at least size bytes of it lie inside.
static const void* QueryPart(VerQueryValueOperation query, const char* data, const char* name, UINT size,
                             UINT* length) {
    void* part = nullptr;
    *length = 0;
    if (!query(data, name, &part, length) || !part || *length < size) {
        return nullptr;
    }
    return part;
}

static void ReadCompanyName(VerQueryValueOperation query, const char* data, FileVersion* out) {
    UINT length = 0;
    const void* first = QueryPart(query, data, "\\VarFileInfo\\Translation", sizeof(Translation), &length);
    if (!first) {
        return;
    }
    Translation translation;
    CopyBytes(&translation, first, sizeof(translation));
    char name[64];
    FormatText(name, "\\StringFileInfo\\%04x%04x\\CompanyName", translation.Language, translation.CodePage);
    const void* company = QueryPart(query, data, name, 1, &length);
    if (!company) {
        return;
    }
    const char* text = static_cast<const char*>(company);
    size_t chars = 0;
    while (chars < length && text[chars] != '\0') {
        ++chars;
    }
    if (chars < sizeof(out->CompanyName)) {
        CopyTextPart(out->CompanyName, sizeof(out->CompanyName), text, chars);
    }
}

// Reads the version data of the file through the library. Returns: 1; 0 with the last error.
static int ReadVersion(HMODULE library, const char* path, FileVersion* out) {
    const auto getInfo = FindOperation<GetFileVersionInfoOperation>(library, "GetFileVersionInfoA");
    const auto query = FindOperation<VerQueryValueOperation>(library, "VerQueryValueA");
    if (!getInfo || !query) {
        return 0;
    }
    OwnedArray<char> data(MaxVersionData + SafetyBytes);
    if (!getInfo(path, 0, MaxVersionData, data.Get())) {
        return 0;
    }
    UINT length = 0;
    const void* root = QueryPart(query, data.Get(), "\\", sizeof(VS_FIXEDFILEINFO), &length);
    if (!root) {
        return 0;
    }
    VS_FIXEDFILEINFO info;
    CopyBytes(&info, root, sizeof(info));
    out->Major = static_cast<BYTE>(info.dwFileVersionMS >> 16);
    out->Minor = static_cast<BYTE>(info.dwFileVersionMS);
    out->Build = static_cast<BYTE>(info.dwFileVersionLS >> 16);
    out->Private = static_cast<BYTE>(info.dwFileVersionLS);
    out->Packed = static_cast<DWORD>(out->Major) << 24 | static_cast<DWORD>(out->Minor) << 16 |
                  static_cast<DWORD>(out->Build) << 8 | out->Private;
    FormatText(out->Text, "%u.%u.%u", out->Major, out->Minor, out->Build);
    if (out->Private >= ShownPrivateFrom && lstrcmpiA(path, szExePath) == 0) {
        char part[8];
        FormatText(part, ".%u", out->Private);
        AppendText(out->Text, part);
    }
    ReadCompanyName(query, data.Get(), out);
    return 1;
}

int GetFileVersionData(const char* path, FileVersion* out) {
    *out = {};
    const OwnedLibrary library(LoadSystemLibrary("version.dll"));
    const int result = library ? ReadVersion(library.Get(), path, out) : 0;
    LastErrorKeeper keep;
    if (!result) {
        FormatText(out->Text, "ERROR%u", keep.Error());
    }
    return result;
}
