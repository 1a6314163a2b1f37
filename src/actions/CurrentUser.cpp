#include "actions/CurrentUser.h"

#include "actions/UserTokens.h"
#include "support/log/LogFile.h"
#include "support/system/Handles.h"
#include "support/system/OsVersion.h"
#include "support/system/ProcessState.h"
#include "support/system/SystemTools.h"
#include "support/texts/BoundedText.h"
#include "support/texts/StringTools.h"

constexpr size_t NameChars = 64;
constexpr size_t FullNameChars = MaxNameChars + 1;
constexpr size_t GroupTextChars = 1024;
constexpr DWORD MaxGroups = 100;
constexpr size_t MaxJoinedBeforeLast = 957; // a separator and one more name fit after it
constexpr DWORD MaxTokenUser = 256;

constexpr LONG LogonLocal = 1;
constexpr LONG LogonDomain = 2;

namespace {
struct UserInfo {
    char CurrentUser[NameChars]; // empty: no user is known to be logged on
    char PreviousUser[NameChars];
    char TokenUserName[NameChars];
    char TokenDomain[NameChars];
    char Computer[NameChars];
    LONG LogonType;
    BOOL IsAdmin;
    BOOL WasAdmin;
    char GroupText[GroupTextChars];
    const char* GroupNames[MaxGroups]; // into GroupText
    DWORD GroupCount;
    char Groups[GroupTextChars];
};
} // namespace

static UserInfo g_user;

bool IsUserKnown() {
    return g_user.CurrentUser[0] != '\0';
}

void ResetCurrentUserInfo() {
    WriteLog(2, "ResetCurrentUserInfo()");
    CopyText(g_user.PreviousUser, g_user.CurrentUser);
    g_user.WasAdmin = g_user.IsAdmin;
    g_user.CurrentUser[0] = '\0';
    g_user.TokenUserName[0] = '\0';
    g_user.TokenDomain[0] = '\0';
    g_user.Computer[0] = '\0';
    g_user.LogonType = 0;
    g_user.IsAdmin = FALSE;
    g_user.GroupCount = 0;
    g_user.GroupText[0] = '\0';
    g_user.Groups[0] = '\0';
}

static bool GetUserAndDomain(HANDLE token) {
    alignas(TOKEN_USER) BYTE buffer[MaxTokenUser];
    DWORD needed = 0;
    if (!GetTokenInformation(token, TokenUser, buffer, sizeof(buffer), &needed)) {
        return false;
    }
    char name[FullNameChars] = {};
    char domain[FullNameChars] = {};
    DWORD nameChars = sizeof(name);
    DWORD domainChars = sizeof(domain);
    SID_NAME_USE use = SidTypeUser;
    if (!LookupAccountSidA(nullptr, reinterpret_cast<TOKEN_USER*>(buffer)->User.Sid, name, &nameChars, domain,
                           &domainChars, &use)) {
        return false;
    }
    CopyText(g_user.TokenUserName, name);
    CopyText(g_user.TokenDomain, domain);
    WriteLog(3, "userbytoken=%s domain=%s", g_user.TokenUserName, g_user.TokenDomain);
    return true;
}

// Names this thread's user as Windows knows it. fullName: empty if unavailable.
static void AskAsUser(char (&fullName)[FullNameChars]) {
    g_user.IsAdmin = IsUserAnAdmin() ? TRUE : FALSE;
    DWORD nameChars = sizeof(fullName);
    if (!GetUserNameA(fullName, &nameChars)) {
        fullName[0] = '\0';
    }
    char computer[FullNameChars] = {};
    DWORD computerChars = sizeof(computer);
    if (!GetComputerNameA(computer, &computerChars)) {
        computer[0] = '\0';
    }
    CopyText(g_user.Computer, computer);
    CopyText(g_user.CurrentUser, fullName);
    const bool isLocal = g_user.Computer[0] == '\0' || g_user.TokenDomain[0] == '\0' ||
                         lstrcmpiA(g_user.Computer, g_user.TokenDomain) == 0;
    g_user.LogonType = isLocal ? LogonLocal : LogonDomain;
    WriteLog(3, "user=%s computer=%s", g_user.CurrentUser, g_user.Computer);
    WriteLog(3, "user=%s domain=%s logontype=%s", g_user.CurrentUser, g_user.TokenDomain, isLocal ? "local" : "Server");
}

