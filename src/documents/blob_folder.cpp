// The local blob folder: every file the component reads or writes for a page lies directly in it.

#include <string>
#include <string_view>

#include "component/vantor_impl.h"
#include "platform/files.h"

namespace halqvantor {

std::string clsVantor::Impl::LocalBlobPath(std::string_view name) const {
  if (self.strBlobPathLocal.empty()) {
    throw RuntimeError(ErrorNumber::kPathNotFound, "Path not found: no local blob folder set");
  }
  if (!platform::IsPlainFileName(name)) throw RuntimeError(ErrorNumber::kPathFileAccessError);
  return platform::JoinPath(self.strBlobPathLocal, name);
}

}  // namespace halqvantor
