#pragma once

// Every file the component touches goes through the FileSystem of its object's environment (platform/env.h),
// so a test can inject faults.
// Errors are VB run-time error numbers (53 file not found, 70 permission denied, 75 path/file access error,
// 76 path not found, 61 disk full, ...), mapped from errno in one place (ErrorFromErrno).

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace halqvantor::platform {

// A file open for writing raw bytes.
class WritableFile {
 public:
  virtual ~WritableFile() = default;
  // Writes `bytes` at the current position and moves the position past them. 0, else the error number.
  virtual int Write(std::string_view bytes) = 0;
  // 0, else the error number. The file is closed either way.
  virtual int Close() = 0;
  // The system's descriptor of the file, so that a network can move received bytes into it at its position
  // without copying them through memory (Network::ReceiveToFile); -1 (the default) for a file that is not
  // the system's, which takes its bytes through Write only.
  virtual int Descriptor() const { return -1; }
};

// A file open for reading raw bytes from its first byte on.
class ReadableFile {
 public:
  virtual ~ReadableFile() = default;
  // Reads up to `capacity` bytes into `buffer`, setting `*count` (0 at the end of the file). 0, else the
  // error number.
  virtual int Read(char* buffer, size_t capacity, size_t* count) = 0;
};

// One entry of a folder listing.
struct FolderEntry {
  std::string name;
  bool is_folder = false;  // a folder itself, not a link to one
};

// Every call answers 0 on success, else the VB error number of the failure; a missing file is 53 (File not
// found) for the calls that name one existing file (read, size, delete, rename).
class FileSystem {
 public:
  virtual ~FileSystem() = default;
  // Opens `path` for appending (creating it), writes `bytes`, closes it.
  virtual int AppendToFile(const std::string& path, std::string_view bytes) = 0;
  // AppendToFile for a file that may hold secrets: a new file is readable and writable by its owner only,
  // and a missing folder of it (only the last one) is first made open to its owner only.
  virtual int AppendToPrivateFile(const std::string& path, std::string_view bytes) = 0;
  // Opens `path` for writing raw bytes from its first byte on, creating it when it is missing and keeping
  // its length (bytes past what is written stay); `*file` is set on success.
  virtual int OpenForBinaryWrite(const std::string& path, std::unique_ptr<WritableFile>* file) = 0;
  // Opens the file `path` for reading; `*file` is set on success. A folder is not a file (75).
  virtual int OpenForRead(const std::string& path, std::unique_ptr<ReadableFile>* file) = 0;
  // The length in bytes of the file `path`. A folder is not a file (75).
  virtual int FileSize(const std::string& path, int64_t* size) = 0;
  // True when `path` names something that is not a folder.
  virtual bool FileExists(const std::string& path) = 0;
  // Deletes the file `path` (a link itself, never what it points to). A folder is not a file (75).
  virtual int DeleteFile(const std::string& path) = 0;
  // Renames `from` to `to`, never replacing an existing `to` (58 then).
  virtual int RenameWithoutReplacing(const std::string& from, const std::string& to) = 0;
  // The entries of `folder` ("" is the current folder) in the order the system lists them, without "." and
  // "..". `*entries` is replaced.
  virtual int ListFolder(const std::string& folder, std::vector<FolderEntry>* entries) = 0;
  // Removes the empty folder `path`.
  virtual int RemoveFolder(const std::string& path) = 0;

  // The real file system.
  static FileSystem* Default();
};

// The calling thread's files opened by number, 1 .. 255, as a page script opens them ("Open ... As #n").
// Failures raise RuntimeError with the VB error number: 52 for a number outside 1 .. 255 or not open,
// 55 for a number already open, 67 when all numbers are taken, and the file system's errors.
int FreeFile();
// The file is opened through `fs`.
void OpenFileForBinaryWrite(FileSystem& fs, int number, const std::string& path);
void WriteToFile(int number, std::string_view bytes);
// The file open under `number`, or nullptr when none is.
WritableFile* OpenFileAt(int number);
// Closes the file; a number that is not open is left alone. Raises the error of the final close.
void CloseFile(int number);
bool IsFileOpen(int number);

// The VB run-time error number for an errno value.
int ErrorFromErrno(int err);
// Raises RuntimeError(error_number) unless it is 0: a FileSystem call's answer as the error a page sees.
void Check(int error_number);

// folder + "/" + name: local paths join with "/".
std::string JoinPath(std::string_view folder, std::string_view name);
// True for a name that stays inside its folder: not empty, not "." or "..", no "/" or "\" and no NUL.
bool IsPlainFileName(std::string_view name);
// True when `name` matches `pattern`, in which "*" stands for any run of characters (none too) and "?" for
// exactly one; everything else matches itself, letter case included. "*.*" matches every name, dot or not.
bool MatchesWildcard(std::string_view name, std::string_view pattern);

}  // namespace halqvantor::platform
