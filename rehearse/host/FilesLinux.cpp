#include "rehearse/host/Files.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace rehearse {

namespace fs = std::filesystem;

FileKind KindOfFile(const std::string& path) {
    std::error_code error;
    switch (fs::status(path, error).type()) {
    case fs::file_type::none:
    case fs::file_type::not_found:
        return FileKind::None;
    case fs::file_type::regular:
        return FileKind::File;
    case fs::file_type::fifo:
        return FileKind::Pipe;
    case fs::file_type::directory:
        return FileKind::Folder;
    default:
        return FileKind::Other;
    }
}

std::string RealPath(const std::string& path) {
    std::error_code error;
    const fs::path real = fs::canonical(path, error);
    return error ? "" : real.string();
}

std::string KeyOfFile(const std::string& path) {
    std::error_code error;
    const fs::path real = fs::weakly_canonical(path, error);
    return error ? path : real.string();
}

std::string PathBetween(const std::string& from, const std::string& to) {
    std::error_code error;
    return fs::proximate(to, from, error).string();
}

std::vector<FolderEntry> ListFolder(const std::string& path, std::string& error) {
    std::vector<FolderEntry> entries;
    std::error_code failure;
    for (fs::directory_iterator at(path, failure), end; !failure && at != end; at.increment(failure)) {
        std::error_code unknown;
        entries.push_back({at->path().filename().string(), at->is_directory(unknown), at->is_symlink(unknown)});
    }
    if (failure) {
        error = failure.message();
    }
    return entries;
}

bool MakeFolders(const std::string& path, std::string& error) {
    std::error_code failure;
    fs::create_directories(path, failure);
    if (failure) {
        error = failure.message();
    }
    return !failure;
}

bool MoveOver(const std::string& from, const std::string& to) {
    std::error_code error;
    fs::rename(from, to, error);
    return !error;
}

void RemoveFile(const std::string& path) {
    std::error_code error;
    fs::remove(path, error);
}

FileLock::~FileLock() {
    if (m_file >= 0) {
        close(static_cast<int>(m_file));
    }
}

bool FileLock::Take(const std::string& path) {
    m_file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    return m_file < 0 || flock(static_cast<int>(m_file), LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK;
}

fs::path StreamPath(const std::string& path) {
    return path;
}

} // namespace rehearse
