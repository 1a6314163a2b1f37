// Texts and paths, code pages, environment variables in texts: the operations of Windows that the product needs.
#pragma once

#include "simwin/kernel/types.h"

namespace simwin {

// --- Texts. All ANSI, code page 1252. lstrlenA gives 0 for null, null sorts before all texts.
int lstrlenA(LPCSTR text);
// -1, 0, 1 in the order of words: letters by alphabet, small before capital letters of otherwise equal texts, hyphens
// and apostrophes only where nothing else differs.
int lstrcmpA(LPCSTR a, LPCSTR b);
int lstrcmpiA(LPCSTR a, LPCSTR b);
// At most 1024 characters with the zero go to the buffer; gives the count without it. No floating point.
int wvsprintfA(LPSTR buffer, LPCSTR format, __builtin_va_list arguments);
LPSTR CharLowerA(LPSTR text);            // in place
LPSTR StrStrA(LPCSTR text, LPCSTR part); // null for null or empty arguments
LPSTR StrStrIA(LPCSTR text, LPCSTR part);
LPSTR StrChrA(LPCSTR text, WORD character);
LPSTR StrRChrA(LPCSTR text, LPCSTR end, WORD character);
int StrToIntA(LPCSTR text);                    // "-12" and "12abc" are numbers, " 12", "+12" and "0x1F" are 0
BOOL StrTrimA(LPSTR text, LPCSTR characters);  // TRUE if something was removed
BOOL PathCanonicalizeA(LPSTR to, LPCSTR path); // to has MAX_PATH characters; FALSE if the path is longer
void PathUnquoteSpacesA(LPSTR path);           // removes both quotes, or none
LPSTR PathGetArgsA(LPCSTR path);               // what follows the first blank outside quotes, else the final zero
// The length with the zero, also of what does not fit: then the text is cut.
DWORD ExpandEnvironmentStringsA(LPCSTR text, LPSTR buffer, DWORD size);

inline constexpr UINT CP_ACP = 0;
inline constexpr UINT CP_THREAD_ACP = 3;
// Bytes written; 0 with 87 for a length of 0, 122 for a buffer that is too small. A length of -1 takes the text with
// its zero. bytes 0: the needed size. What the code page lacks becomes '?' or the given character. Only 1252.
int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wide, int characters, LPSTR text, int bytes,
                        LPCSTR defaultCharacter, LPBOOL usedDefault);
// The same in the other direction, without flags. Characters written; 0 with 87, 122.
int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int bytes, LPWSTR wide, int characters);
UINT GetACP();

inline constexpr DWORD FORMAT_MESSAGE_ALLOCATE_BUFFER = 0x0100;
inline constexpr DWORD FORMAT_MESSAGE_FROM_SYSTEM = 0x1000;
// The system's English text of an error, with CR LF at its end. 0 with 317 for a code that has none. With
// FORMAT_MESSAGE_ALLOCATE_BUFFER `buffer` takes a pointer that LocalFree releases.
DWORD FormatMessageA(DWORD flags, LPCVOID source, DWORD message, DWORD language, LPSTR buffer, DWORD size,
                     __builtin_va_list* arguments);

} // namespace simwin
