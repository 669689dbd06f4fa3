#pragma once

// Every file the component touches goes through the installed FileSystem, so a test can inject faults.
// Errors are VB run-time error numbers (53 file not found, 70 permission denied, 75 path/file access error,
// 76 path not found, 61 disk full, ...), mapped from errno in one place (ErrorFromErrno).

#include <memory>
#include <string>
#include <string_view>

namespace halqvantor::platform {

// A file open for writing raw bytes.
class WritableFile {
 public:
  virtual ~WritableFile() = default;
  // Writes `bytes` at the current position and moves the position past them. 0, else the error number.
  virtual int Write(std::string_view bytes) = 0;
  // 0, else the error number. The file is closed either way.
  virtual int Close() = 0;
};

class FileSystem {
 public:
  virtual ~FileSystem() = default;
  // Opens `path` for appending (creating it), writes `bytes`, closes it. 0 on success, else the error number.
  virtual int AppendToFile(const std::string& path, std::string_view bytes) = 0;
  // Opens `path` for writing raw bytes from its first byte on, creating it when it is missing and keeping
  // its length (bytes past what is written stay). 0 with `*file` set, else the error number.
  virtual int OpenForBinaryWrite(const std::string& path, std::unique_ptr<WritableFile>* file) = 0;

  // The real file system.
  static FileSystem* Default();
};

// The installed file system: the default one unless a test installed its own.
FileSystem& CurrentFileSystem();
// Installs `fs` for the whole process (nullptr restores the default); returns the one it replaces.
FileSystem* InstallFileSystem(FileSystem* fs);

// The calling thread's files opened by number, 1 .. 255, as a page script opens them ("Open ... As #n").
// Failures raise RuntimeError with the VB error number: 52 for a number outside 1 .. 255 or not open,
// 55 for a number already open, 67 when all numbers are taken, and the file system's errors.
int FreeFile();
void OpenFileForBinaryWrite(int number, const std::string& path);
void WriteToFile(int number, std::string_view bytes);
// Closes the file; a number that is not open is left alone. Raises the error of the final close.
void CloseFile(int number);
bool IsFileOpen(int number);

// The VB run-time error number for an errno value.
int ErrorFromErrno(int err);

// folder + "/" + name: local paths join with "/".
std::string JoinPath(std::string_view folder, std::string_view name);
// True for a name that stays inside its folder: not empty, not "." or "..", no "/" or "\" and no NUL.
bool IsPlainFileName(std::string_view name);

}  // namespace halqvantor::platform
