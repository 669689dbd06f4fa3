#include "blob_files.h"

#include <fstream>
#include <sstream>

#include "status.h"
#include "text.h"

namespace halqvantor::gateway {
namespace {

[[noreturn]] void BadPath(std::string_view remote) {
  throw GatewayError(kBadPath, StandardMessage(kBadPath) + (": " + std::string(remote)));
}

}  // namespace

BlobFolder::BlobFolder(const std::string& root)
    : root_(std::filesystem::weakly_canonical(std::filesystem::absolute(root))) {
  root_text_ = root_.generic_string();
  while (root_text_.size() > 1 && root_text_.back() == '/') root_text_.pop_back();
  root_ = root_text_;
}

std::filesystem::path BlobFolder::Resolve(std::string_view remote) const {
  std::string path = FromWire(remote);
  for (char& c : path) {
    if (c == '\\') c = '/';
  }
  if (path.find('\0') != std::string::npos) BadPath(remote);
  std::string_view rest = path;
  if (rest.starts_with(root_text_) && (rest.size() == root_text_.size() || rest[root_text_.size()] == '/')) {
    rest.remove_prefix(root_text_.size());
  } else if (rest.starts_with('/') || (rest.size() >= 2 && rest[1] == ':')) {
    BadPath(remote);
  }
  std::filesystem::path local = root_;
  size_t start = 0;
  while (start <= rest.size()) {
    size_t end = rest.find('/', start);
    if (end == std::string_view::npos) end = rest.size();
    const std::string_view part = rest.substr(start, end - start);
    if (part == "..") BadPath(remote);
    if (!part.empty() && part != ".") local /= std::string(part);
    start = end + 1;
  }
  return local;
}

std::filesystem::path BlobFolder::ResolveFile(std::string_view remote_folder, std::string_view name) const {
  if (name.empty() || name == "." || name == ".." || name.find_first_of("/\\") != std::string_view::npos ||
      name.find('\0') != std::string_view::npos) {
    BadPath(name);
  }
  return Resolve(remote_folder) / FromWire(name);
}

std::string ReadWholeFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::error_code ec;
  if (!in || !std::filesystem::is_regular_file(path, ec)) {
    throw GatewayError(kFileNotFound, StandardMessage(kFileNotFound) + (": " + ToWire(path.filename().string())));
  }
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

void WriteWholeFile(const std::filesystem::path& path, std::string_view bytes) {
  std::error_code ec;
  std::filesystem::create_directories(path.parent_path(), ec);
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  out.close();
  if (!out) {
    throw GatewayError(kFileNotWritten, StandardMessage(kFileNotWritten) + (": " + ToWire(path.filename().string())));
  }
}

}  // namespace halqvantor::gateway
