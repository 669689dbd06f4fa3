#pragma once

// The blob folder: where the gateway writes segment files, reads files for "TransferBLOB", stores uploads and
// finds import files. Requests name folders by the client's remote path, which keeps "\" as separator.
//
// Mapping a remote path (Windows-1252) to a local one: "\" becomes "/"; a path that begins with the blob
// folder's own absolute path names the part below it; any other absolute path (leading "/", a drive letter
// such as "C:", a UNC name) is refused; a relative path is taken below the blob folder. Empty and "."
// components are dropped; a ".." component is refused. Refusals are GatewayError kBadPath, so no request
// reaches a file outside the blob folder.

#include <filesystem>
#include <string>
#include <string_view>

namespace halqvantor::gateway {

class BlobFolder {
 public:
  // `root` must exist; it is made absolute and normal.
  explicit BlobFolder(const std::string& root);

  const std::filesystem::path& root() const { return root_; }
  // The local folder (or file) a remote path names.
  std::filesystem::path Resolve(std::string_view remote) const;
  // A plain file name (no separator, not "." or "..") inside a remote folder.
  std::filesystem::path ResolveFile(std::string_view remote_folder, std::string_view name) const;

 private:
  std::filesystem::path root_;
  std::string root_text_;  // generic form, no trailing "/"
};

// Whole files; failures are GatewayError kFileNotFound / kFileNotWritten. Writing creates missing folders.
std::string ReadWholeFile(const std::filesystem::path& path);
void WriteWholeFile(const std::filesystem::path& path, std::string_view bytes);

}  // namespace halqvantor::gateway
