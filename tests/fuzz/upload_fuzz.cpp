// The browser upload fed arbitrary posted bodies: UploadFile either stores one file in the local blob
// folder, with the size it reports and a name without folders, or answers false; it never writes
// anywhere else.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "halqvantor/PageEngine.h"
#include "halqvantor/clsVantor.h"
#include "support/temp_dir.h"

namespace fs = std::filesystem;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static halqvantor::testing::TempDir blob;
  halqvantor::clsVantor v;
  v.strBlobPathLocal = blob.path();
  v.OnStartPage(std::make_shared<halqvantor::MemoryScriptingContext>(
      std::make_shared<halqvantor::MemoryPageRequest>(std::vector<uint8_t>(data, data + size))));
  halqvantor::Variant name, stored_size;
  const bool stored = v.UploadFile(halqvantor::Variant::missing(), &name, &stored_size);

  size_t files = 0;
  for (const fs::directory_entry& entry : fs::directory_iterator(blob.path())) {
    ++files;
    if (!stored || !entry.is_regular_file()) std::abort();
    const auto bytes = static_cast<int64_t>(entry.file_size());
    if (bytes != stored_size.ToLong() || bytes < 1 || static_cast<size_t>(bytes) > size) std::abort();
    fs::remove(entry.path());
  }
  if (stored && files != 1) std::abort();
  return 0;
}
