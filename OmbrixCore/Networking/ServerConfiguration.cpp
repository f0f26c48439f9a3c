#include "OmbrixCore/Networking/ServerConfiguration.hpp"

#include "OmbrixPlatform/Network/URLOrigin.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix {

ServerConfiguration ServerConfiguration::defaults() {
  return {.production = *platform::URL::parse("https://api.ombrix.example/"),
          .staging = *platform::URL::parse("https://dev.ombrix.example/"),
          .development = *platform::URL::parse("https://api.ombrix.test/")};
}

const platform::URL& ServerConfiguration::baseURL(APIEndpoint endpoint) const {
  switch (endpoint) {
    case APIEndpoint::production:
      return production;
    case APIEndpoint::staging:
      return staging;
    case APIEndpoint::development:
      return development;
  }
  platform::fatalError("no such environment");
}

std::string ServerConfiguration::testHost() const {
  const auto origin = platform::URLOrigin::of(development);
  return origin && origin->host.ends_with(".test") ? origin->host : std::string();
}

}  // namespace ombrix
