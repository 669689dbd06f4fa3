#include "session.h"

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <iostream>
#include <mutex>
#include <thread>

#include "platform/database.h"
#include "platform/env.h"
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

Json Listing::ToJson() const {
  Json rows = Json::array();
  for (const auto& row : rows_) {
    Json object = Json::object();
    for (size_t c = 0; c < columns_.size(); ++c) object[columns_[c]] = c < row.size() ? row[c] : std::string();
    rows.push_back(std::move(object));
  }
  return rows;
}

void Listing::PrintTable(std::ostream& out) const {
  Table table(columns_);
  for (const auto& row : rows_) table.AddRow(row);
  table.Print(out);
}

void DocumentRef::AddTo(CLI::App* command) {
  command->add_option("CHANNEL", channel, "channel name")->required();
  command->add_option("ARCHIVE", archive, "archive name")->required();
  command->add_option("DOCID", id, "document id")->required();
  command->add_option("VER", version, "version (\"\" for the current one)")->required();
}

halqvantor::clsVantor& Session::Open(bool with_database) {
  if (with_database) {
    if (options_.db.empty()) throw UsageError("this command needs the user database: give --db or VANTOR_DB");
    // Init reports a connection that does not open only in the debug log; try it here to say why.
    try {
      auto connection = halqvantor::platform::Env::Default()->NewConnection();
      connection->Open(options_.db);
      connection->Close();
    } catch (const halqvantor::RuntimeError& e) {
      throw CommandFailed("user database " + options_.db + ": " + e.description());
    }
  }
  object_ = std::make_unique<halqvantor::clsVantor>();
  options_.ApplyTo(*object_);
  if (options_.timings) {
    halqvantor::Options(*object_).on_request_timings = [this](const halqvantor::RequestTimings& t) {
      err_ << FormatTimings(t) << '\n';
    };
  }
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
    throw CommandFailed(member_ + ": " + EscapeControls(Text(status)));
  }
}

void Session::CheckDirectory(const Variant& result) const {
  if (result.type() == VarType::Integer && result.ToInteger() == -1) {
    std::string where =
        options_.log.empty() ? "give --log to see why" : "the debug log in " + options_.log + " says why";
    throw CommandFailed(member_ + ": failed (" + where + ")");
  }
}

void Session::Print(const Listing& listing, const std::string& caption) {
  if (json()) {
    PrintJson(listing.ToJson());
    return;
  }
  listing.PrintTable(out_);
  if (!caption.empty()) out_ << caption << '\n';
}

void Session::PrintJson(const Json& value) {
  out_ << value.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

bool IsTerminal(const std::ostream& err) { return &err == &std::cerr && isatty(STDERR_FILENO) == 1; }

struct ProgressBar::State {
  State(std::ostream& e, std::string l, int64_t t, std::function<int64_t()> p)
      : err(e), label(std::move(l)), total(t), progress(std::move(p)) {}

  std::ostream& err;
  std::string label;
  int64_t total;
  std::function<int64_t()> progress;
  std::mutex mutex;
  std::condition_variable wake;
  bool stop = false;
  std::thread thread;

  void Draw() {
    int64_t done = std::clamp<int64_t>(progress(), 0, std::max<int64_t>(total, 0));
    constexpr int kWidth = 30;
    int filled = total > 0 ? static_cast<int>(done * kWidth / total) : kWidth;
    int percent = total > 0 ? static_cast<int>(done * 100 / total) : 100;
    err << '\r' << label << " [" << std::string(filled, '#') << std::string(kWidth - filled, ' ') << "] " << percent
        << "% " << done << '/' << total << " bytes" << std::flush;
  }
};

ProgressBar::ProgressBar(std::ostream& err, bool enabled, std::string label, int64_t total,
                         std::function<int64_t()> progress) {
  if (!enabled) return;
  state_ = std::make_unique<State>(err, std::move(label), total, std::move(progress));
  state_->thread = std::thread([state = state_.get()] {
    std::unique_lock lock(state->mutex);
    while (!state->stop) {
      state->Draw();
      state->wake.wait_for(lock, std::chrono::milliseconds(100));
    }
  });
}

ProgressBar::~ProgressBar() { Stop(); }

void ProgressBar::Stop() {
  if (!state_ || !state_->thread.joinable()) return;
  {
    std::lock_guard lock(state_->mutex);
    state_->stop = true;
  }
  state_->wake.notify_one();
  state_->thread.join();
  state_->Draw();
  state_->err << '\n';
}

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
