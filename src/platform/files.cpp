#include "platform/files.h"

#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "halqvantor/RuntimeError.h"
#include "platform/cp1252.h"
#include "platform/wildcard.h"

namespace halqvantor::platform {
namespace {

// The number a FileSystem call answers for a failure.
constexpr int Code(ErrorNumber number) { return static_cast<int>(number); }

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

  int Write(std::string_view bytes) override {
    return fd_ < 0 ? Code(ErrorNumber::kBadFileNameOrNumber) : WriteAll(fd_, bytes);
  }

  int Close() override {
    if (fd_ < 0) return 0;
    const int rc = ::close(fd_);
    fd_ = -1;
    return rc == 0 ? 0 : ErrorFromErrno(errno);
  }

  int Descriptor() const override { return fd_; }

 private:
  int fd_;
};

// The error of a call that names one file: a missing file is "File not found" there.
int FileErrorFromErrno(int err) { return err == ENOENT ? Code(ErrorNumber::kFileNotFound) : ErrorFromErrno(err); }

// A folder where a file was meant.
constexpr int kNotAFile = Code(ErrorNumber::kPathFileAccessError);

class PosixReadableFile final : public ReadableFile {
 public:
  explicit PosixReadableFile(int fd) : fd_(fd) {}
  ~PosixReadableFile() override { ::close(fd_); }

  int Read(char* buffer, size_t capacity, size_t* count) override {
    for (;;) {
      const ssize_t n = ::read(fd_, buffer, capacity);
      if (n >= 0) {
        *count = static_cast<size_t>(n);
        return 0;
      }
      if (errno != EINTR) return ErrorFromErrno(errno);
    }
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

  int AppendToPrivateFile(const std::string& path, std::string_view bytes) override {
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (fd < 0 && errno == ENOENT) {
      const size_t slash = path.rfind('/');
      if (slash == std::string::npos || slash == 0) return ErrorFromErrno(ENOENT);
      if (::mkdir(path.substr(0, slash).c_str(), 0700) != 0 && errno != EEXIST) return ErrorFromErrno(errno);
      fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    }
    if (fd < 0) return ErrorFromErrno(errno);
    int result = WriteAll(fd, bytes);
    if (::close(fd) != 0 && result == 0) result = ErrorFromErrno(errno);
    return result;
  }

  int OpenForRead(const std::string& path, std::unique_ptr<ReadableFile>* file) override {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return FileErrorFromErrno(errno);
    struct stat st {};
    if (::fstat(fd, &st) != 0 || S_ISDIR(st.st_mode)) {
      ::close(fd);
      return kNotAFile;
    }
    *file = std::make_unique<PosixReadableFile>(fd);
    return 0;
  }

  int FileSize(const std::string& path, int64_t* size) override {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) return FileErrorFromErrno(errno);
    if (S_ISDIR(st.st_mode)) return kNotAFile;
    *size = static_cast<int64_t>(st.st_size);
    return 0;
  }

  bool FileExists(const std::string& path) override {
    struct stat st {};
    return ::lstat(path.c_str(), &st) == 0 && !S_ISDIR(st.st_mode);
  }

  int DeleteFile(const std::string& path) override {
    if (::unlink(path.c_str()) == 0) return 0;
    return errno == EISDIR ? kNotAFile : FileErrorFromErrno(errno);
  }

  int RenameWithoutReplacing(const std::string& from, const std::string& to) override {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS) return FileErrorFromErrno(errno);
    // A file system without the atomic form: look first, then rename.
    struct stat st {};
    if (::lstat(to.c_str(), &st) == 0) return ErrorFromErrno(EEXIST);
    if (::rename(from.c_str(), to.c_str()) == 0) return 0;
    return FileErrorFromErrno(errno);
  }

