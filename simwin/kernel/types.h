// The base types of Windows, as every room of the simulated machine and the product use them: the widths of the 64-bit
// SDK, handles as wide as the host's pointers, 16-bit WCHAR (everything is compiled with -fshort-wchar).
#pragma once

#include <cstddef>
#include <cstdint>

#define WINAPI
#define CALLBACK
#define APIENTRY
#define WINAPIV

#define MAKEINTRESOURCEA(number) (reinterpret_cast<simwin::LPCSTR>(static_cast<simwin::ULONG_PTR>(number)))
#define INVALID_HANDLE_VALUE (reinterpret_cast<simwin::HANDLE>(static_cast<simwin::LONG_PTR>(-1)))
#define TRUE 1
#define FALSE 0

static_assert(sizeof(wchar_t) == 2, "compile with -fshort-wchar");

namespace simwin {

using BYTE = std::uint8_t;
using UCHAR = unsigned char;
using CHAR = char;
using WCHAR = wchar_t;
using WORD = std::uint16_t;
using USHORT = std::uint16_t;
using SHORT = std::int16_t;
using ATOM = std::uint16_t;
using LANGID = std::uint16_t;
using INT = std::int32_t;
using UINT = std::uint32_t;
using LONG = std::int32_t;
using ULONG = std::uint32_t;
using DWORD = std::uint32_t;
using BOOL = std::int32_t;
using BOOLEAN = std::uint8_t;
using LONGLONG = long long;
using ULONGLONG = unsigned long long;
using DWORDLONG = unsigned long long;
using DWORD64 = unsigned long long;
using ULONG64 = unsigned long long;
using INT_PTR = long long;
using UINT_PTR = unsigned long long;
using LONG_PTR = long long;
using ULONG_PTR = unsigned long long;
using DWORD_PTR = unsigned long long;
using SIZE_T = std::size_t;
using WPARAM = UINT_PTR;
using LPARAM = LONG_PTR;
using LRESULT = LONG_PTR;
using HRESULT = std::int32_t;
using LSTATUS = LONG;
using NTSTATUS = LONG;
using COLORREF = DWORD;
using LCID = DWORD;
using REGSAM = DWORD;
using SECURITY_INFORMATION = DWORD;

using PVOID = void*;
using LPVOID = void*;
using LPCVOID = const void*;
using HANDLE = void*;
using LPSTR = char*;
using PSTR = char*;
using LPCSTR = const char*;
using PCSTR = const char*;
using LPWSTR = wchar_t*;
using PWSTR = wchar_t*;
using LPCWSTR = const wchar_t*;
using PCWSTR = const wchar_t*;
using LPBYTE = BYTE*;
using PBYTE = BYTE*;
using PUCHAR = UCHAR*;
using LPWORD = WORD*;
using LPDWORD = DWORD*;
using PDWORD = DWORD*;
using PULONG = ULONG*;
using PUINT = UINT*;
using LPLONG = LONG*;
using PLONG = LONG*;
using LPBOOL = BOOL*;
using PBOOL = BOOL*;
using LPHANDLE = HANDLE*;
using PHANDLE = HANDLE*;
using PDWORD_PTR = DWORD_PTR*;
using va_list_t = __builtin_va_list;

#define SIMWIN_DECLARE_HANDLE(name)                                                                                    \
    struct name##__;                                                                                                   \
    using name = name##__*
SIMWIN_DECLARE_HANDLE(HINSTANCE);
SIMWIN_DECLARE_HANDLE(HKEY);
SIMWIN_DECLARE_HANDLE(HWND);
SIMWIN_DECLARE_HANDLE(HICON);
SIMWIN_DECLARE_HANDLE(HBITMAP);
SIMWIN_DECLARE_HANDLE(HBRUSH);
SIMWIN_DECLARE_HANDLE(HFONT);
SIMWIN_DECLARE_HANDLE(HRGN);
SIMWIN_DECLARE_HANDLE(HMENU);
SIMWIN_DECLARE_HANDLE(HDC);
SIMWIN_DECLARE_HANDLE(HMONITOR);
SIMWIN_DECLARE_HANDLE(HRSRC);
SIMWIN_DECLARE_HANDLE(SC_HANDLE);
SIMWIN_DECLARE_HANDLE(SERVICE_STATUS_HANDLE);
using HMODULE = HINSTANCE;
using HCURSOR = HICON;
using HGDIOBJ = HANDLE;
using HTHEME = HANDLE;
using HGLOBAL = HANDLE;
using HLOCAL = HANDLE;
using HDEVNOTIFY = PVOID;
using HDEVINFO = PVOID;
using PHKEY = HKEY*;
using FARPROC = INT_PTR(WINAPI*)();

struct GUID {
    DWORD Data1;
    WORD Data2;
    WORD Data3;
    BYTE Data4[8];
};
using LPGUID = GUID*;
using LPCGUID = const GUID*;
using REFGUID = const GUID&;
using IID = GUID;

struct FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};
using LPFILETIME = FILETIME*;
using PFILETIME = FILETIME*;

struct SYSTEMTIME {
    WORD wYear, wMonth, wDayOfWeek, wDay, wHour, wMinute, wSecond, wMilliseconds;
};
using LPSYSTEMTIME = SYSTEMTIME*;

struct POINT {
    LONG x, y;
};
struct SIZE {
    LONG cx, cy;
};
struct RECT {
    LONG left, top, right, bottom;
};
using LPRECT = RECT*;
using LPPOINT = POINT*;

union LARGE_INTEGER {
    struct {
        DWORD LowPart;
        LONG HighPart;
    } u;
    LONGLONG QuadPart;
};
union ULARGE_INTEGER {
    struct {
        DWORD LowPart;
        DWORD HighPart;
    } u;
    ULONGLONG QuadPart;
};

