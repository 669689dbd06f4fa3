#include "platform/cp1252.h"

#include <array>

namespace halqvantor::platform {
namespace {

// Bytes 0x80..0x9F; the unassigned ones stand for the C1 control of the same value.
constexpr std::array<char32_t, 32> kHigh = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,  // 80..87
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,  // 88..8F
    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,  // 90..97
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,  // 98..9F
};

}  // namespace

char32_t Cp1252ToChar(uint8_t byte) {
  if (byte >= 0x80 && byte <= 0x9F) return kHigh[byte - 0x80];
  return byte;
}

int CharToCp1252(char32_t ch) {
  if (ch < 0x80 || (ch >= 0xA0 && ch <= 0xFF)) return static_cast<int>(ch);
  for (size_t i = 0; i < kHigh.size(); ++i) {
    if (kHigh[i] == ch) return static_cast<int>(0x80 + i);
  }
  return -1;
}

char32_t NextUtf8Char(std::string_view text, size_t& pos) {
  const auto b0 = static_cast<unsigned char>(text[pos]);
  if (b0 < 0x80) {
    ++pos;
    return b0;
  }
  int extra;
  char32_t ch;
  if ((b0 & 0xE0) == 0xC0) {
    extra = 1;
    ch = b0 & 0x1F;
  } else if ((b0 & 0xF0) == 0xE0) {
    extra = 2;
    ch = b0 & 0x0F;
  } else if ((b0 & 0xF8) == 0xF0) {
    extra = 3;
    ch = b0 & 0x07;
  } else {
    ++pos;
    return 0xFFFD;
  }
  if (pos + extra >= text.size()) {  // truncated sequence
    ++pos;
    return 0xFFFD;
  }
  for (int k = 1; k <= extra; ++k) {
    const auto b = static_cast<unsigned char>(text[pos + k]);
    if ((b & 0xC0) != 0x80) {
      ++pos;
      return 0xFFFD;
    }
    ch = (ch << 6) | (b & 0x3F);
  }
  static constexpr char32_t kMin[] = {0, 0x80, 0x800, 0x10000};
  if (ch < kMin[extra] || ch > 0x10FFFF || (ch >= 0xD800 && ch <= 0xDFFF)) {
    ++pos;
    return 0xFFFD;
  }
  pos += extra + 1;
  return ch;
}

void AppendUtf8(std::string& out, char32_t ch) {
  if (ch < 0x80) {
    out.push_back(static_cast<char>(ch));
  } else if (ch < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (ch >> 6)));
    out.push_back(static_cast<char>(0x80 | (ch & 0x3F)));
  } else if (ch < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (ch >> 12)));
    out.push_back(static_cast<char>(0x80 | ((ch >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (ch & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (ch >> 18)));
    out.push_back(static_cast<char>(0x80 | ((ch >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((ch >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (ch & 0x3F)));
  }
}

std::string Utf8ToCp1252(std::string_view utf8) {
  std::string out;
  out.reserve(utf8.size());
  size_t pos = 0;
  while (pos < utf8.size()) {
    // A run of ASCII goes over as it stands.
    size_t end = pos;
    while (end < utf8.size() && static_cast<unsigned char>(utf8[end]) < 0x80) ++end;
    out.append(utf8.substr(pos, end - pos));
    pos = end;
    if (pos == utf8.size()) break;
    const int code = CharToCp1252(NextUtf8Char(utf8, pos));
    out.push_back(code < 0 ? '?' : static_cast<char>(code));
  }
  return out;
}

void AppendCp1252AsUtf8(std::string& out, std::string_view bytes) {
  size_t start = 0;
  for (size_t i = 0; i < bytes.size(); ++i) {
    const auto b = static_cast<unsigned char>(bytes[i]);
    if (b < 0x80) continue;
    out.append(bytes.substr(start, i - start));
    AppendUtf8(out, Cp1252ToChar(b));
    start = i + 1;
  }
  out.append(bytes.substr(start));
}

std::string Cp1252ToUtf8(std::string_view bytes) {
  std::string out;
  out.reserve(bytes.size());
  AppendCp1252AsUtf8(out, bytes);
  return out;
}

}  // namespace halqvantor::platform
