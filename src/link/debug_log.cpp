#include "link/debug_log.h"

#include "platform/env.h"
#include "platform/secrets.h"

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
  line += platform::MaskSecrets(text);
  line += "\r\n";
  // The log is a diagnostic aid: a line that cannot be written is dropped without a word.
  // It may quote requests and connection strings, so only its owner reads it.
  (void)env.AppendToPrivateFile(path, line);
}

}  // namespace halqvantor
