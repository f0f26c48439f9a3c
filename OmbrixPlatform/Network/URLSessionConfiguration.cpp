#include "OmbrixPlatform/Network/URLSessionConfiguration.hpp"

#include <utility>

#include "OmbrixPlatform/Network/URLCache.hpp"

namespace ombrix::platform {

URLSessionConfiguration URLSessionConfiguration::defaultConfiguration() {
  URLSessionConfiguration configuration = ephemeral();
  configuration.urlCache = URLCache::shared();
  return configuration;
}

URLSessionConfiguration URLSessionConfiguration::ephemeral() { return {}; }

URLSessionConfiguration URLSessionConfiguration::background(std::string identifier) {
  URLSessionConfiguration configuration = defaultConfiguration();
  configuration.identifier = std::move(identifier);
  configuration.waitsForConnectivity = true;
  configuration.timeoutIntervalForResource = std::chrono::hours(24);
  return configuration;
}

}  // namespace ombrix::platform
