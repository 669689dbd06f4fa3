#pragma once

// The single-byte code page of the gateway, the import file and the character codes of Encode/Decode:
// Windows-1252. The five bytes it leaves unassigned (0x81, 0x8D, 0x8F, 0x90, 0x9D) map to the C1 controls of
// the same value, so every byte survives a round trip through UTF-8. A character outside the code page is
// written as "?".

#include <cstdint>
#include <string>
#include <string_view>

namespace halqvantor::platform {

// The Unicode character of a code page byte.
char32_t Cp1252ToChar(uint8_t byte);
// The code page byte of a Unicode character, or -1 when the code page has none.
int CharToCp1252(char32_t ch);

// Whole texts. Invalid UTF-8 input bytes become "?" on the way out.
std::string Utf8ToCp1252(std::string_view utf8);
std::string Cp1252ToUtf8(std::string_view bytes);
// Appends the UTF-8 form of `bytes` to `out` (the hot path of reception).
void AppendCp1252AsUtf8(std::string& out, std::string_view bytes);

// UTF-8 walking: the character starting at byte `pos`, advancing `pos` past it. A malformed sequence yields
// U+FFFD and advances by one byte.
char32_t NextUtf8Char(std::string_view text, size_t& pos);
void AppendUtf8(std::string& out, char32_t ch);

}  // namespace halqvantor::platform