struct SECURITY_ATTRIBUTES {
    DWORD nLength;
    LPVOID lpSecurityDescriptor;
    BOOL bInheritHandle;
};
using LPSECURITY_ATTRIBUTES = SECURITY_ATTRIBUTES*;
struct OVERLAPPED {
    ULONG_PTR Internal;
    ULONG_PTR InternalHigh;
    union {
        struct {
            DWORD Offset;
            DWORD OffsetHigh;
        };
        PVOID Pointer;
    };
    HANDLE hEvent;
};
using LPOVERLAPPED = OVERLAPPED*;
using PSECURITY_DESCRIPTOR = PVOID;
using PSID = PVOID;

inline constexpr DWORD MAX_PATH = 260;
inline constexpr DWORD INFINITE = 0xFFFFFFFF;

// Win32 error codes that an operation of the machine returns or the product names.
inline constexpr DWORD ERROR_SUCCESS = 0;
inline constexpr DWORD NO_ERROR = 0;
inline constexpr DWORD ERROR_INVALID_FUNCTION = 1;
inline constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
inline constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
inline constexpr DWORD ERROR_ACCESS_DENIED = 5;
inline constexpr DWORD ERROR_INVALID_HANDLE = 6;
inline constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
inline constexpr DWORD ERROR_INVALID_DATA = 13;
inline constexpr DWORD ERROR_NO_MORE_FILES = 18;
inline constexpr DWORD ERROR_WRITE_PROTECT = 19;
inline constexpr DWORD ERROR_NOT_READY = 21;
inline constexpr DWORD ERROR_GEN_FAILURE = 31;
inline constexpr DWORD ERROR_SHARING_VIOLATION = 32;
inline constexpr DWORD ERROR_NOT_SUPPORTED = 50;
inline constexpr DWORD ERROR_FILE_EXISTS = 80;
inline constexpr DWORD ERROR_INVALID_PARAMETER = 87;
inline constexpr DWORD ERROR_DISK_FULL = 112;
inline constexpr DWORD ERROR_CALL_NOT_IMPLEMENTED = 120;
inline constexpr DWORD ERROR_SEM_TIMEOUT = 121;
inline constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
inline constexpr DWORD ERROR_INVALID_NAME = 123;
inline constexpr DWORD ERROR_MOD_NOT_FOUND = 126;
inline constexpr DWORD ERROR_PROC_NOT_FOUND = 127;
inline constexpr DWORD ERROR_DIR_NOT_EMPTY = 145;
inline constexpr DWORD ERROR_BAD_PATHNAME = 161;
inline constexpr DWORD ERROR_BUSY = 170;
inline constexpr DWORD ERROR_ALREADY_EXISTS = 183;
inline constexpr DWORD ERROR_MORE_DATA = 234;
inline constexpr DWORD WAIT_TIMEOUT = 258;
inline constexpr DWORD ERROR_NO_MORE_ITEMS = 259;
inline constexpr DWORD ERROR_NO_SUCH_DEVICE = 433;
inline constexpr DWORD ERROR_INVALID_THREAD_ID = 1444;
inline constexpr DWORD ERROR_INVALID_WINDOW_HANDLE = 1400;
inline constexpr DWORD ERROR_CLASS_ALREADY_EXISTS = 1410;
inline constexpr DWORD ERROR_CLASS_DOES_NOT_EXIST = 1411;
inline constexpr DWORD ERROR_RESOURCE_DATA_NOT_FOUND = 1812;
inline constexpr DWORD ERROR_RESOURCE_TYPE_NOT_FOUND = 1813;
inline constexpr DWORD ERROR_RESOURCE_NAME_NOT_FOUND = 1814;
inline constexpr DWORD ERROR_NO_TOKEN = 1008;
inline constexpr DWORD ERROR_BADKEY = 1010;
inline constexpr DWORD ERROR_KEY_DELETED = 1018;
inline constexpr DWORD ERROR_CHILD_MUST_BE_VOLATILE = 1021;
inline constexpr DWORD ERROR_KEY_HAS_CHILDREN = 1020;
inline constexpr DWORD ERROR_INVALID_SERVICE_CONTROL = 1052;
inline constexpr DWORD ERROR_SERVICE_REQUEST_TIMEOUT = 1053;
inline constexpr DWORD ERROR_SERVICE_ALREADY_RUNNING = 1056;
inline constexpr DWORD ERROR_SERVICE_DISABLED = 1058;
inline constexpr DWORD ERROR_SERVICE_DOES_NOT_EXIST = 1060;
inline constexpr DWORD ERROR_SERVICE_CANNOT_ACCEPT_CTRL = 1061;
inline constexpr DWORD ERROR_SERVICE_NOT_ACTIVE = 1062;
inline constexpr DWORD ERROR_FAILED_SERVICE_CONTROLLER_CONNECT = 1063;
inline constexpr DWORD ERROR_SERVICE_MARKED_FOR_DELETE = 1072;
inline constexpr DWORD ERROR_SERVICE_EXISTS = 1073;
inline constexpr DWORD ERROR_NO_UNICODE_TRANSLATION = 1113;
inline constexpr DWORD ERROR_CANCELLED = 1223;
inline constexpr DWORD ERROR_NOT_FOUND = 1168;
inline constexpr DWORD ERROR_PRIVILEGE_NOT_HELD = 1314;
inline constexpr DWORD ERROR_INVALID_SECURITY_DESCR = 1338;
inline constexpr DWORD ERROR_TIMEOUT = 1460;

} // namespace simwin
