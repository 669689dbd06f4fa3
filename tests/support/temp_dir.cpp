#include "support/temp_dir.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace halqvantor::testing {

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "halqvantor-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ec;
  std::filesystem::remove_all(path_, ec);
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

void WriteFile(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << bytes;
}

std::vector<std::string> ReadLines(const std::string& path) {
  const std::string text = ReadFile(path);
  std::vector<std::string> lines;
  for (size_t start = 0, end = 0; start < text.size(); start = end + 2) {
    end = std::min(text.find("\r\n", start), text.size());
    lines.push_back(text.substr(start, end - start));
  }
  return lines;
}

}  // namespace halqvantor::testing
