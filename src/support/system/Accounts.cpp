#include "support/system/Accounts.h"

#include "support/system/Handles.h"
#include "support/texts/BoundedText.h"
#include "support/texts/StringTools.h"

constexpr char SystemPrefix[] = "S-1-5-";
constexpr DWORD MaxTokenUser = 256; // a SID has at most 68 bytes

// The text of the token's user. Returns: 1; 0 with the last error.
static int TokenUserText(HANDLE token, char* out, size_t size) {
    alignas(TOKEN_USER) BYTE buffer[MaxTokenUser];
    DWORD needed = 0;
    if (!GetTokenInformation(token, TokenUser, buffer, sizeof(buffer), &needed)) {
        return 0;
    }
    OwnedLocalText text;
    if (!ConvertSidToStringSidA(reinterpret_cast<TOKEN_USER*>(buffer)->User.Sid, text.Receive())) {
        return 0;
    }
    CopyText(out, size, text.Get());
    return 1;
}

int GetUserSidText(char* out, size_t size) {
    CopyText(out, size, "");
    OwnedToken token;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.Receive())) {
        return 0;
    }
    return TokenUserText(token.Get(), out, size);
}

int IsSystemAccount() {
    char sid[260];
    return GetUserSidText(sid) && IsSystemSidText(sid);
}

int IsSystemSidText(const char* sid) {
    return TextLength(sid) == TextLength(SystemSid) && CountSameStart(SystemPrefix, sid) == TextLength(SystemPrefix);
}
