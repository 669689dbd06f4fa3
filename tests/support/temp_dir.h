#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace halqvantor::testing {

// A fresh folder under the system's temporary folder, removed with everything in it at the end.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  std::string File(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// Whole-file helpers for assertions.
std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& bytes);
// The lines of a file split at CR LF (a last line without CR LF counts too).
std::vector<std::string> ReadLines(const std::string& path);

}  // namespace halqvantor::testing
