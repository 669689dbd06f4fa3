#include "support/temp_dir.h"

#include <cstdlib>
#include <fstream>
#include <ranges>
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
  std::vector<std::string> lines;
  for (const auto line : std::views::split(ReadFile(path), std::string_view("\r\n"))) {
    lines.emplace_back(line.begin(), line.end());
  }
  if (!lines.empty() && lines.back().empty()) lines.pop_back();  // the CR LF that ends the last line
  return lines;
}

}  // namespace halqvantor::testing
