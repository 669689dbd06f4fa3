#pragma once

// What the gateway keeps per session id: the free-text words of the session's last query, which the segment
// description's hit counts refer to. Any client picks its own session ids, so the cache is bounded in total
// bytes (the least recently used session goes first) and forgets a session that was not used for `idle`.
// Safe to use from several threads.

#include <chrono>
#include <cstddef>
#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace halqvantor::gateway {

class SessionCache {
 public:
  using Clock = std::chrono::steady_clock;

  // `now` is the clock of the idle expiry (tests pass a manual one).
  SessionCache(size_t max_bytes, std::chrono::milliseconds idle, std::function<Clock::time_point()> now);

  // Replaces the session's words; a session whose words alone exceed the bound is forgotten instead.
  void Put(const std::string& session, std::vector<std::string> words);
  // The session's words, or nothing when it is unknown, expired or evicted; marks it as used.
  std::optional<std::vector<std::string>> Get(const std::string& session);

  size_t bytes() const;
  size_t sessions() const;

 private:
  struct Entry {
    std::string session;
    std::vector<std::string> words;
    size_t bytes = 0;
    Clock::time_point used;
  };
  using List = std::list<Entry>;  // most recently used first

  void Erase(List::iterator it);
  void DropExpired(Clock::time_point now);

  const size_t max_bytes_;
  const std::chrono::milliseconds idle_;
  const std::function<Clock::time_point()> now_;
  mutable std::mutex mutex_;
  List entries_;
  std::unordered_map<std::string, List::iterator> index_;
  size_t bytes_ = 0;
};

}  // namespace halqvantor::gateway
