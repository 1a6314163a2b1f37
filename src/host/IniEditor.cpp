#include "host/IniEditor.h"

#include "host/CService.h"
#include "support/registry/RegistryTools.h"
#include "support/system/FileTools.h"
#include "support/system/Handles.h"
#include "support/system/MessageTools.h"
#include "support/system/ProcessState.h"
#include "support/texts/BoundedText.h"
#include "support/texts/PathTools.h"
#include "support/texts/StringTools.h"

// COINIT_APARTMENTTHREADED and COINIT_DISABLE_OLE1DDE, as the shell wants it for what it starts.
constexpr DWORD ShellThreadModel = 6;
// FindExecutableA and ShellExecuteA give a number above this one for success.
constexpr INT_PTR ShellFailed = 32;
// The primary language is in the low ten bits.
constexpr LANGID PrimaryLanguageMask = 0x3FF;
constexpr LANGID PrimaryGerman = 7;

// Whether the service is registered from this folder, or not at all: a copy elsewhere would read another file.
static bool IsServiceOfThisFolder() {
    char imagePath[MAX_PATH];
    if (!RegReadString(HKEY_LOCAL_MACHINE, "SYSTEM\\CurrentControlSet\\Services\\Quillmarch", "ImagePath", imagePath,
                       sizeof(imagePath)) ||
        imagePath[0] == 0) {
        return true;
    }
    PathUnquoteSpacesA(imagePath);
    char folder[MAX_PATH];
    GetDirectoryOfPath(imagePath, folder);
    if (lstrcmpiA(folder, szExeDir) == 0) {
        return true;
    }
    char text[MAX_PATH + 192];
    FormatText(text,
               "Error: Quillmarch Service is loading from different folder:\n%s\nCall _service_deregister and then "
               "_service_register to fix it.",
               folder);
    MessageBoxA(GetDesktopWindow(), text, "Quillmarch Edit INI", MB_ICONSTOP);
    return false;
}

// The sample in the user's language. *sizeBytes: its size. Returns: its first byte, null when there is none.
static const void* FindSample(DWORD* sizeBytes) {
    const bool isGerman = (GetUserDefaultLangID() & PrimaryLanguageMask) == PrimaryGerman;
    const WORD sample = isGerman ? SampleIniGerman : SampleIniEnglish;
    const HRSRC resource = FindResourceA(nullptr, MAKEINTRESOURCEA(sample), MAKEINTRESOURCEA(SampleIniType));
    if (resource == nullptr) {
        return nullptr;
    }
    *sizeBytes = SizeofResource(nullptr, resource);
    const HGLOBAL loaded = LoadResource(nullptr, resource);
    return *sizeBytes > 0 && loaded != nullptr ? LockResource(loaded) : nullptr;
}

// Creates the file from the sample. Returns: false when the account lacks the right. Then a copy with more rights was
// started, unless this is an administrator's: the next one would be refused too, endlessly.
static bool CreateIniFile() {
    const OwnedFile file(
        CreateFileA(szIniFile, GENERIC_WRITE, /*share=*/0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        if (GetLastError() != ERROR_ACCESS_DENIED) {
            return true;
        }
        if (IsUserAnAdmin()) {
            char text[2 * MAX_PATH];
            FormatText(text, "Error %i creating the Quillmarch.INI\nINI file=%s", ERROR_ACCESS_DENIED, szIniFile);
            ShowMessage(text, MB_ICONSTOP);
        } else {
            ShellExecuteA(GetForegroundWindow(), "runas", szExePath, "-ini", szExeDir, SW_SHOWNORMAL);
        }
        return false;
    }
    DWORD sizeBytes = 0;
    const void* sample = FindSample(&sizeBytes);
    if (sample != nullptr) {
        DWORD written = 0;
        WriteFile(file.Get(), sample, sizeBytes, &written, nullptr);
    }
    return true;
}

static void OpenEditor() {
    char quotedIniFile[MAX_PATH + 2];
    CopyText(quotedIniFile, szIniFile);
    QuoteText(quotedIniFile);
    char editor[MAX_PATH] = {};
    const auto found = reinterpret_cast<INT_PTR>(FindExecutableA(quotedIniFile, szWindowsDir, editor));
    if (found <= ShellFailed || editor[0] == 0) {
        FormatText(editor, "%s\\notepad.exe", szSystemDir);
    }
    const auto result = reinterpret_cast<INT_PTR>(ShellExecuteA(
        GetForegroundWindow(), IsUserAnAdmin() ? "open" : "runas", editor, quotedIniFile, szExeDir, SW_SHOWNORMAL));
    if (result <= ShellFailed) {
        char text[3 * MAX_PATH];
        FormatText(text, "Error %i opening the Quillmarch.INI\nINI file=%s\nText Editor=%s", static_cast<int>(result),
                   quotedIniFile, editor);
        ShowMessage(text, MB_ICONSTOP);
    }
}

void EditIni() {
    (void)CoInitializeEx(nullptr, ShellThreadModel); // the shell works without it, only some handlers need it
    if (!IsServiceOfThisFolder()) {
        return;
    }
    if (!FileExists(szIniFile)) {
        if (!CreateIniFile() || !FileExists(szIniFile)) {
            return;
        }
    }
    OpenEditor();
}
