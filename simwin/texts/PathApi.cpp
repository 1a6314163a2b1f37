// Paths as texts, environment variables in texts, and code pages.

#include "simwin/kernel/Call.h"
#include "simwin/kernel/Process.h"
#include "simwin/kernel/Text.h"
#include "simwin/texts/Environment.h"
#include "simwin/texts/api.h"

#include <algorithm>
#include <cstring>

namespace machine {

// What ".." cannot climb over: "\", "X:\" or nothing.
static std::size_t RootLength(std::string_view path) {
    if (path.size() >= 2 && path[1] == ':') {
        return path.size() > 2 && path[2] == '\\' ? 3 : 2;
    }
    if (path.starts_with("\\\\")) {
        return 2;
    }
    return path.starts_with('\\') ? 1 : 0;
}

static std::string Canonical(std::string_view path) {
    const std::size_t rootLength = RootLength(path);
    std::string root(path.substr(0, rootLength));
    std::vector<std::string> kept;
    const std::vector<std::string> names = Split(path.substr(rootLength), '\\');
    for (std::size_t i = 0; i < names.size(); ++i) {
        const bool last = i + 1 == names.size();
        if (names[i] == "." && !last) {
            continue;
        }
        if (names[i] == "..") {
            if (root.empty() && kept.size() < 2) {
                root = "\\"; // a relative path that climbs too far continues at the root
            }
            if (!kept.empty()) {
                kept.pop_back();
            }
            continue;
        }
        kept.push_back(names[i]);
    }
    std::string result = root;
    for (std::size_t i = 0; i < kept.size(); ++i) {
        result += (i ? "\\" : "") + kept[i];
    }
    if (result.empty()) {
        return "\\";
    }
    return result.size() == 2 && result[1] == ':' ? result + "\\" : result;
}

constexpr simwin::UINT Western = 1252;
constexpr simwin::DWORD NameTooLong = 206;

static void CheckCodePage(const char* call, simwin::UINT codePage) {
    if (codePage != simwin::CP_ACP && codePage != simwin::CP_THREAD_ACP && codePage != Western) {
        NotModelled(call, "code page " + std::to_string(codePage));
    }
}

static int FailWith(simwin::DWORD error) {
    SetError(error);
    return 0;
}

} // namespace machine

namespace simwin {

using namespace machine;

BOOL PathCanonicalizeA(LPSTR to, LPCSTR path) {
    SIM_CALL("PathCanonicalizeA", "");
    if (to) {
        *to = 0;
    }
    if (!to || !path) {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    if (std::strlen(path) >= MAX_PATH) {
        return FailWith(NameTooLong);
    }
    const std::string result = Canonical(path);
    if (result.size() >= MAX_PATH) {
        return FailWith(NameTooLong);
    }
    std::memcpy(to, result.c_str(), result.size() + 1);
    return TRUE;
}

void PathUnquoteSpacesA(LPSTR path) {
    SIM_CALL("PathUnquoteSpacesA", "");
    const std::size_t length = path ? std::strlen(path) : 0;
    if (!length || path[0] != '"' || path[length - 1] != '"') {
        return;
    }
    path[length - 1] = 0;
    if (length > 1) {
        std::memmove(path, path + 1, length - 1);
    }
}

LPSTR PathGetArgsA(LPCSTR path) {
    SIM_CALL("PathGetArgsA", path);
    bool isQuoted = false;
    for (; *path; ++path) {
        if (*path == ' ' && !isQuoted) {
            return const_cast<LPSTR>(path + 1);
        }
        if (*path == '"') {
            isQuoted = !isQuoted;
        }
    }
    return const_cast<LPSTR>(path);
}

DWORD ExpandEnvironmentStringsA(LPCSTR text, LPSTR buffer, DWORD size) {
    SIM_CALL("ExpandEnvironmentStringsA", text);
    const std::string result = ExpandEnvironment(text ? text : "");
    const auto needed = static_cast<DWORD>(result.size() + 1);
    if (needed <= size) {
        std::memcpy(buffer, result.c_str(), needed);
    } else {
        if (size) {
            std::memcpy(buffer, result.data(), size - 1);
            buffer[size - 1] = 0;
        }
        SetError(ERROR_INSUFFICIENT_BUFFER);
    }
    return needed;
}

int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wide, int characters, LPSTR text, int bytes,
                        LPCSTR defaultCharacter, LPBOOL usedDefault) {
    SIM_CALL("WideCharToMultiByte", "", ERROR_NO_UNICODE_TRANSLATION);
    CheckCodePage("WideCharToMultiByte", codePage);
    if (flags) {
        NotModelled("WideCharToMultiByte", "flags");
    }
    if (simCall.error) {
        return FailWith(simCall.error);
    }
    if (!wide || characters == 0 || bytes < 0 || (bytes > 0 && !text)) {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    std::u16string source;
    for (int i = 0; characters < 0 || i < characters; ++i) {
        source.push_back(static_cast<char16_t>(wide[i]));
        if (characters < 0 && !wide[i]) {
            break;
        }
    }
    std::string result;
    bool lossy = false;
    if (!defaultCharacter) {
        result = AnsiFromUtf16(source, &lossy);
    }
    for (std::size_t i = 0; defaultCharacter && i < source.size(); ++i) {
        bool lost = false;
        const std::string one = AnsiFromUtf16({&source[i], 1}, &lost);
        result += lost ? *defaultCharacter : one.front();
        lossy = lossy || lost;
    }
    if (usedDefault) {
        *usedDefault = lossy;
    }
    const int needed = static_cast<int>(result.size());
    if (bytes == 0) {
        return needed;
    }
    std::memcpy(text, result.data(), static_cast<std::size_t>(std::min(needed, bytes))); // what fits
    return needed <= bytes ? needed : FailWith(ERROR_INSUFFICIENT_BUFFER);
}

int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int bytes, LPWSTR wide, int characters) {
    SIM_CALL("MultiByteToWideChar", "");
    CheckCodePage("MultiByteToWideChar", codePage);
    if (flags) {
        NotModelled("MultiByteToWideChar", "flags");
    }
    if (!text || bytes == 0 || characters < 0 || (characters > 0 && !wide)) {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    const int needed = bytes < 0 ? static_cast<int>(std::strlen(text)) + 1 : bytes;
    if (characters == 0) {
        return needed;
    }
    for (int i = 0; i < std::min(needed, characters); ++i) {
        wide[i] = static_cast<WCHAR>(Utf16FromAnsiByte(static_cast<unsigned char>(text[i])));
    }
    return needed <= characters ? needed : FailWith(ERROR_INSUFFICIENT_BUFFER);
}

UINT GetACP() {
    SIM_CALL("GetACP", "");
    return Western;
}

} // namespace simwin
