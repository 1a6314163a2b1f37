// The registry and its access lists: what the product reads, writes and unlocks.
#pragma once

#include "simwin/kernel/types.h"

namespace simwin {

// --- Roots. HKCR is HKLM\SOFTWARE\Classes, HKCU the key of the process's user below HKU. Never closed.
#define HKEY_CLASSES_ROOT (reinterpret_cast<simwin::HKEY>(static_cast<simwin::ULONG_PTR>(0xFFFFFFFF80000000ull)))
#define HKEY_CURRENT_USER (reinterpret_cast<simwin::HKEY>(static_cast<simwin::ULONG_PTR>(0xFFFFFFFF80000001ull)))
#define HKEY_LOCAL_MACHINE (reinterpret_cast<simwin::HKEY>(static_cast<simwin::ULONG_PTR>(0xFFFFFFFF80000002ull)))
#define HKEY_USERS (reinterpret_cast<simwin::HKEY>(static_cast<simwin::ULONG_PTR>(0xFFFFFFFF80000003ull)))

// --- Access rights. On x64 Windows a 32-bit process sees HKLM\SOFTWARE as its part below Wow6432Node unless a flag
// selects the view.
inline constexpr DWORD READ_CONTROL = 0x00020000;
inline constexpr DWORD WRITE_DAC = 0x00040000;
inline constexpr DWORD WRITE_OWNER = 0x00080000;
inline constexpr DWORD GENERIC_ALL = 0x10000000;
inline constexpr DWORD MAXIMUM_ALLOWED = 0x02000000;
inline constexpr DWORD KEY_QUERY_VALUE = 0x0001;
inline constexpr DWORD KEY_SET_VALUE = 0x0002;
inline constexpr DWORD KEY_CREATE_SUB_KEY = 0x0004;
inline constexpr DWORD KEY_ENUMERATE_SUB_KEYS = 0x0008;
inline constexpr DWORD KEY_WOW64_64KEY = 0x0100;
inline constexpr DWORD KEY_WOW64_32KEY = 0x0200;
inline constexpr DWORD KEY_READ = 0x20019;
inline constexpr DWORD KEY_WRITE = 0x20006;
inline constexpr DWORD KEY_ALL_ACCESS = 0xF003F;

inline constexpr DWORD REG_NONE = 0;
inline constexpr DWORD REG_SZ = 1;
inline constexpr DWORD REG_EXPAND_SZ = 2;
inline constexpr DWORD REG_BINARY = 3;
inline constexpr DWORD REG_DWORD = 4;
inline constexpr DWORD REG_MULTI_SZ = 7;

inline constexpr DWORD REG_OPTION_NON_VOLATILE = 0;
inline constexpr DWORD REG_OPTION_VOLATILE = 1;
inline constexpr DWORD REG_CREATED_NEW_KEY = 1;
inline constexpr DWORD REG_OPENED_EXISTING_KEY = 2;

// --- Keys and values. Results are error codes; the last error is left alone. Names ignore case. Common errors: 2
// no such key or value, 5 the access list or the handle's rights refuse, 6 no such handle, 1018 the key was deleted.

// Opens a subkey, or with null or "" the key itself again; a root is then its own result. In HKCR a user's own key
// below Software\Classes takes precedence over the machine's. The access list of the opened key alone decides.
LONG RegOpenKeyExA(HKEY key, LPCSTR subKey, DWORD options, REGSAM access, PHKEY result);
// Opens or creates it with all missing keys above; new keys inherit from their parent.
LONG RegCreateKeyExA(HKEY key, LPCSTR subKey, DWORD reserved, LPSTR keyClass, DWORD options, REGSAM access,
                     const SECURITY_ATTRIBUTES* security, PHKEY result, LPDWORD disposition);
LONG RegCloseKey(HKEY key);
// Data as it is stored: a text that was stored without its zero comes without one unless there is room for it, in which
// case one is appended and not counted. 234 with the needed size if it does not fit. data null: the size alone.
LONG RegQueryValueExA(HKEY key, LPCSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data, LPDWORD size);
// Stores a text with its zero also where the size leaves it out and it follows in memory.
LONG RegSetValueExA(HKEY key, LPCSTR name, DWORD reserved, DWORD type, const BYTE* data, DWORD size);
LONG RegDeleteValueA(HKEY key, LPCSTR name);
// Deletes a key that has no subkeys. 5 if it has some.
LONG RegDeleteKeyA(HKEY key, LPCSTR subKey);
// The index-th subkey by name; 259 after the last; 234 if the name with its zero does not fit.
LONG RegEnumKeyExA(HKEY key, DWORD index, LPSTR name, LPDWORD nameChars, LPDWORD reserved, LPSTR keyClass,
                   LPDWORD classChars, FILETIME* lastWrite);
// The index-th value in order of creation; nameChars is given back without the zero; 234 if name or data do not fit,
// with the size that the data needs.
LONG RegEnumValueA(HKEY key, DWORD index, LPSTR name, LPDWORD nameChars, LPDWORD reserved, LPDWORD type, LPBYTE data,
                   LPDWORD size);
// Counts, longest names without their zeros, the longest data (texts in UTF-16), the key's last write time. Any pointer
// may be null.
LONG RegQueryInfoKeyA(HKEY key, LPSTR keyClass, LPDWORD classChars, LPDWORD reserved, LPDWORD subKeys,
                      LPDWORD maxSubKeyChars, LPDWORD maxClassChars, LPDWORD values, LPDWORD maxNameChars,
                      LPDWORD maxDataBytes, LPDWORD securityBytes, FILETIME* lastWrite);

// --- Access lists of keys. They decide at the opening of a key; the owner may always read and change them.
inline constexpr SECURITY_INFORMATION OWNER_SECURITY_INFORMATION = 1;
inline constexpr SECURITY_INFORMATION GROUP_SECURITY_INFORMATION = 2;
inline constexpr SECURITY_INFORMATION DACL_SECURITY_INFORMATION = 4;
inline constexpr DWORD SDDL_REVISION_1 = 1;

// A self-relative descriptor with the requested parts. 122 with the needed size if it does not fit. READ_CONTROL.
LONG RegGetKeySecurity(HKEY key, SECURITY_INFORMATION what, PSECURITY_DESCRIPTOR descriptor, LPDWORD size);
// The same of a file or folder. FALSE with 2, 5, 122 and the needed size.
BOOL GetFileSecurityA(LPCSTR name, SECURITY_INFORMATION what, PSECURITY_DESCRIPTOR descriptor, DWORD size,
                      LPDWORD needed);
// Sets the list of this one key; keys that exist below it keep theirs. Needs WRITE_DAC. 87 or 1338 for a bad
// descriptor.
LONG RegSetKeySecurity(HKEY key, SECURITY_INFORMATION what, PSECURITY_DESCRIPTOR descriptor);
// A self-relative descriptor from its text, released with LocalFree. FALSE with 87, with
// 1336 for an invalid list, with 1305 for another revision.
BOOL ConvertStringSecurityDescriptorToSecurityDescriptorA(LPCSTR text, DWORD revision, PSECURITY_DESCRIPTOR* result,
                                                          PULONG size);
BOOL IsValidSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor);

} // namespace simwin
