#include "host/HelpFile.h"

#include "support/system/FileTools.h"
#include "support/system/ProcessState.h"
#include "support/texts/BoundedText.h"

// The five variants of German that Windows knows.
constexpr LANGID GermanLanguages[] = {0x0407, 0x0807, 0x0C07, 0x1007, 0x1407};
constexpr char ZoneStream[] = "Zone.Identifier";
// COINIT_APARTMENTTHREADED and COINIT_DISABLE_OLE1DDE, as the shell wants it for what it starts.
constexpr DWORD ShellThreadModel = 6;
// ShellExecuteA gives a number above this one for success.
constexpr INT_PTR ShellExecuteFailed = 32;

static bool IsGermanUser() {
    const LANGID language = GetUserDefaultLangID();
    for (const LANGID german : GermanLanguages) {
        if (language == german) {
            return true;
        }
    }
    return false;
}

void ShowHelpFile() {
    char helpFile[MAX_PATH];
    FormatText(helpFile, "%s\\Quillmarch_%s.chm", szExeDir, IsGermanUser() ? "ger" : "eng");
    char zoneStream[MAX_PATH + sizeof(ZoneStream)];
    FormatText(zoneStream, "%s:%s", helpFile, ZoneStream);
    // An administrator's copy that the folder refuses too would start the next one endlessly, so it shows the file
    // unchanged.
    if (CanOpen(zoneStream) && !RemoveZoneIdentifiers(szExeDir) && !IsUserAnAdmin()) {
        // The folder refuses this account. The elevated copy has access and shows the help file itself.
        ShellExecuteA(nullptr, "runas", szExePath, "", nullptr, SW_SHOWNORMAL);
        return;
    }
    (void)CoInitializeEx(nullptr, ShellThreadModel); // the shell works without it, only some handlers need it
    const auto result =
        reinterpret_cast<INT_PTR>(ShellExecuteA(nullptr, "open", helpFile, nullptr, nullptr, SW_SHOWNORMAL));
    if (result < ShellExecuteFailed) {
        MessageBoxA(nullptr, "Quillmarch is a windows service, read the help file about how to use it", "Quillmarch",
                    MB_ICONSTOP);
    }
}
