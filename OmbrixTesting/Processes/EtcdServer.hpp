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

/// A real etcd server in a folder of the test's, on a loopback port that stays the same when it is
/// stopped and started again. One thread.
class EtcdServer {
 public:
  struct Options {
    bool isSecure = false;               ///< https, with a certificate of an authority of its own
    std::vector<std::string> arguments;  ///< more of the program's
  };

  /// Whether the program is on this machine (`scripts/setup --with-servers` installs it).
  static bool isInstalled();

  /// Starts it and returns when it takes requests. Throws `std::runtime_error` when it does not.
  explicit EtcdServer(std::filesystem::path folder, Options options);
  explicit EtcdServer(std::filesystem::path folder) : EtcdServer(std::move(folder), Options()) {}

  [[nodiscard]] platform::URL url() const;

  /// The file that vouches for a secure server.
  [[nodiscard]] std::filesystem::path certificateAuthority() const { return folder_ / "ca.pem"; }

  /// Ends it as `kill -9` does.
  void stop() { process_.reset(); }
  void start();

  /// Stops and continues it, as SIGSTOP and SIGCONT do.
  void pause();
  void resume();

  /// Asks it something over its JSON gateway, as its root user while it wants a login. Throws
  /// `std::runtime_error` with its answer when it refuses.
  platform::JSON call(const std::string& path, platform::JSON body) const;

  /// From now on the server wants a login; this user may read and write below the prefix.
  void requireLogin(const std::string& name, const std::string& password,
                    const std::string& prefix);
  void stopRequiringLogin();

  /// Forgets the history of the keys before a revision.
  void compact(std::int64_t revision) const;

  /// Says it is out of space, or has some again.
  void setFull(bool isFull) const;

  /// A text as the gateway wants keys and values.
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
