// The gateway's import-file reader fed arbitrary files: ParseImportFile answers with descriptions or a
// GatewayError (bad import file), and every description it gives has as many values as field groups.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "import_file.h"
#include "status.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace halqvantor::gateway;
  try {
    const auto descriptions = ParseImportFile(std::string_view(reinterpret_cast<const char*>(data), size));
    if (descriptions.empty()) std::abort();  // an empty file is an error, not an empty list
  } catch (const GatewayError& e) {
    if (e.code() != kBadImportFile) std::abort();
  }
  return 0;
}
