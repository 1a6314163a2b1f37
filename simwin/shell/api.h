// The shell: programs and documents opened for a user, associations, the user's language.
#pragma once

#include "simwin/kernel/types.h"

namespace simwin {

// --- Results below 33 are errors; the last error says more.
inline constexpr int SE_ERR_FNF = 2;
inline constexpr int SE_ERR_PNF = 3;
inline constexpr int SE_ERR_ACCESSDENIED = 5;
inline constexpr int SE_ERR_NOASSOC = 31;
inline constexpr DWORD ERROR_NO_ASSOCIATION = 1155;

// verb: "open", or "runas" for a program with administrator rights, which the described consent answers. file: a
// program, with `parameters`, or a document, which its associated program opens. Returns: above 32 for success; 2, 3, 5
// (1223 when the user refused), 31.
HINSTANCE ShellExecuteA(HWND owner, LPCSTR verb, LPCSTR file, LPCSTR parameters, LPCSTR directory, int show);
// The program that opens a file into `result` (MAX_PATH characters); a program opens itself. The file may be in quotes.
// Returns: above 32 for success; 2 without the file, 31 without an association, `result` is empty then.
HINSTANCE FindExecutableA(LPCSTR file, LPCSTR directory, LPSTR result);

// --- Processes created by a program.
inline constexpr DWORD STARTF_USESHOWWINDOW = 1;
inline constexpr DWORD NORMAL_PRIORITY_CLASS = 0x20;
struct STARTUPINFOA {
    DWORD cb;
    LPSTR lpReserved;
    LPSTR lpDesktop;
    LPSTR lpTitle;
    DWORD dwX;
    DWORD dwY;
    DWORD dwXSize;
    DWORD dwYSize;
    DWORD dwXCountChars;
    DWORD dwYCountChars;
    DWORD dwFillAttribute;
    DWORD dwFlags;
    WORD wShowWindow;
    WORD cbReserved2;
    LPBYTE lpReserved2;
    HANDLE hStdInput;
    HANDLE hStdOutput;
    HANDLE hStdError;
};
static_assert(sizeof(STARTUPINFOA) == 104);
using LPSTARTUPINFOA = STARTUPINFOA*;
struct PROCESS_INFORMATION {
    HANDLE hProcess;
    HANDLE hThread;
    DWORD dwProcessId;
    DWORD dwThreadId;
};
static_assert(sizeof(PROCESS_INFORMATION) == 24);
using LPPROCESS_INFORMATION = PROCESS_INFORMATION*;
inline constexpr DWORD ERROR_BAD_EXE_FORMAT = 193;
// program: the file verbatim, or null: the first word of the command line. directory, environment: null for the
// caller's own. The process gets the caller's process token, whatever the thread impersonates. The caller closes both
// handles. FALSE with 2, 3, 5, 8, 87, 193 (no program), 267 (no such directory), 740 (requires more rights).
// flags: 0 or NORMAL_PRIORITY_CLASS; security, inherited handles, an environment are not modelled.
BOOL CreateProcessA(LPCSTR program, LPSTR commandLine, LPSECURITY_ATTRIBUTES process, LPSECURITY_ATTRIBUTES thread,
                    BOOL inherit, DWORD flags, LPVOID environment, LPCSTR directory, LPSTARTUPINFOA startup,
                    LPPROCESS_INFORMATION information);
// The same with a primary token that has TOKEN_QUERY, TOKEN_DUPLICATE and TOKEN_ASSIGN_PRIMARY, in the token's session.
// The process's own token must hold SeIncreaseQuota and SeAssignPrimaryToken. FALSE also with 6, 1314, 1346, 1349.
BOOL CreateProcessAsUserA(HANDLE token, LPCSTR program, LPSTR commandLine, LPSECURITY_ATTRIBUTES process,
                          LPSECURITY_ATTRIBUTES thread, BOOL inherit, DWORD flags, LPVOID environment, LPCSTR directory,
                          LPSTARTUPINFOA startup, LPPROCESS_INFORMATION information);
inline constexpr DWORD ERROR_ELEVATION_REQUIRED = 740;

inline constexpr DWORD PROCESS_TERMINATE = 0x0001;
inline constexpr DWORD PROCESS_QUERY_INFORMATION = 0x0400;
inline constexpr DWORD PROCESS_ALL_ACCESS = 0x001F0FFF; // before 6.0 more bits are refused
// A handle with these rights. null with 5 (another user's process or one of higher integrity, unless the caller is the
// system or has SeDebug enabled; bits that this Windows does not know), 87 for an id without a process.
HANDLE OpenProcess(DWORD access, BOOL inherit, DWORD processId);

LANGID GetUserDefaultLangID();
HRESULT CoInitializeEx(LPVOID reserved, DWORD threadModel); // 0, 1 if the thread had done so before

} // namespace simwin
