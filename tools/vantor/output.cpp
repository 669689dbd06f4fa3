#include "output.h"

#include <langinfo.h>
#include <unistd.h>

#include <atomic>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>

#include "session.h"
#include "table.h"

namespace vantor {
namespace {

constexpr Glyphs kUnicodeGlyphs = {"\u2500", "\u23ce", "\u2714"};
constexpr Glyphs kAsciiGlyphs = {"-", "\\n", "OK"};

std::atomic<bool> unicode_output{true};

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace

bool LocaleIsUtf8() {
  const char* current = std::setlocale(LC_CTYPE, nullptr);
  const std::string previous = current != nullptr ? current : "C";
  bool utf8 = false;
  if (std::setlocale(LC_CTYPE, "") != nullptr) {
    const char* codeset = nl_langinfo(CODESET);
    utf8 = codeset != nullptr && (std::strcmp(codeset, "UTF-8") == 0 || std::strcmp(codeset, "utf8") == 0);
  }
  std::setlocale(LC_CTYPE, previous.c_str());
  return utf8;
}

void SetUnicodeOutput(bool unicode) { unicode_output = unicode; }

const Glyphs& CurrentGlyphs() { return unicode_output ? kUnicodeGlyphs : kAsciiGlyphs; }

bool ColourAllowed(int fd) {
  if (std::getenv("NO_COLOR") != nullptr) return false;
  const char* term = std::getenv("TERM");
  if (term != nullptr && std::strcmp(term, "dumb") == 0) return false;
  return isatty(fd) == 1;
}

std::string SnakeCase(std::string_view heading) {
  std::string key;
  bool gap = false;
  for (char c : heading) {
    const auto byte = static_cast<unsigned char>(c);
    const bool word = byte >= 0x80 || IsDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    if (!word) {
      gap = !key.empty();
      continue;
    }
    if (gap) key += '_';
    gap = false;
    key += (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
  }
  return key;
}

std::optional<std::string> IsoDate(std::string_view text) {
  if (const size_t blank = text.find(' '); blank != std::string_view::npos) text = text.substr(0, blank);
  int parts[3] = {0, 0, 0};
  size_t digits[3] = {0, 0, 0};
  int part = 0;
  for (char c : text) {
    if (c == '.') {
      if (++part > 2) return std::nullopt;
    } else if (IsDigit(c) && digits[part] < 4) {
      parts[part] = parts[part] * 10 + (c - '0');
      ++digits[part];
    } else {
      return std::nullopt;
    }
  }
  if (part != 2 || digits[0] < 1 || digits[0] > 2 || digits[1] < 1 || digits[1] > 2 || digits[2] != 4) {
    return std::nullopt;
  }
  const int day = parts[0], month = parts[1], year = parts[2];
  constexpr int kDays[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  if (month < 1 || month > 12 || day < 1 || day > kDays[month - 1] || (month == 2 && day == 29 && !leap)) {
    return std::nullopt;
  }
  auto two = [](int n) { return std::string(1, static_cast<char>('0' + n / 10)) + static_cast<char>('0' + n % 10); };
  const std::string year_text = std::to_string(year);
  return std::string(4 - year_text.size(), '0') + year_text + "-" + two(month) + "-" + two(day);
}

std::optional<int64_t> WholeNumber(std::string_view text) {
  const bool negative = !text.empty() && text[0] == '-';
  if (negative) text.remove_prefix(1);
  if (text.empty() || text.size() > 18) return std::nullopt;  // 18 digits always fit
  int64_t value = 0;
  for (char c : text) {
    if (!IsDigit(c)) return std::nullopt;
    value = value * 10 + (c - '0');
  }
  return negative ? -value : value;
}

void WriteCsvRecord(std::ostream& out, const std::vector<std::string>& fields) {
  for (size_t i = 0; i < fields.size(); ++i) {
    if (i > 0) out << ',';
    const std::string field = EscapeControls(UnixLines(fields[i]), kKeepLineBreaks);
    if (field.find_first_of(",\"\r\n") == std::string::npos) {
      out << field;
      continue;
    }
    out << '"';
    for (char c : field) {
      if (c == '"') out << '"';
      out << c;
    }
    out << '"';
  }
  out << "\r\n";
}

void ReportError(std::ostream& err, bool json, const std::string& message, int exit_code) {
  if (!json) {
    err << message << '\n';
    return;
  }
  nlohmann::ordered_json object = {{"error", message}, {"exit_code", exit_code}};
  err << object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << '\n';
}

bool WantsJson(const std::vector<std::string>& args) {
  for (const std::string& arg : args) {
    if (arg == "--") break;
    if (arg == "--json") return true;
  }
  return false;
}

}  // namespace vantor
