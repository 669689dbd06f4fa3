#include "session.h"

#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>

#include "halqvantor/Extensions.h"
#include "link/request_exchange.h"
#include "output.h"
#include "platform/database.h"
#include "platform/env.h"
#include "platform/secrets.h"
#include "platform/vb_runtime.h"
#include "table.h"

namespace vantor {

using halqvantor::Variant;
using halqvantor::VarType;

namespace {

std::string Milliseconds(double ms) {
  if (ms < 0) return "-";
  char text[32];
  std::snprintf(text, sizeof text, "%.1f ms", ms);
  return text;
}

// One request's timings as --timings prints them.
std::string FormatTimings(const halqvantor::RequestTimings& t) {
  return "timing " + EscapeControls(t.command) + ": sent " + std::to_string(t.bytes_sent) + " B, received " +
         std::to_string(t.bytes_received) + " B, connect " + Milliseconds(t.connect_ms) + ", first byte " +
         Milliseconds(t.first_byte_ms) + ", last byte " + Milliseconds(t.last_byte_ms);
}

}  // namespace

Cell::Cell(std::vector<std::string> list) : text(halqvantor::vb::Join(list, ", ")), items(std::move(list)) {}

Json TypedValue(const std::string& text, ColumnKind kind) {
  switch (kind) {
    case ColumnKind::kNumber: {
      if (text.empty()) return nullptr;
      const std::optional<int64_t> number = WholeNumber(text);
      return number ? Json(*number) : Json(text);
    }
    case ColumnKind::kFlag:
      if (text == "yes") return true;
      if (text == "no") return false;
      return text.empty() ? Json(nullptr) : Json(text);
    case ColumnKind::kDate:
      return text.empty() ? Json(nullptr) : Json(text);
    default:
      return text;
  }
}

Json Listing::ToJson() const {
  Json rows = Json::array();
  for (const auto& row : rows_) {
    Json object = Json::object();
    for (size_t c = 0; c < columns_.size(); ++c) {
      const Column& column = columns_[c];
      const Cell cell = c < row.size() ? row[c] : Cell("");
      const std::string key = SnakeCase(column.heading);
      if (column.kind == ColumnKind::kList) {
        object[key] = vantor::ToJson(cell.items);
        continue;
      }
      object[key] = TypedValue(cell.text, column.kind);
      if (column.kind == ColumnKind::kDate) {
        const std::optional<std::string> iso = IsoDate(cell.text);
        object[key + "_iso"] = iso ? Json(*iso) : Json(nullptr);
      }
    }
    rows.push_back(std::move(object));
  }
  return rows;
}

void Listing::PrintTable(std::ostream& out, bool bold_headings) const {
  std::vector<std::string> headings;
  for (const Column& column : columns_) headings.push_back(column.heading);
  Table table(headings);
  for (const auto& row : rows_) {
    std::vector<std::string> texts;
    for (const Cell& cell : row) texts.push_back(cell.text);
    table.AddRow(texts);
  }
  table.Print(out, bold_headings);
}

void Listing::PrintCsv(std::ostream& out) const {
  std::vector<std::string> header;
  for (const Column& column : columns_) {
    header.push_back(SnakeCase(column.heading));
    if (column.kind == ColumnKind::kDate) header.push_back(SnakeCase(column.heading) + "_iso");
  }
  WriteCsvRecord(out, header);
  for (const auto& row : rows_) {
    std::vector<std::string> fields;
    for (size_t c = 0; c < columns_.size(); ++c) {
      const std::string text = c < row.size() ? row[c].text : std::string();
      fields.push_back(text);
      if (columns_[c].kind == ColumnKind::kDate) fields.push_back(IsoDate(text).value_or(""));
    }
    WriteCsvRecord(out, fields);
  }
}

void DocumentRef::AddTo(CLI::App* command) {
  command->add_option("CHANNEL", channel, "channel name")->required();
  command->add_option("ARCHIVE", archive, "archive name")->required();
  command->add_option("DOCID", id, "document id")->required();
  command->add_option("VER", version, "version (\"\" for the current one)")->required();
}

namespace {

// Why the folder of the debug log cannot take a file ("" when it can): it, or the parent the component
// makes it in, must be a writable folder.
std::string LogFolderProblem(const std::string& folder) {
  namespace fs = std::filesystem;
  std::error_code error;
  fs::path target = folder;
  if (!fs::exists(target, error)) {
    target = fs::path(folder).lexically_normal().parent_path();
    if (target.empty()) target = ".";
    if (!fs::is_directory(target, error)) return "neither it nor its parent folder exists";
  } else if (!fs::is_directory(target, error)) {
    return "it is no folder";
  }
  if (access(target.c_str(), W_OK | X_OK) != 0) return std::string(std::strerror(errno));
  return "";
}

// True for the status texts of a connection that did not get through or got no answer.
bool IsConnectionFailure(const std::string& status) {
  return status.starts_with("Winsock Error (1") || status.starts_with("Timeout of") ||
         status.starts_with("General error connecting");
}

}  // namespace

std::optional<std::string> Session::ReadPassword(const std::string& prompt) {
  if (options_.password_stdin) {
    if (stdin_used_) return std::nullopt;
    stdin_used_ = true;
    std::string line;
    if (!std::getline(in_, line)) return std::nullopt;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return line;
  }
  if (&in_ != &std::cin || isatty(STDIN_FILENO) != 1 || !IsTerminal(err_)) return std::nullopt;
  termios old_mode{};
  const bool quiet = tcgetattr(STDIN_FILENO, &old_mode) == 0;
  if (quiet) {
    termios no_echo = old_mode;
    no_echo.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &no_echo);
  }
  err_ << prompt << std::flush;
  std::string line;
  const bool read = static_cast<bool>(std::getline(in_, line));
  if (quiet) tcsetattr(STDIN_FILENO, TCSAFLUSH, &old_mode);
  err_ << '\n';
  if (!read) return std::nullopt;
  return line;
}

