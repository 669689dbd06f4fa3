#include "platform/files.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "halqvantor/RuntimeError.h"
#include "platform/installed.h"

namespace halqvantor::platform {
namespace {

int WriteAll(int fd, std::string_view bytes) {
  size_t written = 0;
  while (written < bytes.size()) {
    const ssize_t n = ::write(fd, bytes.data() + written, bytes.size() - written);
    if (n < 0) {
      if (errno == EINTR) continue;
      return ErrorFromErrno(errno);
    }
    written += static_cast<size_t>(n);
  }
  return 0;
}

class PosixWritableFile final : public WritableFile {
 public:
  explicit PosixWritableFile(int fd) : fd_(fd) {}
  ~PosixWritableFile() override { (void)Close(); }

  int Write(std::string_view bytes) override { return fd_ < 0 ? 52 : WriteAll(fd_, bytes); }

  int Close() override {
    if (fd_ < 0) return 0;
    const int rc = ::close(fd_);
    fd_ = -1;
    return rc == 0 ? 0 : ErrorFromErrno(errno);
  }

 private:
  int fd_;
};

class PosixFileSystem final : public FileSystem {
 public:
  int OpenForBinaryWrite(const std::string& path, std::unique_ptr<WritableFile>* file) override {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) return ErrorFromErrno(errno);
    *file = std::make_unique<PosixWritableFile>(fd);
    return 0;
  }

  int AppendToFile(const std::string& path, std::string_view bytes) override {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (fd < 0) return ErrorFromErrno(errno);
    int result = WriteAll(fd, bytes);
    if (::close(fd) != 0 && result == 0) result = ErrorFromErrno(errno);
    return result;
  }
};

constexpr int kMaxFileNumber = 255;

std::array<std::unique_ptr<WritableFile>, kMaxFileNumber + 1>& OpenFiles() {
  thread_local std::array<std::unique_ptr<WritableFile>, kMaxFileNumber + 1> files;
  return files;
}

WritableFile& OpenFileOf(int number) {
  if (number < 1 || number > kMaxFileNumber || !OpenFiles()[static_cast<size_t>(number)]) {
    throw RuntimeError(ErrorNumber::kBadFileNameOrNumber);
  }
  return *OpenFiles()[static_cast<size_t>(number)];
}

}  // namespace

FileSystem* FileSystem::Default() {
  static PosixFileSystem fs;
  return &fs;
}

FileSystem& CurrentFileSystem() { return Installed<FileSystem>::Current(); }

FileSystem* InstallFileSystem(FileSystem* fs) { return Installed<FileSystem>::Install(fs); }

int FreeFile() {
  for (int n = 1; n <= kMaxFileNumber; ++n) {
    if (!OpenFiles()[static_cast<size_t>(n)]) return n;
  }
  throw RuntimeError(67);
}

void OpenFileForBinaryWrite(int number, const std::string& path) {
  if (number < 1 || number > kMaxFileNumber) throw RuntimeError(ErrorNumber::kBadFileNameOrNumber);
  auto& slot = OpenFiles()[static_cast<size_t>(number)];
  if (slot) throw RuntimeError(ErrorNumber::kFileAlreadyOpen);
  std::unique_ptr<WritableFile> file;
  const int rc = CurrentFileSystem().OpenForBinaryWrite(path, &file);
  if (rc != 0) throw RuntimeError(rc);
  slot = std::move(file);
}

void WriteToFile(int number, std::string_view bytes) {
  const int rc = OpenFileOf(number).Write(bytes);
  if (rc != 0) throw RuntimeError(rc);
}

void CloseFile(int number) {
  if (!IsFileOpen(number)) return;
  std::unique_ptr<WritableFile> file = std::move(OpenFiles()[static_cast<size_t>(number)]);
  const int rc = file->Close();
  if (rc != 0) throw RuntimeError(rc);
}

bool IsFileOpen(int number) {
  return number >= 1 && number <= kMaxFileNumber && OpenFiles()[static_cast<size_t>(number)] != nullptr;
}

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
