#pragma once

// The component's reversible password encoding: per character, (code + position) written in octal, those
// digits read as a decimal number and written as two hexadecimal digits; pairs in reverse order. Character
// codes are Windows-1252 codes. All arithmetic is 16-bit, so overflow (6), invalid positions and codes (5)
// and non-hexadecimal pairs (13) raise RuntimeError.

#include <string>
#include <string_view>

namespace halqvantor {

std::string EncodeText(std::string_view text);
std::string DecodeText(std::string_view text);

}  // namespace halqvantor
