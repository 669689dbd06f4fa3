// The gateway's request reader fed arbitrary byte streams cut into arbitrary reads. The first input byte
// seeds the read sizes (1 to 64 bytes each, as TCP may cut them); the rest is the stream. A complete
// request names a known command with its argument count (an upload carries exactly the bytes it
// announced); the reader never holds more than its limits allow.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/fuzz_check.h"
#include "request_reader.h"

namespace {

constexpr size_t kMaxRequest = 4096;
constexpr size_t kMaxUpload = 4096;
using halqvantor::fuzz::Require;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace halqvantor::gateway;
  if (size < 1) return 0;
  uint32_t seed = data[0] * 2654435761u + 1;
  std::string_view stream(reinterpret_cast<const char*>(data) + 1, size - 1);

  RequestReader reader(kMaxRequest, kMaxUpload);
  RequestReader::State state = RequestReader::State::kNeedMore;
  while (!stream.empty()) {
    seed = seed * 1103515245u + 12345u;
    const size_t take = std::min<size_t>(stream.size(), 1 + (seed >> 16) % 64);
    const RequestReader::State before = state;
    state = reader.Feed(stream.substr(0, take));
    stream.remove_prefix(take);
    if (before != RequestReader::State::kNeedMore) Require(state == before);  // complete or failed stays
    Require(reader.buffered() <= kMaxRequest + kMaxUpload + 64 + 2);
  }

  if (state == RequestReader::State::kFailed) {
    Require(reader.error_code() != 0 && !reader.error_text().empty());
  } else if (state == RequestReader::State::kComplete) {
    const Request& r = reader.request();
    const CommandInfo* info = FindCommand(r.command);
    Require(info != nullptr);
    Require(r.args.size() == static_cast<size_t>(info->arguments));
    if (r.command == "UploadFile") {
      Require(r.body.size() == std::stoull(r.args[2]));
    } else {
      Require(r.body.empty());
    }
  }
  return 0;
}
