#include "platform/files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "platform/installed.h"

namespace halqvantor::platform {
namespace {

class PosixFileSystem final : public FileSystem {
 public:
  int AppendToFile(const std::string& path, std::string_view bytes) override {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (fd < 0) return ErrorFromErrno(errno);
    int result = 0;
    size_t written = 0;
    while (written < bytes.size()) {
      const ssize_t n = ::write(fd, bytes.data() + written, bytes.size() - written);
      if (n < 0) {
        if (errno == EINTR) continue;
        result = ErrorFromErrno(errno);
        break;
      }
      written += static_cast<size_t>(n);
    }
    if (::close(fd) != 0 && result == 0) result = ErrorFromErrno(errno);
    return result;
  }
};

}  // namespace

FileSystem* FileSystem::Default() {
  static PosixFileSystem fs;
  return &fs;
}

FileSystem& CurrentFileSystem() { return Installed<FileSystem>::Current(); }

FileSystem* InstallFileSystem(FileSystem* fs) { return Installed<FileSystem>::Install(fs); }

int ErrorFromErrno(int err) {
  switch (err) {
    case ENOENT:
    case ENOTDIR:
      return 76;  // Path not found (a missing file itself is reported by the caller as 53)
    case EACCES:
    case EPERM:
    case EROFS:
    case ETXTBSY:
      return 70;  // Permission denied
    case EEXIST:
      return 58;  // File already exists
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      return 61;  // Disk full
    case EMFILE:
    case ENFILE:
      return 67;  // Too many files
    case EIO:
      return 57;  // Device I/O error
    case EBADF:
      return 52;  // Bad file name or number
    case ENAMETOOLONG:
    case EINVAL:
      return 52;
    default:
      return 75;  // Path/File access error
  }
}

std::string JoinPath(std::string_view folder, std::string_view name) {
  std::string path(folder);
  path += '/';
  path += name;
  return path;
}

bool IsPlainFileName(std::string_view name) {
  if (name.empty() || name == "." || name == "..") return false;
  return name.find_first_of(std::string_view("/\\\0", 3)) == std::string_view::npos;
}

}  // namespace halqvantor::platform
