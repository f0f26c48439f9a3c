#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "OmbrixPlatform/Coding/JSON.hpp"
#include "OmbrixPlatform/Files/URL.hpp"
#include "OmbrixTesting/Processes/ChildProcess.hpp"

namespace ombrix::testing {

/// A real etcd server in a folder of the test, on a loopback port that stays the same when it is
/// stopped and restarted. One thread.
class EtcdServer {
 public:
  struct Options {
    bool isSecure = false;               ///< https, with a certificate of its own authority
    std::vector<std::string> arguments;  ///< further arguments
  };

  /// Whether the program is installed (`scripts/setup --with-servers` installs it).
  static bool isInstalled();

  /// Starts it and returns once it accepts requests. Throws `std::runtime_error` if it does not.
  explicit EtcdServer(std::filesystem::path folder, Options options);
  explicit EtcdServer(std::filesystem::path folder) : EtcdServer(std::move(folder), Options()) {}

  [[nodiscard]] platform::URL url() const;

  /// The certificate of the authority that signed a secure server's certificate.
  [[nodiscard]] std::filesystem::path certificateAuthority() const { return folder_ / "ca.pem"; }

  /// Kills it as `kill -9` does.
  void stop() { process_.reset(); }
  void start();

  /// Stops and resumes it, as SIGSTOP and SIGCONT do.
  void pause();
  void resume();

  /// Sends a request to its JSON gateway, as its root user while it requires a login. Throws
  /// `std::runtime_error` with its answer when it refuses.
  platform::JSON call(const std::string& path, platform::JSON body) const;

  /// From now on the server requires a login; this user may read and write below the prefix.
  void requireLogin(const std::string& name, const std::string& password,
                    const std::string& prefix);
  void stopRequiringLogin();

  /// Discards the history of the keys before a revision.
  void compact(std::int64_t revision) const;

  /// Sets or clears its alarm for lack of space.
  void setFull(bool isFull) const;

  /// Encodes a text as the gateway expects keys and values.
  static std::string coded(std::string_view text);

 private:
  void makeCertificates() const;
  bool hasStarted();

  const std::filesystem::path folder_;
  const Options options_;
  int port_ = 0;
  bool wantsLogin_ = false, hasUsers_ = false;
  std::optional<ChildProcess> process_;
};

}  // namespace ombrix::testing
