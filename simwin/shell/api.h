// The shell: programs and documents opened for a user, associations, the user's language.
#pragma once

#include "simwin/types.h"

namespace simwin {

// --- Results below 33 are errors; the last error tells more.
inline constexpr int SE_ERR_FNF = 2;
inline constexpr int SE_ERR_PNF = 3;
inline constexpr int SE_ERR_ACCESSDENIED = 5;
inline constexpr int SE_ERR_NOASSOC = 31;
inline constexpr DWORD ERROR_NO_ASSOCIATION = 1155;

// verb: "open", or "runas" for a program with administrator rights, which the described consent answers. file: a
// program, with `parameters`, or a document, which its associated program opens. Returns: above 32 for success; 2, 3, 5
// (1223 when the user refused), 31.
HINSTANCE ShellExecuteA(HWND owner, LPCSTR verb, LPCSTR file, LPCSTR parameters, LPCSTR directory, int show);
// The program that opens a file into `result` (MAX_PATH characters); a program is its own. The file may stand in
// quotes. Returns: above 32 for success; 2 without the file, 31 without an association, `result` is empty then.
HINSTANCE FindExecutableA(LPCSTR file, LPCSTR directory, LPSTR result);

LANGID GetUserDefaultLangID();
HRESULT CoInitializeEx(LPVOID reserved, DWORD threadModel); // 0, 1 if the thread had done so before

} // namespace simwin
