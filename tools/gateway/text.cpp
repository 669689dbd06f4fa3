#include "text.h"

#include <array>
#include <charconv>

#include "platform/clock.h"
#include "platform/cp1252.h"
#include "platform/vb_runtime.h"
#include "platform/wildcard.h"

namespace halqvantor::gateway {

char FoldChar(char c) {
  // The library's capitals (vb::UpperChar), looked up per code page byte: the gateway folds case as the
  // component does, so a name found by one is found by the other.
  static const std::array<char, 256> kUpper = [] {
    std::array<char, 256> table{};
    for (int b = 0; b < 256; ++b) {
      const int upper = platform::CharToCp1252(vb::UpperChar(platform::Cp1252ToChar(static_cast<uint8_t>(b))));
      table[static_cast<size_t>(b)] = static_cast<char>(upper < 0 ? b : upper);
    }
    return table;
  }();
  return kUpper[static_cast<unsigned char>(c)];
}

std::string Upper(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = FoldChar(c);
  return out;
}

bool EqualsNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (FoldChar(a[i]) != FoldChar(b[i])) return false;
  }
  return true;
}

bool WildcardMatch(std::string_view pattern, std::string_view text) {
  return platform::MatchStars(text, pattern, [](char want, char got) { return FoldChar(want) == FoldChar(got); });
}

bool IsWordChar(char c) {
  const auto b = static_cast<unsigned char>(c);
  if ((b >= '0' && b <= '9') || (b >= 'A' && b <= 'Z') || (b >= 'a' && b <= 'z')) return true;
  if (b >= 0xC0 && b != 0xD7 && b != 0xF7) return true;
  return b == 0x8A || b == 0x8C || b == 0x8E || b == 0x9A || b == 0x9C || b == 0x9E || b == 0x9F;
}

std::string Row(const std::vector<std::string>& columns) {
  std::string out = "^";
  for (size_t i = 0; i < columns.size(); ++i) {
    if (i > 0) out += "^,^";
    out += columns[i];
  }
  out += '^';
  return out;
}

std::vector<std::string> SplitColumns(std::string_view row) {
  std::vector<std::string> columns;
  if (row.size() < 2 || row.front() != '^' || row.back() != '^') return columns;
  std::string_view inner = row.substr(1, row.size() - 2);
  size_t start = 0;
  while (true) {
    const size_t sep = inner.find("^,^", start);
    if (sep == std::string_view::npos) {
      columns.emplace_back(inner.substr(start));
      return columns;
    }
    columns.emplace_back(inner.substr(start, sep - start));
    start = sep + 3;
  }
}

std::vector<std::string> SplitLines(std::string_view text) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start < text.size()) {
    const size_t lf = text.find('\n', start);
    if (lf == std::string_view::npos) {
      lines.emplace_back(text.substr(start));
      break;
    }
    size_t end = lf;
    if (end > start && text[end - 1] == '\r') --end;
    lines.emplace_back(text.substr(start, end - start));
    start = lf + 1;
  }
  return lines;
}

std::string OneLine(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    if (c == '\r' || c == '\n') c = ' ';
  }
  return out;
}

std::string Trim(std::string_view text) {
  size_t b = 0, e = text.size();
  while (b < e && (text[b] == ' ' || text[b] == '\t')) ++b;
  while (e > b && (text[e - 1] == ' ' || text[e - 1] == '\t')) --e;
  return std::string(text.substr(b, e - b));
}

void ReplaceAll(std::string& text, std::string_view what, std::string_view with) {
  if (what.empty()) return;
  size_t pos = 0;
  while ((pos = text.find(what, pos)) != std::string::npos) {
    text.replace(pos, what.size(), with);
    pos += with.size();
  }
}

std::string LogField(std::string_view cp1252, size_t cap) {
  const std::string_view shown = cp1252.substr(0, cap);
  std::string escaped;
  escaped.reserve(shown.size() + 16);
  for (const char c : shown) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte != 0x7F) {
      escaped += c;
    } else if (c == '\r') {
      escaped += "\\r";
    } else if (c == '\n') {
      escaped += "\\n";
    } else if (c == '\t') {
      escaped += "\\t";
    } else {
      static constexpr char kHex[] = "0123456789ABCDEF";
      escaped += "\\x";
      escaped += kHex[byte >> 4];
      escaped += kHex[byte & 0xF];
    }
  }
  std::string text = FromWire(escaped);
  if (cp1252.size() > cap) text += "...(" + std::to_string(cp1252.size()) + " bytes)";
  return text;
}

std::optional<int64_t> ParseInteger(std::string_view text) {
  if (text.empty()) return std::nullopt;
  std::string_view digits = text;
  if (digits.front() == '+') digits.remove_prefix(1);
  int64_t value = 0;
  const auto [end, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (ec != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
  return value;
}

bool IsDecimalNumber(std::string_view text) {
  size_t i = 0;
  if (i < text.size() && (text[i] == '-' || text[i] == '+')) ++i;
  size_t digits = 0, point = 0, after = 0;
  for (; i < text.size(); ++i) {
    const char c = text[i];
    if (c >= '0' && c <= '9') {
      ++digits;
      if (point) ++after;
    } else if ((c == ',' || c == '.') && !point) {
      point = 1;
    } else {
      return false;
    }
  }
  return digits > 0 && (!point || after > 0);
}

bool IsDate(std::string_view text) {
  if (text.size() != 10 || text[2] != '.' || text[5] != '.') return false;
  for (size_t i : {0, 1, 3, 4, 6, 7, 8, 9}) {
    if (text[i] < '0' || text[i] > '9') return false;
  }
  const int day = (text[0] - '0') * 10 + (text[1] - '0');
  const int month = (text[3] - '0') * 10 + (text[4] - '0');
  const int year = (text[6] - '0') * 1000 + (text[7] - '0') * 100 + (text[8] - '0') * 10 + (text[9] - '0');
  return platform::IsValidDate(year, month, day);
}

std::string ToWire(std::string_view utf8) { return platform::Utf8ToCp1252(utf8); }
std::string FromWire(std::string_view cp1252) { return platform::Cp1252ToUtf8(cp1252); }

}  // namespace halqvantor::gateway
