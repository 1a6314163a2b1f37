// The program and the system's libraries as modules, optional operations, and the version of Windows.
#include "simwin/files/Files.h"
#include "simwin/modules/Resources.h"

#include "simwin/kernel/Call.h"
#include "simwin/kernel/Optional.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Setup.h"
#include "simwin/modules/api.h"

#include <algorithm>
#include <cstring>

namespace machine {

constexpr simwin::ULONG_PTR ProgramModule = 0x140000000;
constexpr simwin::ULONG_PTR FirstLibraryModule = 0x7FF800000000, LibraryDistance = 0x100000;

namespace {
// Libraries by the order of their first mention; those that a program's start loads are always there. The index makes
// the module's handle.
struct Library {
    const char* name;
    bool alwaysLoaded;
};
} // namespace
constexpr Library Libraries[] = {{"kernel32.dll", true},  {"ntdll.dll", true},     {"user32.dll", true},
                                 {"advapi32.dll", true},  {"gdi32.dll", true},     {"shell32.dll", true},
                                 {"shlwapi.dll", true},   {"setupapi.dll", true},  {"cfgmgr32.dll", true},
                                 {"wtsapi32.dll", false}, {"netapi32.dll", false}, {"ole32.dll", true},
                                 {"winmm.dll", true},     {"version.dll", false},  {"uxtheme.dll", false},
                                 {"shcore.dll", false},   {"comctl32.dll", false}};
constexpr std::size_t LibraryCount = std::size(Libraries);

namespace {
// How often each process has loaded a library that is not always loaded.
struct Loads {
    simwin::DWORD processId;
    std::size_t library;
    int count;
};
} // namespace
static std::vector<Loads>* g_loads;
RoomPtr MakeModules() {
    return MakeRoom(g_loads);
}

static int& LoadCount(std::size_t library) {
    const simwin::DWORD id = CurrentProcess()->id;
    for (Loads& loads : *g_loads) {
        if (loads.processId == id && loads.library == library) {
            return loads.count;
        }
    }
    g_loads->push_back({id, library, 0});
    return g_loads->back().count;
}

// The library for a name or a path: LibraryCount if there is none. Only the system's folder is searched.
static std::size_t FindLibrary(std::string_view name) {
    const std::size_t slash = name.rfind('\\');
    std::string file = Lower(slash == std::string_view::npos ? name : name.substr(slash + 1));
    if (file.find('.') == std::string::npos) {
        file += ".dll";
    }
    if (slash != std::string_view::npos && !EqualNoCase(name.substr(0, slash), SystemDirectory())) {
        return LibraryCount;
    }
    if (!TheFiles().Exists(SystemDirectory() + "\\" + file)) {
        return LibraryCount;
    }
    for (std::size_t i = 0; i < LibraryCount; ++i) {
        if (file == Libraries[i].name) {
            return i;
        }
    }
    return LibraryCount;
}

static simwin::HMODULE ModuleOf(std::size_t library) {
    return reinterpret_cast<simwin::HMODULE>(FirstLibraryModule + library * LibraryDistance);
}

// The library behind a handle; LibraryCount if it is not a loaded one.
static std::size_t LibraryOf(simwin::HMODULE module) {
    for (std::size_t i = 0; i < LibraryCount; ++i) {
        if (module == ModuleOf(i) && (Libraries[i].alwaysLoaded || LoadCount(i) > 0)) {
            return i;
        }
    }
    return LibraryCount;
}

static bool IsProgram(simwin::HMODULE module) {
    return !module || reinterpret_cast<simwin::ULONG_PTR>(module) == ProgramModule;
}

// The version that Windows reports to a program: at most 6.2 to one whose manifest names no later one.
static WindowsVersion ToldVersion() {
    constexpr std::string_view Ten = "8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a";
    constexpr std::string_view EightOne = "1f676c76-80e1-4239-95bb-83d0f6d0da78";
    constexpr WindowsVersion Eight = {6, 2, 9200}, EightOneVersion = {6, 3, 9600};
    const WindowsVersion real = TheSetup().version;
    if (real.Packed() <= Eight.Packed()) {
        return real;
    }
    const Resource* manifest = FindProgramResource("#24", "#1");
    const std::string_view text =
        manifest ? std::string_view(reinterpret_cast<const char*>(manifest->data.data()), manifest->data.size()) : "";
    if (FindNoCase(text, Ten) != std::string_view::npos) {
        return real;
    }
    const bool knowsEightOne = FindNoCase(text, EightOne) != std::string_view::npos;
    return knowsEightOne ? EightOneVersion : Eight;
}

// Both forms of the structure, narrow and wide, short and long.
template<typename Info, typename Extended>
static bool FillVersion(Info* info, const WindowsVersion& version) {
    if (info->dwOSVersionInfoSize != sizeof(Info) && info->dwOSVersionInfoSize != sizeof(Extended)) {
        return false;
    }
    info->dwMajorVersion = version.major;
    info->dwMinorVersion = version.minor;
    info->dwBuildNumber = version.build;
    info->dwPlatformId = 2; // VER_PLATFORM_WIN32_NT
    std::memset(info->szCSDVersion, 0, sizeof info->szCSDVersion);
    const unsigned pack = TheSetup().servicePack;
    if (pack) {
        const std::string text = "Service Pack " + std::to_string(pack);
        std::copy(text.begin(), text.end(), info->szCSDVersion);
    }
    if (info->dwOSVersionInfoSize == sizeof(Extended)) {
        auto* extended = reinterpret_cast<Extended*>(info);
        extended->wServicePackMajor = static_cast<simwin::WORD>(pack);
        extended->wServicePackMinor = 0;
        extended->wSuiteMask = 0x100; // VER_SUITE_SINGLEUSERTS
        extended->wProductType = 1;   // VER_NT_WORKSTATION
        extended->wReserved = 0;
    }
    return true;
}

constexpr simwin::NTSTATUS StatusInvalidParameter = static_cast<simwin::NTSTATUS>(0xC000000D);

} // namespace machine

