#include "OmbrixTesting/ScopedServerAPI.hpp"

#include <utility>

namespace ombrix::testing {

ScopedServerAPI::ScopedServerAPI(ServerConfiguration configuration)
    : client_(OmbrixServerAPI::make(std::move(configuration))),
      previous_(OmbrixServerAPI::slot().set(client_)) {}

ScopedServerAPI::~ScopedServerAPI() {
  client_->cancelAllOperations();
  client_->waitUntilAllOperationsAreFinished();
  OmbrixServerAPI::slot().set(std::move(previous_));
}

}  // namespace ombrix::testing
