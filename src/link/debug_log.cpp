#include "link/debug_log.h"

#include "platform/env.h"

namespace halqvantor {

std::string LogFilePath(std::string_view folder, std::string_view session_id) {
  if (folder.empty()) return "";
  std::string name(session_id);
  name += ".LOG";
  if (!platform::IsPlainFileName(name)) return "";
  return platform::JoinPath(folder, name);
}

void WriteLogLine(platform::Env& env, std::string_view folder, std::string_view session_id, std::string_view text) {
  const std::string path = LogFilePath(folder, session_id);
  if (path.empty()) return;
  const platform::LocalDateTime now = env.Now();
  std::string line = platform::FormatDate(now.date);
  line += ' ';
  line += platform::FormatTime(now.hour, now.minute, now.second);
  line += "   ";
  line += text;
  line += "\r\n";
  // The log is a diagnostic aid: a line that cannot be written is dropped without a word.
  (void)env.AppendToFile(path, line);
}

}  // namespace halqvantor

#include <new>

#include "halqvantor/RuntimeError.h"

namespace halqvantor {

ErrorInfo DescribeError(const std::exception& error) {
  if (const auto* runtime = dynamic_cast<const RuntimeError*>(&error)) {
    return {runtime->number(), runtime->description()};
  }
  if (dynamic_cast<const std::bad_alloc*>(&error) != nullptr) return {7, RuntimeError::StandardText(7)};
  return {5, error.what()};
}

std::string GeneralFailureLine(std::string_view function, const std::exception& error) {
  const ErrorInfo info = DescribeError(error);
  std::string line = "Allgemeiner Fehler in Funktion '";
  line += function;
  line += "': " + std::to_string(info.number) + " - " + info.text + ".";
  return line;
}

}  // namespace halqvantor