static void TakeGroupNames(const LOCALGROUP_USERS_INFO_0* groups, DWORD count) {
    size_t used = 0;
    DWORD taken = 0;
    for (; taken < count && used + NameChars <= GroupTextChars; ++taken) {
        char name[FullNameChars] = {};
        if (WideCharToMultiByte(CP_ACP, /*flags=*/0, groups[taken].lgrui0_name, /*cchWideChar=*/-1, name,
                                static_cast<int>(sizeof(name)), nullptr, nullptr) == 0) {
            name[0] = '\0';
        }
        char* const place = g_user.GroupText + used;
        used += CopyText(place, NameChars, name) + 1;
        g_user.GroupNames[taken] = place;
    }
    g_user.GroupCount = taken;
}

// Returns: whether Windows was queried.
static bool LookUpGroups(const char* fullName) {
    const SystemLibrary users("netapi32.dll");
    const auto getGroups = users.Find<decltype(&NetUserGetLocalGroups)>("NetUserGetLocalGroups");
    const auto release = users.Find<decltype(&NetApiBufferFree)>("NetApiBufferFree");
    WCHAR wideName[FullNameChars] = {};
    if (!getGroups || !release ||
        MultiByteToWideChar(CP_ACP, /*flags=*/0, fullName, /*cbMultiByte=*/-1, wideName,
                            static_cast<int>(FullNameChars)) == 0) {
        return false;
    }
    LPBYTE list = nullptr;
    DWORD count = 0;
    DWORD total = 0;
    const NET_API_STATUS result = getGroups(/*server=*/nullptr, wideName, /*level=*/0, LG_INCLUDE_INDIRECT, &list,
                                            MAX_PREFERRED_LENGTH, &count, &total);
    WriteLog(3, "NetUserGetLocalGroups(%s) res=%i entries=%i", fullName, static_cast<LONG>(result),
             static_cast<LONG>(count));
    if (!list) {
        return true;
    }
    if (result == NERR_Success) {
        if (count > MaxGroups) {
            WriteLog(2, "warning: UserGroups cut from %i to %i", static_cast<LONG>(count),
                     static_cast<LONG>(MaxGroups));
            count = MaxGroups;
        }
        TakeGroupNames(reinterpret_cast<LOCALGROUP_USERS_INFO_0*>(list), count);
    }
    (void)release(list);
    return true;
}

static void JoinGroups() {
    char joined[GroupTextChars] = {};
    for (DWORD i = 0; i < g_user.GroupCount && TextLength(joined) <= MaxJoinedBeforeLast; ++i) {
        AppendText(joined, i == 0 ? "" : ", ");
        AppendText(joined, g_user.GroupNames[i]);
    }
    CopyText(g_user.Groups, joined);
}

static int LogResult(bool hasAsked) {
    WriteLog(2, "SetCurrentUserInfo(): CurrentUser=%s IsAdmin=%i Groups=%s", g_user.CurrentUser, g_user.IsAdmin,
             g_user.Groups);
    return hasAsked ? 1 : 0;
}

static HANDLE GetTokenOfUser() {
    if (g_Mode == ModeService) {
        return GetCurrentUserToken();
    }
    HANDLE token = nullptr;
    return OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token) ? token : nullptr;
}

// Queries this thread's user. Returns: whether the user's groups were queried.
static bool AskForUserAndGroups() {
    char fullName[FullNameChars] = {};
    AskAsUser(fullName);
    return g_user.LogonType == LogonLocal && fullName[0] != '\0' && LookUpGroups(fullName);
}

// Impersonates the user for the query if it is not this process's user.
static int AskForUser() {
    bool hasAsked = false;
    if (g_Mode == ModeService) {
        const ImpersonationScope user(/*isElevated=*/g_os.MajorVersion >= 6);
        hasAsked = user.IsOn() && AskForUserAndGroups();
    } else {
        hasAsked = AskForUserAndGroups();
    }
    JoinGroups();
    return LogResult(hasAsked);
}

int SetCurrentUserInfo() {
    WriteLog(2, "SetCurrentUserInfo()");
    ResetCurrentUserInfo();
    {
        const OwnedToken token(GetTokenOfUser());
        if (!token.IsOpen()) {
            WriteLog(2, "getting user's token failed -> no user is logged on");
            return 0;
        }
        if (!GetUserAndDomain(token.Get())) {
            WriteLog(2, "GetUserAndDomain failed");
            return 0;
        }
    }
    return AskForUser();
}
