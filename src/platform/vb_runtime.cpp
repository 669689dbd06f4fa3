#include "platform/vb_runtime.h"

#include <cfenv>
#include <charconv>
#include <cmath>
#include <cstdio>

#include "platform/cp1252.h"

namespace halqvantor::vb {
namespace {

bool IsContinuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

// Byte offset of the character with 0-based index `index`; s.size() when the text is shorter.
size_t ByteOffset(std::string_view s, int64_t index) {
  if (index <= 0) return 0;
  size_t pos = 0;
  int64_t seen = 0;
  while (pos < s.size()) {
    if (!IsContinuation(s[pos])) {
      if (seen == index) return pos;
      ++seen;
    }
    ++pos;
  }
  return s.size();
}

bool AllAscii(std::string_view s) {
  for (char c : s) {
    if (static_cast<unsigned char>(c) >= 0x80) return false;
  }
  return true;
}

std::optional<double> ParseRadix(std::string_view digits, int radix, int short_digits) {
  if (digits.empty()) return std::nullopt;
  uint64_t value = 0;
  for (char c : digits) {
    int d;
    if (c >= '0' && c <= '9') {
      d = c - '0';
    } else if (c >= 'a' && c <= 'f') {
      d = c - 'a' + 10;
    } else if (c >= 'A' && c <= 'F') {
      d = c - 'A' + 10;
    } else {
      return std::nullopt;
    }
    if (d >= radix) return std::nullopt;
    value = value * radix + d;
    if (value > 0xFFFFFFFFull) return std::nullopt;
  }
  if (static_cast<int>(digits.size()) <= short_digits && value <= 0xFFFF) {
    return static_cast<double>(static_cast<int16_t>(static_cast<uint16_t>(value)));
  }
  return static_cast<double>(static_cast<int32_t>(static_cast<uint32_t>(value)));
}

}  // namespace

void Raise(ErrorNumber number) { throw RuntimeError(number); }

int64_t Len(std::string_view s) {
  int64_t n = 0;
  for (char c : s) n += IsContinuation(c) ? 0 : 1;
  return n;
}

std::string Left(std::string_view s, int64_t length) {
  if (length < 0) Raise(ErrorNumber::kInvalidProcedureCall);
  return std::string(s.substr(0, ByteOffset(s, length)));
}

std::string Right(std::string_view s, int64_t length) {
  if (length < 0) Raise(ErrorNumber::kInvalidProcedureCall);
  const int64_t n = Len(s);
  if (length >= n) return std::string(s);
  return std::string(s.substr(ByteOffset(s, n - length)));
}

std::string Mid(std::string_view s, int64_t start) {
  if (start < 1) Raise(ErrorNumber::kInvalidProcedureCall);
  return std::string(s.substr(ByteOffset(s, start - 1)));
}

std::string Mid(std::string_view s, int64_t start, int64_t length) {
  if (start < 1 || length < 0) Raise(ErrorNumber::kInvalidProcedureCall);
  const size_t from = ByteOffset(s, start - 1);
  std::string_view rest = s.substr(from);
  return std::string(rest.substr(0, ByteOffset(rest, length)));
}

int64_t InStr(int64_t start, std::string_view s, std::string_view find) {
  if (start < 1) Raise(ErrorNumber::kInvalidProcedureCall);
  if (AllAscii(s)) {
    if (static_cast<size_t>(start - 1) > s.size()) return 0;
    const size_t at = s.find(find, static_cast<size_t>(start - 1));
    return at == std::string_view::npos ? 0 : static_cast<int64_t>(at) + 1;
  }
  const size_t from = ByteOffset(s, start - 1);
  if (start - 1 > Len(s)) return 0;
  const size_t at = s.find(find, from);
  if (at == std::string_view::npos) return 0;
  return Len(s.substr(0, at)) + 1;
}

char32_t UpperChar(char32_t ch) {
  if (ch >= 'a' && ch <= 'z') return ch - 32;
  if (ch >= 0xE0 && ch <= 0xFE && ch != 0xF7) return ch - 32;
  switch (ch) {
    case 0xFF:
      return 0x178;
    case 0x161:
      return 0x160;
    case 0x153:
      return 0x152;
    case 0x17E:
      return 0x17D;
    default:
      return ch;
  }
}

char32_t LowerChar(char32_t ch) {
  if (ch >= 'A' && ch <= 'Z') return ch + 32;
  if (ch >= 0xC0 && ch <= 0xDE && ch != 0xD7) return ch + 32;
  switch (ch) {
    case 0x178:
      return 0xFF;
    case 0x160:
      return 0x161;
    case 0x152:
      return 0x153;
    case 0x17D:
      return 0x17E;
    default:
      return ch;
  }
}

namespace {
template <typename Map>
std::string MapChars(std::string_view s, Map map) {
  std::string out;
  out.reserve(s.size());
  size_t pos = 0;
  while (pos < s.size()) {
    const auto b = static_cast<unsigned char>(s[pos]);
    if (b < 0x80) {
      out.push_back(static_cast<char>(map(b)));
      ++pos;
    } else {
      platform::AppendUtf8(out, map(platform::NextUtf8Char(s, pos)));
    }
  }
  return out;
}
}  // namespace

std::string UCase(std::string_view s) { return MapChars(s, UpperChar); }
std::string LCase(std::string_view s) { return MapChars(s, LowerChar); }

std::string_view TrimView(std::string_view s) {
  const size_t first = s.find_first_not_of(' ');
  if (first == std::string_view::npos) return {};
  const size_t last = s.find_last_not_of(' ');
  return s.substr(first, last - first + 1);
}

std::string Trim(std::string_view s) { return std::string(TrimView(s)); }

std::string Join(const std::vector<std::string>& parts, std::string_view separator) {
  std::string out;
  for (size_t i = 0; i < parts.size(); ++i) {
    if (i > 0) out += separator;
    out += parts[i];
  }
  return out;
}

int Asc(std::string_view s) {
  if (s.empty()) Raise(ErrorNumber::kInvalidProcedureCall);
  size_t pos = 0;
  const int code = platform::CharToCp1252(platform::NextUtf8Char(s, pos));
  return code < 0 ? '?' : code;
}

std::string Chr(int64_t code) {
  if (code < 0 || code > 255) Raise(ErrorNumber::kInvalidProcedureCall);
  std::string out;
  platform::AppendUtf8(out, platform::Cp1252ToChar(static_cast<uint8_t>(code)));
  return out;
}

std::optional<double> ParseNumber(std::string_view text) {
  std::string_view t = text;
  while (!t.empty() && (t.front() == ' ' || t.front() == '\t')) t.remove_prefix(1);
  while (!t.empty() && (t.back() == ' ' || t.back() == '\t')) t.remove_suffix(1);
  if (t.empty()) return std::nullopt;
  if (t.size() >= 2 && t[0] == '&') {
    if (t[1] == 'H' || t[1] == 'h') return ParseRadix(t.substr(2), 16, 4);
    if (t[1] == 'O' || t[1] == 'o') return ParseRadix(t.substr(2), 8, 6);
    return std::nullopt;
  }
  bool negative = false;
  if (t.front() == '+' || t.front() == '-') {
    negative = t.front() == '-';
    t.remove_prefix(1);
  }
  // Validate the shape: digits [. digits] [E|D [sign] digits], at least one mantissa digit.
  std::string clean;
  clean.reserve(t.size());
  size_t i = 0;
  size_t mantissa_digits = 0;
  while (i < t.size() && t[i] >= '0' && t[i] <= '9') clean.push_back(t[i++]), ++mantissa_digits;
  if (i < t.size() && t[i] == '.') {
    clean.push_back(t[i++]);
    while (i < t.size() && t[i] >= '0' && t[i] <= '9') clean.push_back(t[i++]), ++mantissa_digits;
  }
  if (mantissa_digits == 0) return std::nullopt;
  if (i < t.size() && (t[i] == 'e' || t[i] == 'E' || t[i] == 'd' || t[i] == 'D')) {
    clean.push_back('e');
    ++i;
    if (i < t.size() && (t[i] == '+' || t[i] == '-')) clean.push_back(t[i++]);
    size_t exponent_digits = 0;
    while (i < t.size() && t[i] >= '0' && t[i] <= '9') clean.push_back(t[i++]), ++exponent_digits;
    if (exponent_digits == 0) return std::nullopt;
  }
  if (i != t.size()) return std::nullopt;
  double value = 0;
  const auto [end, ec] = std::from_chars(clean.data(), clean.data() + clean.size(), value);
  if (ec != std::errc() || end != clean.data() + clean.size() || !std::isfinite(value)) return std::nullopt;
  return negative ? -value : value;
}

double RoundHalfEven(double value) {
  // nearbyint rounds in the current rounding mode, which is to nearest, ties to even, unless changed.
  if (std::fegetround() == FE_TONEAREST) return std::nearbyint(value);
  const double floor = std::floor(value);
  const double diff = value - floor;
  if (diff > 0.5) return floor + 1;
  if (diff < 0.5) return floor;
  return std::fmod(floor, 2.0) == 0 ? floor : floor + 1;
}

int16_t ToInt16(double value) {
  const double r = RoundHalfEven(value);
  if (!(r >= -32768.0 && r <= 32767.0)) Raise(ErrorNumber::kOverflow);
  return static_cast<int16_t>(r);
}

int32_t ToInt32(double value) {
  const double r = RoundHalfEven(value);
  if (!(r >= -2147483648.0 && r <= 2147483647.0)) Raise(ErrorNumber::kOverflow);
  return static_cast<int32_t>(r);
}

uint8_t ToUInt8(double value) {
  const double r = RoundHalfEven(value);
  if (!(r >= 0.0 && r <= 255.0)) Raise(ErrorNumber::kOverflow);
  return static_cast<uint8_t>(r);
}

int16_t CheckedInt16(int64_t value) {
  if (value < INT16_MIN || value > INT16_MAX) Raise(ErrorNumber::kOverflow);
  return static_cast<int16_t>(value);
}

int32_t CheckedInt32(int64_t value) {
  if (value < INT32_MIN || value > INT32_MAX) Raise(ErrorNumber::kOverflow);
  return static_cast<int32_t>(value);
}

std::string FormatDouble(double value) {
  if (value == 0) return "0";
  if (std::fabs(value) < 1e15 && value == std::trunc(value)) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.0f", value);
    return buf;
  }
  char buf[40];
  std::snprintf(buf, sizeof buf, "%.15G", value);
  std::string s = buf;
  // printf writes at least two exponent digits, the form numbers take here ("1E+20", "1.5E-05").
  return s;
}

std::string Oct(int64_t value) {
  uint64_t v = value < 0 ? static_cast<uint32_t>(static_cast<int32_t>(value)) : static_cast<uint64_t>(value);
  if (v == 0) return "0";
  std::string out;
  while (v > 0) {
    out.insert(out.begin(), static_cast<char>('0' + (v & 7)));
    v >>= 3;
  }
  return out;
}

std::string Hex(int64_t value) {
  uint64_t v = value < 0 ? static_cast<uint32_t>(static_cast<int32_t>(value)) : static_cast<uint64_t>(value);
  if (v == 0) return "0";
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string out;
  while (v > 0) {
    out.insert(out.begin(), kDigits[v & 15]);
    v >>= 4;
  }
  return out;
}

}  // namespace halqvantor::vb