halqvantor::clsVantor& Session::Open(bool with_database) {
  if (!options_.log.empty()) {
    const std::string problem = LogFolderProblem(options_.log);
    if (!problem.empty()) {
      err_ << "warning: no debug log: the folder " << options_.log << " cannot be written (" << problem << ")\n";
    }
  }
  std::string archive_password = options_.password;
  if (!with_database && !options_.user.empty() && archive_password.empty()) {
    archive_password = ReadPassword("Password of archive user " + options_.user + ": ").value_or("");
  }
  if (with_database) {
    if (options_.db.empty()) throw UsageError("this command needs the user database: give --db or VANTOR_DB");
    // Init reports a connection that does not open only in the debug log; try it here to say why.
    try {
      auto connection = halqvantor::platform::Env::Default()->NewConnection();
      connection->Open(options_.db);
      connection->Close();
    } catch (const halqvantor::RuntimeError& e) {
      throw CommandFailed("user database " + halqvantor::platform::MaskSecrets(options_.db) + ": " + e.description());
    }
  }
  object_ = std::make_unique<halqvantor::clsVantor>();
  options_.ApplyTo(*object_);
  if (options_.timings) {
    halqvantor::Options(*object_).on_request_timings = [this](const halqvantor::RequestTimings& t) {
      err_ << FormatTimings(t) << '\n';
    };
  }
  object_->strEASYPwd = archive_password;
  Calling("Init");
  if (with_database) {
    object_->Init(Variant(true));
    // The password format the directory was made with (initdb --strong-passwords).
    halqvantor::ApplyDirectorySettings(*object_);
  } else {
    object_->Init();
  }
  return *object_;
}

void Session::Check(const Variant& result, const Variant& status) const {
  if (result.type() == VarType::Integer && result.ToInteger() == -1) {
    const std::string text = Text(status);
    std::string message = member_ + ": " + EscapeControls(text);
    if (IsConnectionFailure(text)) {
      message += options_.host.empty()
                     ? "\nno gateway host is set: give --host and --port (or VANTOR_HOST and VANTOR_PORT)"
                     : "\nis vantor-gateway running on " + options_.Address() +
                           "? (check --host and --port, or VANTOR_HOST and VANTOR_PORT)";
    }
    throw CommandFailed(message);
  }
}

void Session::CheckLastStatus() const {
  const std::string line = halqvantor::LastStatusLine(*object_);
  if (line == "Status: OK") return;
  throw CommandFailed(member_ + ": " +
                      (line.empty() ? std::string("the gateway gave no status line")
                                    : EscapeControls(halqvantor::FailureStatusText(line))));
}

void Session::CheckDirectory(const Variant& result) const {
  if (result.type() == VarType::Integer && result.ToInteger() == -1) {
    std::string where =
        options_.log.empty() ? "give --log to see why" : "the debug log " + options_.LogFile() + " says why";
    throw CommandFailed(member_ + ": failed (" + where + ")");
  }
}

void Session::Print(const Listing& listing, const std::string& caption) {
  if (json()) {
    PrintJson(listing.ToJson());
    return;
  }
  if (csv()) {
    listing.PrintCsv(out_);
    return;
  }
  listing.PrintTable(out_, &out_ == &std::cout && ColourAllowed(STDOUT_FILENO));
  if (!caption.empty()) out_ << caption << '\n';
}

void Session::PrintJson(const Json& value) {
  out_ << value.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

bool IsTerminal(const std::ostream& err) { return &err == &std::cerr && isatty(STDERR_FILENO) == 1; }

std::string Text(const Variant& value) {
  if (value.IsEmpty() || value.IsNull() || value.IsMissing()) return "";
  return value.ToString();
}

std::vector<std::string> DisplayColumns(std::string_view row) {
  std::vector<std::string> columns;
  if (row.size() < 2) return columns;
  std::string_view inner = row.substr(1, row.size() - 2);
  for (;;) {
    size_t separator = inner.find("^,^");
    columns.emplace_back(inner.substr(0, separator));
    if (separator == std::string_view::npos) break;
    inner.remove_prefix(separator + 3);
  }
  return columns;
}

std::vector<std::string> EnclosedNames(std::string_view text, char open, char close) {
  std::vector<std::string> names;
  size_t at = 0;
  while ((at = text.find(open, at)) != std::string_view::npos) {
    size_t end = text.find(close, at + 1);
    if (end == std::string_view::npos) break;
    names.emplace_back(text.substr(at + 1, end - at - 1));
    at = end + 1;
  }
  return names;
}

std::vector<std::string> Lines(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    lines.emplace_back(line);
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
  return lines;
}

std::string UnixLines(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') continue;
    out += text[i];
  }
  return out;
}

Json ToJson(const std::vector<std::string>& items) {
  Json array = Json::array();
  for (const auto& item : items) array.push_back(item);
  return array;
}

}  // namespace vantor