namespace simwin {

using namespace machine;

DWORD GetModuleFileNameA(HMODULE module, LPSTR path, DWORD size) {
    SIM_CALL("GetModuleFileNameA", "");
    const std::size_t library = IsProgram(module) ? LibraryCount : LibraryOf(module);
    if (!IsProgram(module) && library == LibraryCount) {
        SetError(ERROR_MOD_NOT_FOUND);
        return 0;
    }
    const std::string text =
        IsProgram(module) ? CurrentProcess()->imagePath : SystemDirectory() + "\\" + Libraries[library].name;
    if (size > text.size()) {
        SetError(ERROR_SUCCESS);
        std::memcpy(path, text.c_str(), text.size() + 1);
        return static_cast<DWORD>(text.size());
    }
    SetError(ERROR_INSUFFICIENT_BUFFER);
    if (size) {
        std::memcpy(path, text.data(), size - 1);
        path[size - 1] = 0;
    }
    return size;
}

HMODULE LoadLibraryA(LPCSTR name) {
    SIM_CALL("LoadLibraryA", name, ERROR_MOD_NOT_FOUND, ERROR_NOT_ENOUGH_MEMORY);
    const std::size_t library = name ? FindLibrary(name) : LibraryCount;
    if (simCall.error || library == LibraryCount) {
        SetError(simCall.error ? simCall.error : DWORD{ERROR_MOD_NOT_FOUND});
        return nullptr;
    }
    ++LoadCount(library);
    return ModuleOf(library);
}

BOOL FreeLibrary(HMODULE module) {
    SIM_CALL("FreeLibrary", "");
    const std::size_t library = LibraryOf(module);
    if (library == LibraryCount) {
        SetError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    int& count = LoadCount(library);
    if (count > 0) {
        --count;
    }
    return TRUE;
}

FARPROC GetProcAddress(HMODULE module, LPCSTR name) {
    SIM_CALL("GetProcAddress", name, ERROR_PROC_NOT_FOUND);
    const std::size_t library = LibraryOf(module);
    if (simCall.error || library == LibraryCount) { // the program itself exports nothing
        SetError(simCall.error ? simCall.error : IsProgram(module) ? ERROR_PROC_NOT_FOUND : ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    const WindowsVersion& version = TheSetup().version;
    for (const OptionalOperation* operation = FirstOptionalOperation(); operation; operation = operation->next) {
        if (std::strcmp(operation->library, Libraries[library].name) != 0 || std::strcmp(operation->name, name) != 0) {
            continue;
        }
        const bool has = version.Packed() > operation->sinceVersion ||
                         (version.Packed() == operation->sinceVersion && version.build >= operation->sinceBuild);
        if (has) {
            return operation->address;
        }
        SetError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    NotModelled("GetProcAddress", std::string(Libraries[library].name) + "!" + name);
}

static BOOL SetDllDirectoryA(LPCSTR path) {
    SIM_CALL("SetDllDirectoryA", path);
    return TRUE; // only the system's folder is ever searched
}

static BOOL SetDefaultDllDirectories(DWORD flags) {
    SIM_CALL("SetDefaultDllDirectories", "", ERROR_INVALID_PARAMETER);
    constexpr DWORD Known = 0x1F00; // LOAD_LIBRARY_SEARCH_...
    if (simCall.error || !flags || (flags & ~Known)) {
        SetError(simCall.error ? simCall.error : DWORD{ERROR_INVALID_PARAMETER});
        return FALSE;
    }
    return TRUE;
}

BOOL GetVersionExA(OSVERSIONINFOA* version) {
    SIM_CALL("GetVersionExA", "");
    if (FillVersion<OSVERSIONINFOA, OSVERSIONINFOEXA>(version, ToldVersion())) {
        return TRUE;
    }
    SetError(ERROR_INSUFFICIENT_BUFFER);
    return FALSE;
}

// The true version, whatever the manifest says.
static NTSTATUS RtlGetVersion(OSVERSIONINFOW* version) {
    SIM_CALL("RtlGetVersion", "");
    const bool known = FillVersion<OSVERSIONINFOW, OSVERSIONINFOEXW>(version, TheSetup().version);
    return known ? 0 : StatusInvalidParameter;
}

static BOOL IsWow64Process(HANDLE, PBOOL isWow64) {
    SIM_CALL("IsWow64Process", "", ERROR_ACCESS_DENIED, ERROR_INVALID_HANDLE);
    if (simCall.error) {
        SetError(simCall.error);
        return FALSE;
    }
    *isWow64 = TheSetup().x64Windows && !TheSetup().productIsX64;
    return TRUE;
}

static const OptionalOperation Optional[] = {
    {"ntdll.dll", "RtlGetVersion", AsProc(RtlGetVersion), 0x0500},
    {"kernel32.dll", "IsWow64Process", AsProc(IsWow64Process), 0x0501},
    {"kernel32.dll", "SetDllDirectoryA", AsProc(SetDllDirectoryA), 0x0501},
    {"kernel32.dll", "SetDefaultDllDirectories", AsProc(SetDefaultDllDirectories), 0x0602},
    {"version.dll", "GetFileVersionInfoA", AsProc(GetFileVersionInfoA), 0x0500},
    {"version.dll", "VerQueryValueA", AsProc(VerQueryValueA), 0x0500},
};

} // namespace simwin
