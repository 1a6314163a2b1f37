#include "simwin/kernel/Image.h"

#include "simwin/kernel/Rules.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <system_error>
#include <utility>
#include <vector>

#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

namespace machine {

constexpr std::uint64_t WindowsImageBase = 0x140000000ull; // the preferred base of a 64-bit executable

namespace {
struct Range {
    char* start;
    std::vector<char> pristine;
};
} // namespace

static std::map<std::string, std::vector<Image*>> g_pool; // by the file that they are copies of
static std::vector<Image*> g_images;
static std::string g_hostFailure;
static std::string g_prepared; // a copy that no image has taken yet
static std::string g_folder;   // holds the copies until the end of the run: the sanitizers read line numbers from them

struct Image {
    std::string file, copy;
    void* library = nullptr;
    char *base = nullptr, *end = nullptr;
    std::vector<Range> writable;
};

// Plain bytes, redzones of instrumented globals included: neither the copy nor the restore may be checked.
[[gnu::no_sanitize_address, gnu::noinline]] static void CopyBytes(char* to, const char* from, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        reinterpret_cast<volatile char*>(to)[i] = reinterpret_cast<const volatile char*>(from)[i];
    }
}

static int FindSegments(dl_phdr_info* info, std::size_t, void* parameter) {
    auto* image = static_cast<Image*>(parameter);
    if (!info->dlpi_name || image->copy != info->dlpi_name) {
        return 0;
    }
    image->base = reinterpret_cast<char*>(info->dlpi_addr);
    std::size_t readOnlyFrom = 0, readOnlyTo = 0;
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const auto& segment = info->dlpi_phdr[i];
        if (segment.p_type == PT_GNU_RELRO) {
            readOnlyFrom = segment.p_vaddr;
            readOnlyTo = (segment.p_vaddr + segment.p_memsz) & ~0xFFFul;
        }
    }
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const auto& segment = info->dlpi_phdr[i];
        if (segment.p_type != PT_LOAD) {
            continue;
        }
        std::size_t from = segment.p_vaddr;
        const std::size_t to = segment.p_vaddr + segment.p_memsz;
        image->end = std::max(image->end, image->base + to);
        if (!(segment.p_flags & PF_W)) {
            continue;
        }
        if (from >= readOnlyFrom && from < readOnlyTo) {
            from = readOnlyTo;
        }
        if (from < to) {
            Range range = {image->base + from, std::vector<char>(to - from)};
            CopyBytes(range.pristine.data(), range.start, range.pristine.size());
            image->writable.push_back(std::move(range));
        }
    }
    return 1;
}

static std::string CopyName(std::size_t number) {
    return g_folder + "/image" + std::to_string(number) + ".so";
}

// For the handler of signals, which may neither take memory nor touch a container: it can interrupt both.
static char g_folderForSignals[4096];
static volatile std::sig_atomic_t g_copiesMade;

// Ctrl-C and the like: nothing stays in the temporary folder.
static void RemoveFolderAndEnd(int signal) {
    RemoveImageFiles();
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

// "" if it was made.
static std::string MakeFolder() {
    std::error_code error;
    const char* described = std::getenv("TMPDIR");
    const bool isEmpty = described && !*described; // treated as none, as the shell's own tools do
    const std::filesystem::path temporary = isEmpty ? "/tmp" : std::filesystem::temp_directory_path(error);
    if (error) {
        return "the temporary folder (TMPDIR): " + error.message();
    }
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        if (std::signal(signal, RemoveFolderAndEnd) == SIG_IGN) {
            std::signal(signal, SIG_IGN);
        }
    }
    g_folder = (temporary / "quillmarch-images-XXXXXX").string();
    if (g_folder.size() >= sizeof(g_folderForSignals) || !mkdtemp(g_folder.data())) {
        g_folder.clear();
        return "no folder can be made in " + temporary.string() + ": " + std::strerror(errno);
    }
    g_copiesMade = 0;
    std::memcpy(g_folderForSignals, g_folder.c_str(), g_folder.size() + 1);
    return {};
}

static std::string MakeCopy(const std::string& file, const std::string& copy) {
    std::error_code error;
    g_copiesMade = g_copiesMade + 1; // before it exists, so that a signal finds it
    std::filesystem::copy_file(file, copy, error);
    return error ? "cannot copy the product's image " + file + ": " + error.message() : std::string();
}

static std::string CopyOf(const std::string& file) {
    if (!g_prepared.empty() && g_images.empty()) {
        return std::exchange(g_prepared, {});
    }
    g_hostFailure = g_folder.empty() ? MakeFolder() : std::string();
    const std::string copy = CopyName(g_images.size());
    if (g_hostFailure.empty()) {
        g_hostFailure = MakeCopy(file, copy);
    }
    if (!g_hostFailure.empty()) {
        StopRun(Verdict::Crash, g_hostFailure);
    }
    return copy;
}

std::string PrepareImages(const std::string& file) {
    std::string wrong = MakeFolder();
    if (!wrong.empty()) {
        return wrong;
    }
    g_prepared = CopyName(0);
    return MakeCopy(file, g_prepared);
}

const std::string& HostFailure() {
    return g_hostFailure;
}

Image* LoadImage(const std::string& file) {
    auto& pool = g_pool[file];
    if (!pool.empty()) {
        Image* image = pool.back();
        pool.pop_back();
        return image;
    }
    auto* image = new Image;
    image->file = file;
    image->copy = CopyOf(file);
    g_images.push_back(image);
    image->library = dlopen(image->copy.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!image->library) {
        StopRun(Verdict::Crash, std::string("cannot load the product's image: ") + dlerror());
    }
    dl_iterate_phdr(FindSegments, image);
    return image;
}

void ReturnImage(Image* image) {
    for (const Range& range : image->writable) {
        CopyBytes(range.start, range.pristine.data(), range.pristine.size());
    }
    g_pool[image->file].push_back(image);
}

void RemoveImageFiles() {
    for (int number = 0; number < g_copiesMade; ++number) {
        char path[sizeof(g_folderForSignals) + 32];
        char digits[12];
        int length = 0;
        for (int rest = number; rest > 0 || length == 0; rest /= 10) {
            digits[length++] = static_cast<char>('0' + rest % 10);
        }
        char* end = stpcpy(stpcpy(path, g_folderForSignals), "/image");
        while (length > 0) {
            *end++ = digits[--length];
        }
        std::memcpy(end, ".so", sizeof(".so"));
        unlink(path);
    }
    if (g_folderForSignals[0]) {
        rmdir(g_folderForSignals);
    }
}

void UnloadImages() {
    for (Image* image : g_images) {
        if (image->library) {
            dlclose(image->library);
        }
        delete image;
    }
    g_images.clear();
    g_pool.clear();
    g_prepared.clear();
    if (!g_folder.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(g_folder, ignored);
        g_folder.clear();
        g_folderForSignals[0] = '\0';
        g_copiesMade = 0;
    }
}

void* ImageSymbol(Image* image, const char* name) {
    return dlsym(image->library, name);
}

std::uint64_t StableImageAddress(const Image* image, const void* address) {
    const auto* at = static_cast<const char*>(address);
    if (!image || at < image->base || at >= image->end) {
        return 0;
    }
    return WindowsImageBase + static_cast<std::uint64_t>(at - image->base);
}

} // namespace machine
