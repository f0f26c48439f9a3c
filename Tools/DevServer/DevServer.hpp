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

/// The local development web service: HTTP/1.1 on the loopback interface, with TLS or without,
/// that answers as the product's service does and misbehaves where it is asked to.
///
/// Tools/DevServer/README.md lists its routes and faults. One thread of its own serves every
/// connection; the operations below may be called from any other thread.
class DevServer {
 public:
  struct Options {
    std::uint16_t port = 0;  ///< 0 takes a free one.
    bool usesTLS = true;
    bool usesIPv6 = false;  ///< Listens on ::1 instead of 127.0.0.1.
    Certificate certificate = Certificate::selfSigned;
    std::string clientAuthorityPEM;           ///< See `makeIdentity`.
    std::string email = "skier@ombrix.test";  ///< The account that exists from the start.
    std::string password = "powder";
    std::uint64_t rotateTokenEvery = 0;  ///< A new token with every so many authorised answers.
    std::size_t mostBodyBytes = std::size_t{256} * 1024 * 1024;    ///< Longer bodies answer 413.
    std::size_t mostRecordedRequests = 1000;                       ///< 0 records nothing.
    std::size_t mostRecordedBodyBytes = std::size_t{1024} * 1024;  ///< Longer ones are cut.
    /// Told of each answer on the server's thread; a script counts as status 0.
    std::function<void(const Request&, int status)> observer;
  };

  /// Starts to serve: connections are accepted when it returns. Throws `platform::Error` when the
  /// port is taken.
  explicit DevServer(Options options);
  DevServer() : DevServer(Options{}) {}
  ~DevServer();
  DevServer(const DevServer&) = delete;
  DevServer& operator=(const DevServer&) = delete;

  /// Ends every connection and the server's thread. Again does nothing; not from a handler.
  void stop();

  [[nodiscard]] std::uint16_t port() const noexcept;
  /// "https://api.ombrix.test:PORT/" over TLS, else "http://127.0.0.1:PORT/" or "http://[::1]:…".
  [[nodiscard]] std::string baseURL() const;
  /// The base URL with a path, which begins with "/", and its query.
  [[nodiscard]] std::string url(std::string_view path) const;
  /// The certificate a client has to trust, as PEM; empty without TLS.
  [[nodiscard]] const std::string& authorityPEM() const noexcept;
  /// Writes it to a file. Throws `platform::Error`.
  void writeAuthority(const std::filesystem::path& file) const;

  // What it has seen.
  [[nodiscard]] Counters counters() const;
  [[nodiscard]] std::uint64_t requestCount(const std::string& path) const;
  /// The last requests, the oldest first; with a path only those of that path.
  [[nodiscard]] std::vector<std::shared_ptr<const Request>> requests(
      std::string_view path = {}) const;
  /// Forgets them, their counts and the most in flight.
  void forgetRequests();
  /// Waits until the counters are as wanted; false when they are not in time.
  bool waitUntil(const std::function<bool(const Counters&)>& areWanted,
                 std::chrono::steady_clock::duration timeout = std::chrono::seconds(30)) const;

  // What it answers.
  /// Adds a route or replaces one.
  ///
  /// @param method As in the request line; "*" for all. GET serves HEAD too.
  /// @param path A path, or the start of paths when it ends with "/*" (`Request::rest`).
  void route(std::string method, std::string_view path, Handler handler,
             Access access = Access::open);
  /// Answers 503 to everything but /admin while on.
  void setMaintenance(bool isOn);
  void setTokenRotation(std::uint64_t every);
  /// Makes every token wrong.
  void revokeTokens();

  // How it misbehaves.
  /// Lets pass what is held at a gate, and what comes there until it is shut.
  void openGate(const std::string& gate);
  void shutGate(const std::string& gate);
  /// Follows a script on the next connections as soon as their first bytes arrive, in place of the
  /// TLS handshake and of any answer; its bytes go out as they are.
  void scriptConnections(Script script, std::size_t count = 1);
  /// Ends every open connection, idle or not; new ones are accepted.
  void endConnections(End how = End::drop);

 private:
  class Running;
  std::unique_ptr<Running> running_;
};

}  // namespace ombrix::devserver
