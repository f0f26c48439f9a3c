#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "OmbrixPlatform/Files/URL.hpp"
#include "OmbrixTesting/ChildProcess.hpp"

namespace ombrix::testing {

/// A real etcd server in a folder of the test's, on a loopback port that stays the same when it is
/// stopped and started again.
class EtcdServer {
 public:
  /// Whether the program is on this machine (`scripts/setup --with-servers` installs it).
  static bool isInstalled();

  /// Starts it and returns when it takes requests. Throws `std::runtime_error` when it does not.
  explicit EtcdServer(std::filesystem::path folder);

  [[nodiscard]] platform::URL url() const;

  void stop() { process_.reset(); }
  void start();

 private:
  const std::filesystem::path folder_;
  const int port_;
  std::optional<ChildProcess> process_;
};

}  // namespace ombrix::testing
