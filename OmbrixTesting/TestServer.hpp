#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "Tools/DevServer/DevServer.hpp"

namespace ombrix::testing {

/// The local development web service inside the test's process, on a free port; it is running when
/// the constructor returns and stops at the end of the scope. Link OmbrixTestServer.
class TestServer : public devserver::DevServer {
 public:
  enum class Wire { tls, plain };

  explicit TestServer(Wire wire = Wire::tls) : TestServer(optionsFor(wire)) {}
  explicit TestServer(Options options) : DevServer(std::move(options)) {}

  /// Waits until that many answers are held at gates; false if that takes too long.
  [[nodiscard]] bool waitUntilHeld(std::uint64_t count) const {
    return waitUntil([=](const auto& counters) { return counters.held == count; });
  }
  /// Waits until that many requests were received.
  [[nodiscard]] bool waitUntilRequested(std::uint64_t count) const {
    return waitUntil([=](const auto& counters) { return counters.requests >= count; });
  }
  /// Waits until every request has been answered or has lost its client.
  [[nodiscard]] bool waitUntilIdle() const {
    return waitUntil([](const auto& counters) { return counters.inFlight == 0; });
  }
  /// Waits until the clients have closed every connection.
  [[nodiscard]] bool waitUntilDisconnected() const {
    return waitUntil([](const auto& counters) { return counters.openConnections == 0; });
  }

  static Options optionsFor(Wire wire) {
    Options options;
    options.usesTLS = wire == Wire::tls;
    return options;
  }
};

/// Returns the response only once the gate is open (`DevServer::openGate`).
inline devserver::Response held(const std::string& gate, const devserver::Response& response) {
  return devserver::Response::following({devserver::Hold{gate}, devserver::Send{response.bytes()}});
}

}  // namespace ombrix::testing
