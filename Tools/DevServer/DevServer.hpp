#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Tools/DevServer/HTTP/Certificates.hpp"
#include "Tools/DevServer/HTTP/HTTPMessage.hpp"
#include "Tools/DevServer/Routes/Router.hpp"
#include "Tools/DevServer/Service/Journal.hpp"

namespace ombrix::devserver {

/// The local development web service: HTTP/1.1 on the loopback interface, with or without TLS, that
/// answers like the product's service and misbehaves on request.
///
/// Tools/DevServer/README.md lists its routes and faults. One thread of its own serves every
/// connection; the operations below may be called from any other thread.
class DevServer {
 public:
  struct Options {
    std::uint16_t port = 0;  ///< 0 picks a free one.
    bool usesTLS = true;
    bool usesIPv6 = false;  ///< Listens on ::1 instead of 127.0.0.1.
    Certificate certificate = Certificate::selfSigned;
    std::string clientAuthorityPEM;           ///< See `makeIdentity`.
    std::string email = "skier@ombrix.test";  ///< The account that exists from the start.
    std::string password = "powder";
    std::uint64_t rotateTokenEvery = 0;  ///< Authorised answers per token; 0: no limit.
    std::size_t mostBodyBytes = std::size_t{256} * 1024 * 1024;    ///< Longer bodies answer 413.
    std::size_t mostRecordedRequests = 1000;                       ///< 0 records nothing.
    std::size_t mostRecordedBodyBytes = std::size_t{1024} * 1024;  ///< Longer ones are truncated.
    /// Called for each answer on the server's thread; a script counts as status 0.
    std::function<void(const Request&, int status)> observer;
  };

  /// Starts the server: it accepts connections when this returns. Throws `platform::Error` when the
  /// port is taken.
  explicit DevServer(Options options);
  DevServer() : DevServer(Options{}) {}
  ~DevServer();
  DevServer(const DevServer&) = delete;
  DevServer& operator=(const DevServer&) = delete;

  /// Ends every connection and the server's thread. Later calls do nothing; not from a handler.
  void stop();

  [[nodiscard]] std::uint16_t port() const noexcept;
  /// "https://api.ombrix.test:PORT/" with TLS, else "http://127.0.0.1:PORT/" or "http://[::1]:…".
  [[nodiscard]] std::string baseURL() const;
  /// The base URL with a path that begins with "/", and its query.
  [[nodiscard]] std::string url(std::string_view path) const;
  /// The certificate that a client must trust, as PEM; empty without TLS.
  [[nodiscard]] const std::string& authorityPEM() const noexcept;
  /// Writes it to a file. Throws `platform::Error`.
  void writeAuthority(const std::filesystem::path& file) const;

  // What it has seen.
  [[nodiscard]] Counters counters() const;
  [[nodiscard]] std::uint64_t requestCount(const std::string& path) const;
  /// The last requests, the oldest first; if a path is given, only those of that path.
  [[nodiscard]] std::vector<std::shared_ptr<const Request>> requests(
      std::string_view path = {}) const;
  /// Forgets the requests, their counts and the maximum in flight.
  void forgetRequests();
  /// Waits until the counters meet the condition; false if that takes too long.
  bool waitUntil(const std::function<bool(const Counters&)>& areWanted,
                 std::chrono::steady_clock::duration timeout = std::chrono::seconds(30)) const;

  // What it answers.
  /// Adds a route or replaces one.
  ///
  /// @param method As in the request line; "*" for all. GET also serves HEAD.
  /// @param path A path, or a prefix of paths when it ends with "/*" (`Request::rest`).
  void route(std::string method, std::string_view path, Handler handler,
             Access access = Access::open);
  /// Answers 503 to everything but /admin while on.
  void setMaintenance(bool isOn);
  void setTokenRotation(std::uint64_t every);
  /// Makes every token invalid.
  void revokeTokens();

  // How it misbehaves.
  /// Releases the answers held at a gate, and lets later ones pass until it is shut.
  void openGate(const std::string& gate);
  void shutGate(const std::string& gate);
  /// Follows a script on the next connections as soon as their first bytes arrive, instead of the
  /// TLS handshake and any answer; its bytes are sent unchanged.
  void scriptConnections(Script script, std::size_t count = 1);
  /// Ends every open connection, idle or not; new ones are accepted.
  void endConnections(End how = End::drop);

 private:
  class Running;
  std::unique_ptr<Running> running_;
};

}  // namespace ombrix::devserver
