#include "link/text_encoding.h"

#include <cmath>

#include "halqvantor/clsVantor.h"
#include "platform/cp1252.h"
#include "platform/vb_runtime.h"

namespace halqvantor {
namespace {

// CInt of "&H"/"&O" + digits: the text must be a number of that radix, or the conversion fails (13).
int16_t ConvertPrefixed(std::string_view prefix, std::string_view digits) {
  std::string text(prefix);
  text += digits;
  const auto value = vb::ParseNumber(text);
  if (!value) vb::Raise(ErrorNumber::kTypeMismatch);
  return vb::ToInt16(*value);
}

}  // namespace

std::string EncodeText(std::string_view text) {
  // The characters as code page codes; a character outside the code page counts as "?".
  const std::string codes = platform::Utf8ToCp1252(text);
  const int16_t n = vb::CheckedInt16(static_cast<int64_t>(codes.size()));
  std::string result;
  result.reserve(codes.size() * 2);
  for (int16_t i = 1; i <= n; ++i) {
    const int16_t a = vb::CheckedInt16(static_cast<int64_t>(static_cast<uint8_t>(codes[i - 1])) + i);
    // The octal digits of a, read back as a decimal number.
    const int16_t as_decimal = ConvertPrefixed("", vb::Oct(a));
    const std::string hex = "00" + vb::Hex(as_decimal);
    result.insert(0, hex.substr(hex.size() - 2));
  }
  return result;
}

std::string DecodeText(std::string_view text) {
  const int64_t length = vb::Len(text);
  const double h = static_cast<double>(length) / 2.0;
  const int16_t n = vb::ToInt16(h);  // rounds half to even: 2.5 gives 2, 3.5 gives 4
  std::string result;
  for (int16_t i = n; i >= 1; --i) {
    const int16_t p = vb::ToInt16((h - i) * 2 + 1);
    const std::string pair = vb::Mid(text, p, 2);
    const int16_t value = ConvertPrefixed("&H", pair);
    const int16_t octal = ConvertPrefixed("&O", std::to_string(value));
    const int16_t code = vb::CheckedInt16(static_cast<int64_t>(octal) - i);
    result.insert(0, vb::Chr(code));
  }
  return result;
}

Variant clsVantor::Encode(const Variant& strText) { return Variant(EncodeText(strText.ToString())); }

Variant clsVantor::Decode(const Variant& strText) { return Variant(DecodeText(strText.ToString())); }

}  // namespace halqvantor
