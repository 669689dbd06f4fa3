#include "query.h"

#include "status.h"
#include "text.h"

namespace halqvantor::gateway {
namespace {

// Splits at "&" outside parentheses.
std::vector<std::string> SplitParts(std::string_view text) {
  std::vector<std::string> parts;
  std::string current;
  int depth = 0;
  for (char c : text) {
    if (c == '(') ++depth;
    if (c == ')' && depth > 0) --depth;
    if (c == '&' && depth == 0) {
      parts.push_back(Trim(current));
      current.clear();
    } else {
      current += c;
    }
  }
  parts.push_back(Trim(current));
  return parts;
}

std::vector<std::string> Tokens(std::string_view text, bool keep_stars) {
  std::vector<std::string> words;
  std::string current;
  for (char c : text) {
    if (IsWordChar(c) || (keep_stars && c == '*')) {
      current += c;
    } else if (!current.empty()) {
      words.push_back(std::move(current));
      current.clear();
    }
  }
  if (!current.empty()) words.push_back(std::move(current));
  return words;
}

void AddWords(std::vector<std::string>& out, std::string_view part) {
  for (std::string& w : Tokens(part, true)) {
    if (w.find_first_not_of('*') != std::string::npos) out.push_back(std::move(w));
  }
}

bool AnyWordMatches(std::string_view pattern, const std::vector<std::string>& words) {
  for (const std::string& w : words) {
    if (WildcardMatch(pattern, w)) return true;
  }
  return false;
}

}  // namespace

std::vector<std::string> WordsOf(std::string_view text) { return Tokens(text, false); }

Query ParseQuery(std::string_view text, const Archive& archive) {
  Query query;
  for (const std::string& part : SplitParts(text)) {
    if (part.empty()) continue;
    if (part.front() != '.') {
      AddWords(query.words, part);
      continue;
    }
    const size_t open = part.find("=(");
    if (open == std::string::npos || part.back() != ')' || open < 2) {
      throw GatewayError(kBadQuery, StandardMessage(kBadQuery) + (": " + part));
    }
    const std::string ref = Trim(part.substr(1, open - 1));
    const Field* field = archive.FindField(ref);
    if (field == nullptr) throw GatewayError(kUnknownField, StandardMessage(kUnknownField) + (": " + ref));
    query.conditions.push_back({field->id, part.substr(open + 2, part.size() - open - 3)});
  }
  return query;
}

std::vector<std::string> FreeTextWords(std::string_view text) {
  std::vector<std::string> words;
  for (const std::string& part : SplitParts(text)) {
    if (!part.empty() && part.front() != '.') AddWords(words, part);
  }
  return words;
}

bool Matches(const Query& query, const Version& version, const std::vector<std::string>& texts) {
  for (const Condition& c : query.conditions) {
    const auto it = version.index.find(std::to_string(c.field));
    const std::string value = it == version.index.end() ? std::string() : Trim(it->second);
    if (!WildcardMatch(c.pattern, value)) return false;
  }
  if (query.words.empty()) return true;
  std::vector<std::string> words;
  for (const auto& [field, value] : version.index) {
    for (std::string& w : WordsOf(value)) words.push_back(std::move(w));
  }
  for (const std::string& text : texts) {
    for (std::string& w : WordsOf(text)) words.push_back(std::move(w));
  }
  for (std::string& w : WordsOf(version.title)) words.push_back(std::move(w));
  for (const std::string& pattern : query.words) {
    if (!AnyWordMatches(pattern, words)) return false;
  }
  return true;
}

std::string MarkWords(std::string_view text, const std::vector<std::string>& words, std::string_view mark_on,
                      std::string_view mark_off, int* hits) {
  std::string out;
  out.reserve(text.size());
  size_t i = 0;
  while (i < text.size()) {
    if (!IsWordChar(text[i])) {
      out += text[i++];
      continue;
    }
    size_t end = i;
    while (end < text.size() && IsWordChar(text[end])) ++end;
    const std::string_view word = text.substr(i, end - i);
    bool hit = false;
    for (const std::string& pattern : words) {
      if (WildcardMatch(pattern, word)) {
        hit = true;
        break;
      }
    }
    if (hit) {
      out += mark_on;
      out += word;
      out += mark_off;
      if (hits) ++*hits;
    } else {
      out += word;
    }
    i = end;
  }
  return out;
}

}  // namespace halqvantor::gateway
