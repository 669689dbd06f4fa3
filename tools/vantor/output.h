#pragma once

// The output conventions of every sub-command: which glyphs the terminal can show, when colour is allowed,
// how a heading becomes a JSON key, dates in ISO form, CSV quoting, and errors as JSON for scripts.

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace vantor {

// The characters a table and the demo draw with: box-drawing and symbols on a UTF-8 terminal, plain ASCII
// on any other.
struct Glyphs {
  const char* rule;        // one character of the line under a table's headings
  const char* line_break;  // a line break inside a table cell
  const char* check;       // a step that passed
};

// True when the character set of the environment's locale (LC_ALL, LC_CTYPE, LANG) is UTF-8. The process's
// own locale is left as it was.
bool LocaleIsUtf8();
// The glyphs of the current run (UTF-8 ones until SetUnicodeOutput(false)).
void SetUnicodeOutput(bool unicode);
const Glyphs& CurrentGlyphs();

// Colour is for people: only when `fd` is a terminal, NO_COLOR is not set (to any value, empty too) and TERM
// is not "dumb".
bool ColourAllowed(int fd);

// A heading as a JSON key: lower case, runs of blanks, dashes and other punctuation as one "_" ("text
// length" -> "text_length", "no-match-code fields" -> "no_match_code_fields"). Letters beyond ASCII stay.
std::string SnakeCase(std::string_view heading);

// A German date "D.M.YYYY" (day and month of one or two digits, an optional time after a blank) as
// "YYYY-MM-DD"; nullopt for anything that is not a valid calendar date.
std::optional<std::string> IsoDate(std::string_view text);

// Decimal digits with an optional leading "-", fitting 64 bits; nullopt for anything else ("", "1.5", "0x1").
std::optional<int64_t> WholeNumber(std::string_view text);

// One CSV record: fields separated by ",", a field quoted when it holds ",", a quote, CR or LF, quotes
// doubled, ended by CR LF. Control characters other than line breaks and tabs are shown escaped.
void WriteCsvRecord(std::ostream& out, const std::vector<std::string>& fields);

// How a command ended with an error: the text on `err`, or with `json` an object {"error": text, "exit_code":
// code} on one line, so that a script reading stderr gets the same shape as from stdout.
void ReportError(std::ostream& err, bool json, const std::string& message, int exit_code);

// Whether a raw command line asks for JSON (used before the line is parsed, for the errors of parsing).
bool WantsJson(const std::vector<std::string>& args);

}  // namespace vantor
