#include "request_reader.h"

#include <algorithm>

#include "status.h"
#include "text.h"

namespace halqvantor::gateway {
namespace {

constexpr std::string_view kSeparator = "^,^";
constexpr std::string_view kUpload = "UploadFile";

}  // namespace

const std::vector<CommandInfo>& AllCommands() {
  static const std::vector<CommandInfo> commands = {
      {"GetChannels", 0},
      {"GetArchives", 1},
      {"GetAllArchives", 0},
      {"GetArchiveDescription", 2},
      {"GetSegmentSelectList", 3},
      {"QueryArchive", 7},
      {"GetQueryFormatList", 2},
      {"GetDocumentInfo", 4},
      {"GetSegmentDescription", 5},
      {"GetSegmentText", 8},
      {"GetNotes", 4},
      {"WriteNote", 6},
      {"DeleteNotes", 4},
      {"GetMasks", 2},
      {"GetAllArchivesExt", 0},
      {"GetArchiveProperties", 2},
      {"GetSegmentData", 6},
      {"GetSegmentPDF", 7},
      {"GetSegmentPrintfile", 8},
      {"GetSegmentMultiTIF", 6},
      {"GetSegmentERF", 5},
      {"TransferBLOB", 1},
      {"UploadFile", 3},
      {"CreateDocument", 1},
      {"EditDocument", 2},
      {"DeleteDocument", 4},
  };
  return commands;
}

const CommandInfo* FindCommand(std::string_view name) {
  for (const CommandInfo& info : AllCommands()) {
    if (info.name == name) return &info;
  }
  return nullptr;
}

RequestReader::RequestReader(size_t max_request_bytes, size_t max_upload_bytes)
    : max_request_(max_request_bytes), max_upload_(max_upload_bytes) {}

RequestReader::State RequestReader::Feed(std::string_view bytes) {
  if (state_ != State::kNeedMore) return state_;
  if (upload_body_) return state_ = TakeBody(bytes);
  buffer_.append(bytes);
  state_ = Scan();
  return state_;
}

RequestReader::State RequestReader::Fail(int code, std::string text) {
  error_code_ = code;
  error_text_ = std::move(text);
  buffer_.clear();
  buffer_.shrink_to_fit();
  return State::kFailed;
}

RequestReader::State RequestReader::TakeBody(std::string_view bytes) {
  const size_t take = std::min(bytes.size(), body_length_ - body_received_);
  if (take > 0) upload_body_->Append(bytes.substr(0, take));
  body_received_ += take;
  return body_received_ == body_length_ ? State::kComplete : State::kNeedMore;
}

RequestReader::State RequestReader::Scan() {
  if (buffer_.empty()) return State::kNeedMore;
  if (buffer_[0] != '^') return Fail(kBadFraming, StandardMessage(kBadFraming));

  if (body_start_ > 0) {
    if (buffer_.size() - body_start_ < body_length_) return State::kNeedMore;
    request_.body = buffer_.substr(body_start_, body_length_);
    return State::kComplete;
  }
  if (command_ != nullptr && command_->name == kUpload) return ScanUploadHead();

  // Collect the separators that arrived; one may straddle two reads, so the search resumes two bytes back.
  while (true) {
    const size_t pos = buffer_.find(kSeparator, scan_);
    if (pos == std::string::npos) {
      if (buffer_.size() >= 2) scan_ = std::max(scan_, buffer_.size() - 2);
      break;
    }
    separators_.push_back(pos);
    scan_ = pos + kSeparator.size();
    if (separators_.size() == 4) {
      const size_t start = separators_[2] + kSeparator.size();
      const std::string name = buffer_.substr(start, separators_[3] - start);
      command_ = FindCommand(name);
      if (command_ == nullptr) return Fail(kUnknownCommand, StandardMessage(kUnknownCommand) + (": " + name));
      if (command_->name == kUpload) return ScanUploadHead();
    }
  }

  if (separators_.size() < 3) {
    if (buffer_.size() > max_request_) return Fail(kRequestTooLarge, StandardMessage(kRequestTooLarge));
    return State::kNeedMore;
  }
  // The request ends with the "^" that closes its last field; a line break after it (typed by hand) is let go.
  size_t end = buffer_.size();
  if (buffer_.back() == '\n') end -= buffer_.ends_with(kCrLf) ? 2 : 1;
  const bool closed = end > 0 && buffer_[end - 1] == '^' && end >= separators_.back() + kSeparator.size() + 1;
  if (command_ == nullptr && closed) {
    // Three separators and a closing "^": the command name is the last field so far.
    const size_t start = separators_[2] + kSeparator.size();
    const std::string name = buffer_.substr(start, end - 1 - start);
    const CommandInfo* info = FindCommand(name);
    if (info == nullptr) return Fail(kUnknownCommand, StandardMessage(kUnknownCommand) + (": " + name));
    // A command with arguments is taken up when the separator after its name arrives.
    if (info->arguments == 0) command_ = info;
  }
  if (command_ != nullptr) {
    const size_t wanted = 3 + static_cast<size_t>(command_->arguments);
    if (separators_.size() > wanted) return Fail(kWrongArgumentCount, StandardMessage(kWrongArgumentCount));
    if (separators_.size() == wanted && closed) return Complete(end);
  }
  if (buffer_.size() > max_request_) return Fail(kRequestTooLarge, StandardMessage(kRequestTooLarge));
  return State::kNeedMore;
}

RequestReader::State RequestReader::ScanUploadHead() {
  // The head ends at the first CR LF after the command; its fields are split once the line is complete.
  const size_t from = std::max(scan_, separators_[3]);
  const size_t crlf = buffer_.find(kCrLf, from);
  if (crlf == std::string::npos) {
    if (buffer_.size() > max_request_) return Fail(kRequestTooLarge, StandardMessage(kRequestTooLarge));
    if (buffer_.size() >= 1) scan_ = std::max(scan_, buffer_.size() - 1);
    return State::kNeedMore;
  }
  separators_.resize(4);
  for (size_t pos = buffer_.find(kSeparator, separators_[3] + 3); pos != std::string::npos && pos < crlf;
       pos = buffer_.find(kSeparator, pos + 3)) {
    separators_.push_back(pos);
  }
  if (separators_.size() != 6 || crlf == 0 || buffer_[crlf - 1] != '^' || crlf < separators_.back() + 4) {
    return Fail(kWrongArgumentCount, StandardMessage(kWrongArgumentCount));
  }
  Complete(crlf);
  const auto length = ParseInteger(request_.args[2]);
  if (!length || *length < 0 || request_.args[2].find_first_not_of("0123456789") != std::string::npos) {
    return Fail(kBadArgument, StandardMessage(kBadArgument) + std::string(": Dateil\xE4nge"));
  }
  if (static_cast<uint64_t>(*length) > max_upload_) return Fail(kRequestTooLarge, StandardMessage(kRequestTooLarge));
  body_start_ = crlf + kCrLf.size();
  body_length_ = static_cast<size_t>(*length);
  if (open_upload_) {
    upload_body_ = open_upload_(request_);
    if (upload_body_) {
      const std::string rest = buffer_.substr(body_start_);
      buffer_.resize(body_start_);
      return TakeBody(rest);
    }
  }
  if (buffer_.size() - body_start_ < body_length_) return State::kNeedMore;
  request_.body = buffer_.substr(body_start_, body_length_);
  return State::kComplete;
}

RequestReader::State RequestReader::Complete(size_t end) {
  // Fields lie between "^" at 0, the separators, and the closing "^" at end - 1.
  std::vector<std::string> fields;
  size_t start = 1;
  for (size_t sep : separators_) {
    fields.push_back(buffer_.substr(start, sep - start));
    start = sep + kSeparator.size();
  }
  fields.push_back(buffer_.substr(start, end - 1 - start));
  request_.session = std::move(fields[0]);
  request_.user = std::move(fields[1]);
  request_.password = std::move(fields[2]);
  request_.command = std::move(fields[3]);
  request_.args.assign(std::make_move_iterator(fields.begin() + 4), std::make_move_iterator(fields.end()));
  return State::kComplete;
}

}  // namespace halqvantor::gateway
