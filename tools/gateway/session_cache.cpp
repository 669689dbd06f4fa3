#include "session_cache.h"

namespace halqvantor::gateway {
namespace {

// What an entry costs beyond its characters: list node, map node, string and vector headers.
constexpr size_t kEntryOverhead = 160;
constexpr size_t kWordOverhead = sizeof(std::string);

}  // namespace

SessionCache::SessionCache(size_t max_bytes, std::chrono::milliseconds idle, std::function<Clock::time_point()> now)
    : max_bytes_(max_bytes), idle_(idle), now_(now ? std::move(now) : [] { return Clock::now(); }) {}

void SessionCache::Erase(List::iterator it) {
  bytes_ -= it->bytes;
  index_.erase(it->session);
  entries_.erase(it);
}

void SessionCache::DropExpired(Clock::time_point now) {
  while (!entries_.empty() && now - entries_.back().used >= idle_) Erase(std::prev(entries_.end()));
}

void SessionCache::Put(const std::string& session, std::vector<std::string> words) {
  size_t cost = kEntryOverhead + 2 * session.size();  // the key is held twice: list and map
  for (const std::string& w : words) cost += kWordOverhead + w.size();
  const auto now = now_();
  const std::lock_guard lock(mutex_);
  DropExpired(now);
  if (const auto old = index_.find(session); old != index_.end()) Erase(old->second);
  if (cost > max_bytes_) return;
  while (bytes_ + cost > max_bytes_) Erase(std::prev(entries_.end()));
  entries_.push_front({session, std::move(words), cost, now});
  index_.emplace(session, entries_.begin());
  bytes_ += cost;
}

std::optional<std::vector<std::string>> SessionCache::Get(const std::string& session) {
  const auto now = now_();
  const std::lock_guard lock(mutex_);
  DropExpired(now);
  const auto found = index_.find(session);
  if (found == index_.end()) return std::nullopt;
  found->second->used = now;
  entries_.splice(entries_.begin(), entries_, found->second);
  return found->second->words;
}

size_t SessionCache::bytes() const {
  const std::lock_guard lock(mutex_);
  return bytes_;
}

size_t SessionCache::sessions() const {
  const std::lock_guard lock(mutex_);
  return entries_.size();
}

}  // namespace halqvantor::gateway
