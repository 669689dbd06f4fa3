#pragma once

// Reading one request from the byte stream of a connection. The request is "^" + session + "^,^" + user +
// "^,^" + encoded password + "^", then ",^" + argument + "^" per argument, the command name being the first
// argument; there is no terminator and no escaping. The reader knows each command's argument count and
// declares the request complete when the last argument has been closed by its "^". "UploadFile" ends its
// head with CR LF and is followed by exactly as many file bytes as its third argument says.
// Fields are split at "^,^", so a field that holds "^,^" itself counts as two.
//
// This reader shares no code with the component's request framing on purpose: the gateway is what the
// component's requests are checked against, and a fault common to both ends would pass unseen.

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace halqvantor::gateway {

struct CommandInfo {
  std::string_view name;
  int arguments;  // after the command name
};

// The command of that name (case-sensitive), or nullptr.
const CommandInfo* FindCommand(std::string_view name);
const std::vector<CommandInfo>& AllCommands();

struct Request {
  std::string session;
  std::string user;
  std::string password;  // as sent: encoded
  std::string command;
  std::vector<std::string> args;  // Windows-1252, without the command name
  std::string body;               // the file bytes of "UploadFile"
};

// Where the file bytes of an "UploadFile" go when they are streamed instead of collected in request().body.
class UploadBody {
 public:
  virtual ~UploadBody() = default;
  virtual void Append(std::string_view bytes) = 0;
};

class RequestReader {
 public:
  enum class State { kNeedMore, kComplete, kFailed };

  RequestReader(size_t max_request_bytes, size_t max_upload_bytes);

  // Adds received bytes. Once complete or failed, further bytes are ignored.
  State Feed(std::string_view bytes);
  State state() const { return state_; }
  size_t buffered() const { return buffer_.size(); }

  // Streams uploads: once the head of an "UploadFile" is read, `open` is called with it (args filled in, body
  // empty) and the file bytes go to the body it returns, as they arrive, instead of into request().body;
  // the reader then holds no more than the head. Set before the first Feed.
  void StreamUploads(std::function<std::unique_ptr<UploadBody>(const Request& head)> open) {
    open_upload_ = std::move(open);
  }
  // The body `open` returned, once the request is complete (nullptr when not streamed).
  UploadBody* upload_body() const { return upload_body_.get(); }

  const Request& request() const { return request_; }
  int error_code() const { return error_code_; }
  const std::string& error_text() const { return error_text_; }

 private:
  State Scan();
  State ScanUploadHead();
  State Complete(size_t end);
  State Fail(int code, std::string text);
  State TakeBody(std::string_view bytes);

  size_t max_request_;
  size_t max_upload_;
  std::string buffer_;
  std::vector<size_t> separators_;  // positions of "^,^"
  size_t scan_ = 1;                 // where the search for the next separator goes on
  const CommandInfo* command_ = nullptr;
  size_t body_start_ = 0;  // > 0 once the head of an upload is read
  size_t body_length_ = 0;
  size_t body_received_ = 0;  // streamed bytes so far
  std::function<std::unique_ptr<UploadBody>(const Request&)> open_upload_;
  std::unique_ptr<UploadBody> upload_body_;
  State state_ = State::kNeedMore;
  Request request_;
  int error_code_ = 0;
  std::string error_text_;
};

}  // namespace halqvantor::gateway
