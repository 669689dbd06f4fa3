#pragma once

// Text helpers of the gateway. Every text inside the gateway is held in Windows-1252, the code page of the
// wire, so that one character is one byte: the archive file (UTF-8) is converted when it is read and written.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace halqvantor::gateway {

inline constexpr std::string_view kCrLf = "\r\n";

// Upper case of one Windows-1252 character (letters with accents included).
char FoldChar(char c);
std::string Upper(std::string_view text);
bool EqualsNoCase(std::string_view a, std::string_view b);

// Whole-text match, case-insensitive: "*" in the pattern stands for any run of characters, also none.
bool WildcardMatch(std::string_view pattern, std::string_view text);

// Letters (Windows-1252, accents included) and digits make up the words of free-text search.
bool IsWordChar(char c);

// One answer row in the column layout: each column enclosed in "^", "^,^" between columns.
std::string Row(const std::vector<std::string>& columns);
// The columns of such a row (the first and last "^" dropped, split at every "^,^"). Rows are built and read
// here without the component's column reader on purpose: the gateway checks the rows the component reads
// and the import files it writes, so the two ends must not share a fault.
std::vector<std::string> SplitColumns(std::string_view row);

// Lines of a text split at CR LF or a lone LF; a last line without a break counts, a final break adds none.
std::vector<std::string> SplitLines(std::string_view text);
// The text on one line: CR and LF become blanks.
std::string OneLine(std::string_view text);
std::string Trim(std::string_view text);
void ReplaceAll(std::string& text, std::string_view what, std::string_view with);

// A whole number in plain decimal with an optional sign and nothing else around it.
std::optional<int64_t> ParseInteger(std::string_view text);
// A decimal number: optional sign, digits, at most one "," or "." with digits after it.
bool IsDecimalNumber(std::string_view text);
// A valid calendar date written DD.MM.YYYY.
bool IsDate(std::string_view text);

// A field for a log line: at most `cap` bytes of it, control characters written as \r, \n, \t or \xNN so that
// no field can break or forge a line, and a longer field cut with "...(N bytes)" (its full length). UTF-8.
std::string LogField(std::string_view cp1252, size_t cap = 200);

// Code page conversions at the edges (archive file, import files in UTF-8).
std::string ToWire(std::string_view utf8);
std::string FromWire(std::string_view cp1252);

}  // namespace halqvantor::gateway
