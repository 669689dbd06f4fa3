// The password encoding fed arbitrary texts: Decode of any text either answers or raises a run-time error,
// and Encode followed by Decode gives back every text the format can carry (each character's code plus
// its position at most 173, the characters in the code page).

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "halqvantor/RuntimeError.h"
#include "link/text_encoding.h"
#include "platform/cp1252.h"

namespace {

constexpr int kLastLosslessSum = 173;

bool RoundTrips(std::string_view text) {
  const std::string codes = halqvantor::platform::Utf8ToCp1252(text);
  if (halqvantor::platform::Cp1252ToUtf8(codes) != text) return false;  // not all in the code page
  for (size_t i = 0; i < codes.size(); ++i) {
    if (static_cast<uint8_t>(codes[i]) + static_cast<int>(i) + 1 > kLastLosslessSum) return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  try {
    (void)halqvantor::DecodeText(text);
  } catch (const halqvantor::RuntimeError&) {
    // A text Encode cannot have written.
  }
  if (RoundTrips(text)) {
    std::string encoded;
    try {
      encoded = halqvantor::EncodeText(text);
    } catch (const halqvantor::RuntimeError&) {
      std::abort();  // every lossless text encodes
    }
    if (encoded.size() != 2 * halqvantor::platform::Utf8ToCp1252(text).size()) std::abort();
    if (halqvantor::DecodeText(encoded) != text) std::abort();
  }
  return 0;
}
