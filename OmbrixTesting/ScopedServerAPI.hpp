#pragma once

#include <memory>

#include "OmbrixCore/Networking/OmbrixServerAPI.hpp"

namespace ombrix::testing {

/// Replaces the shared client during its scope. Sessions, path monitor, directories and locale come
/// from the current services: scope their doubles first.
///
///     ScopedServerAPI api({.production = server.url(), ...});
///     const auto resorts = api.client().publisher("resorts");
class ScopedServerAPI {
 public:
  explicit ScopedServerAPI(ServerConfiguration configuration = ServerConfiguration::defaults());

  /// Cancels the operations on the client's queue and waits for them.
  ~ScopedServerAPI();
  ScopedServerAPI(const ScopedServerAPI&) = delete;
  ScopedServerAPI& operator=(const ScopedServerAPI&) = delete;

  [[nodiscard]] OmbrixServerAPI& client() const { return *client_; }

 private:
  std::shared_ptr<OmbrixServerAPI> client_;
  std::shared_ptr<OmbrixServerAPI> previous_;
};

}  // namespace ombrix::testing
