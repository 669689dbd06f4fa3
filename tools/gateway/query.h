#pragma once

// The query language of "QueryArchive" (also used for the folder rights restriction):
//   query     = part { "&" part }            "&" inside parentheses belongs to the value
//   part      = condition | free text
//   condition = "." field "=(" pattern ")"   field: id or short name; the whole value must match
//   free text = words; each word must occur in the document (index values or text segments)
// Patterns and words compare without regard to case; "*" stands for any run of characters. An empty query
// finds every document.

#include <string>
#include <string_view>
#include <vector>

#include "archive.h"

namespace halqvantor::gateway {

struct Condition {
  int field = 0;
  std::string pattern;
};

struct Query {
  std::vector<Condition> conditions;
  std::vector<std::string> words;  // free-text words, "*" kept
};

// Throws GatewayError: kBadQuery for a malformed condition, kUnknownField for an unknown field.
Query ParseQuery(std::string_view text, const Archive& archive);
// Only the free-text words of a query text (conditions are skipped); never fails.
std::vector<std::string> FreeTextWords(std::string_view text);

// The words of a text, split at every character that is not a letter or digit.
std::vector<std::string> WordsOf(std::string_view text);

// Whether a document version meets all conditions and all words; `texts` are its text segments.
bool Matches(const Query& query, const Version& version, const std::vector<std::string>& texts);

// `text` with every word that matches one of `words` enclosed in the markers; `hits` counts them.
std::string MarkWords(std::string_view text, const std::vector<std::string>& words, std::string_view mark_on,
                      std::string_view mark_off, int* hits);

}  // namespace halqvantor::gateway
