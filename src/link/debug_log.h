#pragma once

// One debug-log line: folder + "/" + session id + ".LOG", opened for appending, one line of
// "DD.MM.YYYY hh:mm:ss" + three blanks + text + CR LF (UTF-8), closed again. An empty folder turns logging
// off. The time stamp comes from `env`'s clock and the file is written through its file system. A folder
// that does not exist, a session id that would name a file outside the folder, or a file that cannot be
// written costs the line and nothing else.

#include <string>
#include <string_view>

namespace halqvantor {
namespace platform {
class Env;
}


void WriteLogLine(platform::Env& env, std::string_view folder, std::string_view session_id, std::string_view text);

// The file a line goes to ("" when logging is off or the session id is not a plain file name part).
std::string LogFilePath(std::string_view folder, std::string_view session_id);

}  // namespace halqvantor

#include <cstdint>
#include <exception>

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
