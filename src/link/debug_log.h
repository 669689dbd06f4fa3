#pragma once

// One debug-log line: folder + "/" + session id + ".LOG", opened for appending, one line of
// "DD.MM.YYYY hh:mm:ss" + three blanks + text + CR LF (UTF-8), closed again. An empty folder turns logging
// off. The time stamp comes from `env`'s clock and the file is written through its file system. The file is
// made readable by its owner only, and so is the folder when it is missing and its parent exists; password
// values in the text are masked. A folder that cannot be made, a session id that would name a file outside
// the folder, or a file that cannot be written costs the line and nothing else.

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
