#pragma once

// The number and text of a failure as the catch-all handlers report it, in status texts and log lines.

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

namespace halqvantor {

// The number and text by which a failure is reported: a RuntimeError gives its own number and text, an
// allocation failure is error 7 and any other exception error 5 with its message.
struct ErrorInfo {
  int32_t number = 0;
  std::string text;
};
ErrorInfo DescribeError(const std::exception& error);

// The line of a catch-all failure handler: "Allgemeiner Fehler in Funktion '" + function + "': " + number +
// " - " + text + "." A RuntimeError gives its own number and text; any other exception counts as error 5
// (7 for an allocation failure).
std::string GeneralFailureLine(std::string_view function, const std::exception& error);

}  // namespace halqvantor
