#pragma once

// The VB-style runtime the component's algorithms are written against: string functions that count
// characters (not UTF-8 bytes) with 1-based positions, number parsing and formatting in the C locale, and
// the checked integer arithmetic whose overflow is a run-time error.
//
// Text is UTF-8. Where a caller searches for ASCII delimiters only, byte positions and character positions
// select the same text, and plain std::string searching is the faster choice.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "halqvantor/RuntimeError.h"

namespace halqvantor::vb {

[[noreturn]] void Raise(ErrorNumber number);

// Len: number of characters.
int64_t Len(std::string_view s);
// Left/Right/Mid with character counts; a negative length or a start below 1 raises 5.
std::string Left(std::string_view s, int64_t length);
std::string Right(std::string_view s, int64_t length);
std::string Mid(std::string_view s, int64_t start);
std::string Mid(std::string_view s, int64_t start, int64_t length);
// InStr(start, s, find): 1-based character position of `find` at or after `start`, 0 when absent. A start
// below 1 raises 5; an empty `find` gives `start` (when start <= Len + 1).
int64_t InStr(int64_t start, std::string_view s, std::string_view find);
inline int64_t InStr(std::string_view s, std::string_view find) { return InStr(1, s, find); }
// Capital / small letters of the Windows-1252 letters, one character for one; other characters unchanged.
std::string UCase(std::string_view s);
std::string LCase(std::string_view s);
char32_t UpperChar(char32_t ch);
char32_t LowerChar(char32_t ch);
// Blanks (U+0020) removed at both ends / the left / the right.
std::string Trim(std::string_view s);
std::string_view TrimView(std::string_view s);
// Join: the parts with `separator` between them; no parts give "".
std::string Join(const std::vector<std::string>& parts, std::string_view separator);

// Asc/Chr in the code page: Asc of "" raises 5; a character outside the code page gives the code of "?".
int Asc(std::string_view s);
// Chr of a code outside 0..255 raises 5.
std::string Chr(int64_t code);

// Reads text as a number for the conversions: optional blanks around, an optional sign, decimal
// digits with an optional fraction and exponent, or "&H"/"&O" followed by hexadecimal/octal digits (four or
// fewer hexadecimal digits, six or fewer octal digits are read as a 16-bit value, so "&HFFFF" is -1).
// nullopt when the text is not a number.
std::optional<double> ParseNumber(std::string_view text);
// True when ParseNumber accepts the text (IsNumeric of a text).
inline bool IsNumericText(std::string_view text) { return ParseNumber(text).has_value(); }

// Rounding half to even, as CInt/CLng do.
double RoundHalfEven(double value);
// CInt/CLng/CByte of a double: round half to even, then range check (6 on overflow).
int16_t ToInt16(double value);
int32_t ToInt32(double value);
uint8_t ToUInt8(double value);
// Checked 16/32-bit arithmetic: the result must fit, or 6 is raised.
int16_t CheckedInt16(int64_t value);
int32_t CheckedInt32(int64_t value);

// CStr of numbers: plain decimal for whole numbers, up to 15 significant digits for doubles ("1.5",
// "1E+20").
std::string FormatDouble(double value);
// Oct and Hex of a whole number (Hex in capitals, negative numbers in 32-bit two's complement).
std::string Oct(int64_t value);
std::string Hex(int64_t value);

}  // namespace halqvantor::vb
