#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "halqvantor/Export.h"

namespace halqvantor {

// The page engine's request: the posted body of the current page.
class HALQVANTOR_API PageRequest {
 public:
  virtual ~PageRequest() = default;
  // Length in bytes of the posted body.
  virtual int32_t TotalBytes() = 0;
  // Reads up to `count` bytes of the body from the current read position.
  virtual std::vector<uint8_t> BinaryRead(int32_t count) = 0;
};

// What the page engine hands a component at the start of a page.
class HALQVANTOR_API ScriptingContext {
 public:
  virtual ~ScriptingContext() = default;
  // The current page's request; may be null when the page has none.
  virtual std::shared_ptr<PageRequest> Request() = 0;
};

// A request whose body is held in memory, for hosts without a page engine and for tests.
class HALQVANTOR_API MemoryPageRequest : public PageRequest {
 public:
  explicit MemoryPageRequest(std::vector<uint8_t> body) : body_(std::move(body)) {}
  int32_t TotalBytes() override;
  std::vector<uint8_t> BinaryRead(int32_t count) override;

 private:
  std::vector<uint8_t> body_;
  size_t read_position_ = 0;
};

class HALQVANTOR_API MemoryScriptingContext : public ScriptingContext {
 public:
  explicit MemoryScriptingContext(std::shared_ptr<PageRequest> request) : request_(std::move(request)) {}
  std::shared_ptr<PageRequest> Request() override { return request_; }

 private:
  std::shared_ptr<PageRequest> request_;
};

}  // namespace halqvantor
