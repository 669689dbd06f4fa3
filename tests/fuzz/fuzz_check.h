#pragma once

// What the fuzz targets share: a failed check ends the run (libFuzzer reports the input), and answers are
// split into their rows at CR LF.

#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace halqvantor::fuzz {

inline void Require(bool condition) {
  if (!condition) std::abort();
}

// The rows of `text`; a last row without CR LF counts too, so "" is one empty row.
inline std::vector<std::string> SplitRows(std::string_view text) {
  std::vector<std::string> rows;
  for (size_t start = 0;;) {
    const size_t end = text.find("\r\n", start);
    rows.emplace_back(text.substr(start, end == std::string_view::npos ? end : end - start));
    if (end == std::string_view::npos) return rows;
    start = end + 2;
  }
}

}  // namespace halqvantor::fuzz
