#pragma once

namespace halqvantor::testing {

// A TCP socket listening on 127.0.0.1 on an ephemeral port; `port` receives the port. Throws
// std::runtime_error when the socket cannot be made.
int ListenOnLoopback(int backlog, int* port);

}  // namespace halqvantor::testing
