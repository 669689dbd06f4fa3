#pragma once

// Every file the component touches goes through the installed FileSystem, so a test can inject faults.
// Errors are VB run-time error numbers (53 file not found, 70 permission denied, 75 path/file access error,
// 76 path not found, 61 disk full, ...), mapped from errno in one place (ErrorFromErrno).

#include <string>
#include <string_view>

namespace halqvantor::platform {

class FileSystem {
 public:
  virtual ~FileSystem() = default;
  // Opens `path` for appending (creating it), writes `bytes`, closes it. 0 on success, else the error number.
  virtual int AppendToFile(const std::string& path, std::string_view bytes) = 0;

  // The real file system.
  static FileSystem* Default();
};

// The installed file system: the default one unless a test installed its own.
FileSystem& CurrentFileSystem();
// Installs `fs` for the whole process (nullptr restores the default); returns the one it replaces.
FileSystem* InstallFileSystem(FileSystem* fs);

// The VB run-time error number for an errno value.
int ErrorFromErrno(int err);

// folder + "/" + name: local paths join with "/".
std::string JoinPath(std::string_view folder, std::string_view name);
// True for a name that stays inside its folder: not empty, not "." or "..", no "/" or "\" and no NUL.
bool IsPlainFileName(std::string_view name);

}  // namespace halqvantor::platform