  int ListFolder(const std::string& folder, std::vector<FolderEntry>* entries) override {
    const std::string dir_path = folder.empty() ? "." : folder;
    DIR* dir = ::opendir(dir_path.c_str());
    if (dir == nullptr) return ErrorFromErrno(errno);
    entries->clear();
    errno = 0;
    while (const dirent* e = ::readdir(dir)) {
      const std::string_view name = e->d_name;
      if (name == "." || name == "..") continue;
      FolderEntry entry{std::string(name), e->d_type == DT_DIR};
      if (e->d_type == DT_UNKNOWN) {
        struct stat st {};
        entry.is_folder = ::fstatat(::dirfd(dir), e->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(st.st_mode);
      }
      entries->push_back(std::move(entry));
    }
    const int err = errno;
    ::closedir(dir);
    return err == 0 ? 0 : ErrorFromErrno(err);
  }

  int RemoveFolder(const std::string& path) override { return ::rmdir(path.c_str()) == 0 ? 0 : ErrorFromErrno(errno); }
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

int FreeFile() {
  for (int n = 1; n <= kMaxFileNumber; ++n) {
    if (!OpenFiles()[static_cast<size_t>(n)]) return n;
  }
  throw RuntimeError(ErrorNumber::kTooManyFiles);
}

void OpenFileForBinaryWrite(FileSystem& fs, int number, const std::string& path) {
  if (number < 1 || number > kMaxFileNumber) throw RuntimeError(ErrorNumber::kBadFileNameOrNumber);
  auto& slot = OpenFiles()[static_cast<size_t>(number)];
  if (slot) throw RuntimeError(ErrorNumber::kFileAlreadyOpen);
  std::unique_ptr<WritableFile> file;
  Check(fs.OpenForBinaryWrite(path, &file));
  slot = std::move(file);
}

void WriteToFile(int number, std::string_view bytes) { Check(OpenFileOf(number).Write(bytes)); }

WritableFile* OpenFileAt(int number) {
  return IsFileOpen(number) ? OpenFiles()[static_cast<size_t>(number)].get() : nullptr;
}

void CloseFile(int number) {
  if (!IsFileOpen(number)) return;
  std::unique_ptr<WritableFile> file = std::move(OpenFiles()[static_cast<size_t>(number)]);
  Check(file->Close());
}

void Check(int error_number) {
  if (error_number != 0) throw RuntimeError(error_number);
}

bool IsFileOpen(int number) {
  return number >= 1 && number <= kMaxFileNumber && OpenFiles()[static_cast<size_t>(number)] != nullptr;
}

int ErrorFromErrno(int err) {
  switch (err) {
    case ENOENT:
    case ENOTDIR:
      // A missing file itself is reported by the caller as kFileNotFound.
      return Code(ErrorNumber::kPathNotFound);
    case EACCES:
    case EPERM:
    case EROFS:
    case ETXTBSY:
      return Code(ErrorNumber::kPermissionDenied);
    case EEXIST:
      return Code(ErrorNumber::kFileAlreadyExists);
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      return Code(ErrorNumber::kDiskFull);
    case EMFILE:
    case ENFILE:
      return Code(ErrorNumber::kTooManyFiles);
    case EIO:
      return Code(ErrorNumber::kDeviceIoError);
    case EBADF:
    case ENAMETOOLONG:
    case EINVAL:
      return Code(ErrorNumber::kBadFileNameOrNumber);
    default:
      return Code(ErrorNumber::kPathFileAccessError);
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

bool MatchesWildcard(std::string_view name, std::string_view pattern) {
  if (pattern == "*.*") pattern = "*";
  std::u32string n, p;
  for (size_t pos = 0; pos < name.size();) n.push_back(NextUtf8Char(name, pos));
  for (size_t pos = 0; pos < pattern.size();) p.push_back(NextUtf8Char(pattern, pos));
  return MatchStars<char32_t>(n, p, [](char32_t want, char32_t got) { return want == U'?' || want == got; });
}

}  // namespace halqvantor::platform
