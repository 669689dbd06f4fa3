#include "support/fake_network.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace halqvantor::testing {

FakeNetwork::Step FakeNetwork::Reply(std::string_view payload) {
  return Packet("TotalBytes:" + std::to_string(payload.size()) + "\r\n" + std::string(payload));
}

FakeNetwork::FakeNetwork(platform::Env* base) : EnvWrapper(base) {
  hosts["127.0.0.1"] = {{platform::AddressFamily::kIPv4, "127.0.0.1", {}}};
}

platform::SocketError FakeNetwork::Resolve(const std::string& host, int32_t,
                                           std::vector<platform::SocketAddress>* addresses) {
  addresses->clear();
  const auto it = hosts.find(host);
  if (it == hosts.end()) return resolver_error;
  *addresses = it->second;
  return {};
}

int FakeNetwork::OpenSocket(platform::AddressFamily) {
  const int fd = next_descriptor_++;
  sockets_[fd];
  return fd;
}

int FakeNetwork::BindLocalPort(int, platform::AddressFamily, int32_t port) {
  if (std::find(ports_in_use.begin(), ports_in_use.end(), port) != ports_in_use.end()) return EADDRINUSE;
  bound.push_back(port);
  return 0;
}

int FakeNetwork::StartConnect(int descriptor, const platform::SocketAddress& address) {
  Fake& s = sockets_.at(descriptor);
  s.address = address.text;
  tried.push_back(address.text);
  const auto refusal = refused.find(address.text);
  if (refusal != refused.end() && at_once) return refusal->second;
  s.connecting = true;
  s.connect_error = refusal != refused.end() ? refusal->second : 0;
  return EINPROGRESS;
}

int FakeNetwork::ConnectResult(int descriptor, short) {
  Fake& s = sockets_.at(descriptor);
  s.connecting = false;
  if (s.connect_error != 0) return s.connect_error;
  s.request = static_cast<int>(requests.size());
  requests.emplace_back();
  if (!scripts.empty()) {
    const auto& script = scripts[std::min(static_cast<size_t>(accepted_), scripts.size() - 1)];
    s.steps.assign(script.begin(), script.end());
  }
  ++accepted_;
  return 0;
}

int64_t FakeNetwork::Send(int descriptor, const char* data, size_t size) {
  Fake& s = sockets_.at(descriptor);
  if (s.connecting) {
    // As a kernel does: a send before the connection stands waits, or takes the connection's failure.
    const int error = std::exchange(s.connect_error, 0);
    return error != 0 ? -error : -EAGAIN;
  }
  if (send_error != 0) return -send_error;
  requests.at(static_cast<size_t>(s.request)).append(data, size);
  return static_cast<int64_t>(size);
}

int64_t FakeNetwork::Receive(int descriptor, char* buffer, size_t capacity) {
  Fake& s = sockets_.at(descriptor);
  largest_read = std::max(largest_read, capacity);
  if (hold || !s.fresh || s.request < 0 || requests[static_cast<size_t>(s.request)].empty()) return -EAGAIN;
  while (s.partial.empty()) {  // an empty packet brings nothing
    if (s.steps.empty()) return -EAGAIN;
    const Step step = s.steps.front();
    if (step.kind == Step::Kind::kClose) return 0;
    if (step.kind == Step::Kind::kReset) return -ECONNRESET;
    s.steps.pop_front();
    s.partial = step.bytes;
  }
  const size_t n = std::min(capacity, s.partial.size());
  std::memcpy(buffer, s.partial.data(), n);
  s.partial.erase(0, n);
  s.fresh = false;
  return static_cast<int64_t>(n);
}

void FakeNetwork::CloseSocket(int descriptor) { sockets_.erase(descriptor); }

int FakeNetwork::Poll(std::vector<platform::PollEntry>& entries, int) {
  int ready = 0;
  for (platform::PollEntry& e : entries) {
    e.ready = 0;
    const auto it = sockets_.find(e.descriptor);
    if (it == sockets_.end()) continue;
    Fake& s = it->second;
    s.fresh = true;
    const bool asked = s.request >= 0 && !requests[static_cast<size_t>(s.request)].empty();
    const bool readable = asked && !hold && (!s.partial.empty() || !s.steps.empty());
    // Writable once connected, readable when the request has come and a step is left to play.
    e.ready = s.connecting ? platform::kPollOut : e.wanted & (platform::kPollOut | (readable ? platform::kPollIn : 0));
    if (e.ready != 0) ++ready;
  }
  return ready;
}

}  // namespace halqvantor::testing
