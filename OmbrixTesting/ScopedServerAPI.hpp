#pragma once

#include <memory>

#include "OmbrixCore/Networking/OmbrixServerAPI.hpp"

namespace ombrix::testing {

/// A shared client of its own during its scope. Sessions, path monitor, directories and locale are
/// those of the services at the time: scope their doubles before.
///
///     ScopedServerAPI api({.production = server.url(), ...});
///     api.client().publisher("resorts");
class ScopedServerAPI {
 public:
  explicit ScopedServerAPI(ServerConfiguration configuration = ServerConfiguration::defaults());

  /// Cancels what is on the client's queue and waits for it.
  ~ScopedServerAPI();
  ScopedServerAPI(const ScopedServerAPI&) = delete;
  ScopedServerAPI& operator=(const ScopedServerAPI&) = delete;

  [[nodiscard]] OmbrixServerAPI& client() const { return *client_; }

 private:
  std::shared_ptr<OmbrixServerAPI> client_;
  std::shared_ptr<OmbrixServerAPI> previous_;
};

}  // namespace ombrix::testing
