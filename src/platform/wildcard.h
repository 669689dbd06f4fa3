#pragma once

// Whole-text matching against a pattern in which "*" stands for any run of characters, also none. What
// else a pattern character may match is the caller's rule (`same(pattern_char, text_char)`): file names
// add "?" and compare exactly, the reference gateway's queries fold case. "*" is always a wildcard, so a
// text that itself holds "*" is matched by the stars around it.
//
// Greedy matching with one back-track point (the last "*" seen and where its run would end next): linear
// for patterns without "*", O(n*m) at worst, no recursion.

#include <cstddef>
#include <string_view>

namespace halqvantor::platform {

template <typename Char, typename Same>
bool MatchStars(std::basic_string_view<Char> text, std::basic_string_view<Char> pattern, Same same) {
  constexpr size_t kNone = std::basic_string_view<Char>::npos;
  size_t t = 0, p = 0, star = kNone, resume = 0;
  while (t < text.size()) {
    if (p < pattern.size() && pattern[p] == Char('*')) {
      star = p++;
      resume = t;
    } else if (p < pattern.size() && same(pattern[p], text[t])) {
      ++p;
      ++t;
    } else if (star != kNone) {
      p = star + 1;
      t = ++resume;
    } else {
      return false;
    }
  }
  while (p < pattern.size() && pattern[p] == Char('*')) ++p;
  return p == pattern.size();
}

}  // namespace halqvantor::platform
