// The local blob folder: every file the component reads or writes for a page lies directly in it.

#include <string>
#include <string_view>

#include "documents/document_files.h"
#include "platform/files.h"

namespace halqvantor {

std::string documents::LocalBlobPath(const LinkSession& d, std::string_view name) {
  if (d.self.strBlobPathLocal.empty()) {
    throw RuntimeError(ErrorNumber::kPathNotFound, "Path not found: no local blob folder set");
  }
  if (!platform::IsPlainFileName(name)) throw RuntimeError(ErrorNumber::kPathFileAccessError);
  return platform::JoinPath(d.self.strBlobPathLocal, name);
}

}  // namespace halqvantor
