#include "platform/secrets.h"

#include <array>

namespace halqvantor::platform {
namespace {

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// True when `text` holds `key` (lower case) at `at`, in any case.
bool KeyAt(std::string_view text, size_t at, std::string_view key) {
  if (text.size() - at < key.size()) return false;
  for (size_t i = 0; i < key.size(); ++i) {
    if (Lower(text[at + i]) != key[i]) return false;
  }
  return true;
}

// The end of the value that starts at `at`: past its closing brace, or at the next ";" or line break.
size_t ValueEnd(std::string_view text, size_t at) {
  if (at < text.size() && text[at] == '{') {
    for (size_t i = at + 1; i < text.size(); ++i) {
      if (text[i] != '}') continue;
      if (i + 1 < text.size() && text[i + 1] == '}') {
        ++i;  // "}}" is a brace of the value
        continue;
      }
      return i + 1;
    }
    return text.size();
  }
  size_t end = at;
  while (end < text.size() && text[end] != ';' && text[end] != '\r' && text[end] != '\n') ++end;
  return end;
}

}  // namespace

std::string MaskSecrets(std::string_view text) {
  static constexpr std::array<std::string_view, 2> kKeys = {"password", "pwd"};
  std::string out;
  out.reserve(text.size());
  size_t i = 0;
  while (i < text.size()) {
    size_t value = std::string_view::npos;
    for (std::string_view key : kKeys) {
      if (!KeyAt(text, i, key)) continue;
      size_t equals = i + key.size();
      while (equals < text.size() && text[equals] == ' ') ++equals;
      if (equals < text.size() && text[equals] == '=') {
        value = equals + 1;
        break;
      }
    }
    if (value == std::string_view::npos) {
      out += text[i++];
      continue;
    }
    while (value < text.size() && text[value] == ' ') ++value;  // blanks after the "=" stay
    out.append(text.substr(i, value - i));
    const size_t end = ValueEnd(text, value);
    if (end > value) out += "***";
    i = end;
  }
  return out;
}

}  // namespace halqvantor::platform
