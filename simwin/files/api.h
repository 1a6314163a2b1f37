// Files, folders, drives and settings files: the operations of Windows that the product needs.
#pragma once

#include "simwin/kernel/types.h"

namespace simwin {

// --- Opening. A name that begins with "\\.\" or "\\?\" and is no path of a drive is a device's.
inline constexpr DWORD GENERIC_READ = 0x80000000;
inline constexpr DWORD GENERIC_WRITE = 0x40000000;
inline constexpr DWORD FILE_SHARE_READ = 1;
inline constexpr DWORD FILE_SHARE_WRITE = 2;
inline constexpr DWORD FILE_SHARE_DELETE = 4;
inline constexpr DWORD CREATE_NEW = 1;
inline constexpr DWORD CREATE_ALWAYS = 2;
inline constexpr DWORD OPEN_EXISTING = 3;
inline constexpr DWORD OPEN_ALWAYS = 4;
inline constexpr DWORD FILE_ATTRIBUTE_READONLY = 0x01;
inline constexpr DWORD FILE_ATTRIBUTE_HIDDEN = 0x02;
inline constexpr DWORD FILE_ATTRIBUTE_SYSTEM = 0x04;
inline constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 0x10;
inline constexpr DWORD FILE_ATTRIBUTE_ARCHIVE = 0x20;
inline constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;
inline constexpr DWORD FILE_ATTRIBUTE_REPARSE_POINT = 0x400; // a link: operations on the name act on its target
inline constexpr DWORD INVALID_FILE_ATTRIBUTES = 0xFFFFFFFF;
inline constexpr DWORD FILE_FLAG_BACKUP_SEMANTICS = 0x02000000;
inline constexpr DWORD FILE_FLAG_SEQUENTIAL_SCAN = 0x08000000;
inline constexpr DWORD INVALID_FILE_SIZE = 0xFFFFFFFF;

// INVALID_HANDLE_VALUE with 2 no such file, 3 no such folder, 5 refused (a folder without FILE_FLAG_BACKUP_SEMANTICS,
// a read-only file for writing, an account without the right, a hidden file recreated without its attribute), 32 in
// use, unshared, 80 CREATE_NEW of a file that exists, 123 not a name. CREATE_ALWAYS and OPEN_ALWAYS set the last error
// to 183 if the file existed, else to 0. Access 0 is refused by no sharing mode.
HANDLE CreateFileA(LPCSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD disposition,
                   DWORD flags, HANDLE templateFile);
// FALSE with 5 for a handle without the right, 6. At the end of the file TRUE and 0 bytes.
BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD bytes, LPDWORD read, LPVOID overlapped);
// At the handle's position; with `overlapped`, whose two halves of the offset must then be 0xFFFFFFFF, at whatever is
// the end at that moment. Moves the write time. FALSE with 5, 6, 112 (nothing more fits the disk).
BOOL WriteFile(HANDLE file, LPCVOID data, DWORD bytes, LPDWORD written, LPOVERLAPPED overlapped);
DWORD GetFileSize(HANDLE file, LPDWORD high);
BOOL GetFileTime(HANDLE file, FILETIME* creation, FILETIME* lastAccess, FILETIME* lastWrite);

struct BY_HANDLE_FILE_INFORMATION {
    DWORD dwFileAttributes;
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD dwVolumeSerialNumber;
    DWORD nFileSizeHigh;
    DWORD nFileSizeLow;
    DWORD nNumberOfLinks;
    DWORD nFileIndexHigh;
    DWORD nFileIndexLow;
};
// Of the file that was opened, after any link. Times and numbers of the volume are 0. FALSE with 6.
BOOL GetFileInformationByHandle(HANDLE file, BY_HANDLE_FILE_INFORMATION* information);
// The name without short parts; a link in it stays. 0 with 2 if there is no such file.
DWORD GetLongPathNameA(LPCSTR name, LPSTR path, DWORD size);

// --- Names. Opening follows a link; deleting, renaming and queries act on the link itself. FALSE with 2, 3, 5, 32;
// MoveFileA of a target that exists: 183.
BOOL DeleteFileA(LPCSTR name);
BOOL MoveFileA(LPCSTR from, LPCSTR to);
DWORD GetFileAttributesA(LPCSTR name); // INVALID_FILE_ATTRIBUTES with 2, 3, 5, 123

struct WIN32_FIND_DATAA {
    DWORD dwFileAttributes;
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD nFileSizeHigh;
    DWORD nFileSizeLow;
    DWORD dwReserved0;
    DWORD dwReserved1;
    CHAR cFileName[MAX_PATH];
    CHAR cAlternateFileName[14];
};
static_assert(sizeof(WIN32_FIND_DATAA) == 320);
// The entries of a folder in the order of their names, "." and ".." first. 2 no entry fits, 3 no such folder; 18 at the
// end. Streams are not listed.
HANDLE FindFirstFileA(LPCSTR pattern, WIN32_FIND_DATAA* data);
BOOL FindNextFileA(HANDLE find, WIN32_FIND_DATAA* data);
BOOL FindClose(HANDLE find);

// --- Drives.
inline constexpr UINT DRIVE_NO_ROOT_DIR = 1;
inline constexpr UINT DRIVE_FIXED = 3;
inline constexpr UINT DRIVE_REMOTE = 4;
UINT GetDriveTypeA(LPCSTR root); // "X:\"; a substituted drive is of the kind of the drive that it leads to

inline constexpr DWORD ERROR_DIRECTORY = 267;
// --- Folders. The length of the path, or the needed size with its zero if it does not fit; 0 with an error.
UINT GetWindowsDirectoryA(LPSTR buffer, UINT size);
UINT GetSystemDirectoryA(LPSTR buffer, UINT size);
DWORD GetCurrentDirectoryA(DWORD size, LPSTR buffer);
BOOL SetCurrentDirectoryA(LPCSTR directory); // of the whole process; 2, 3 no such folder, 267 a file

// --- Settings files. Read straight from the file; without a path it is in the Windows folder. Section and key ignore
// case, the first of equals is used; outer blanks and one pair of quotes are removed from values and default. A
// null section or key lists the names, each with its zero. Gives the characters copied: size - 1 for a value that was
// cut, size - 2 for a list that was. The last error is 2 if there is no such file, section or key.
DWORD GetPrivateProfileStringA(LPCSTR section, LPCSTR key, LPCSTR defaultText, LPSTR buffer, DWORD size, LPCSTR file);
// The number that such a value begins with: blanks, a sign, digits, or 0x, 0o and 0b with theirs; 0 for other text. The
// default for an absent or empty value.
UINT GetPrivateProfileIntA(LPCSTR section, LPCSTR key, INT defaultNumber, LPCSTR file);

} // namespace simwin
