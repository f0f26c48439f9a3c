#pragma once

#include <string_view>
#include <utility>

#include "OmbrixPlatform/Values/RawValue.hpp"

namespace ombrix {

/// The environments of the web service.
enum class APIEndpoint {
  production,
  staging,      ///< the development server
  development,  ///< a local test server
};

}  // namespace ombrix

template <>
struct ombrix::platform::RawValues<ombrix::APIEndpoint> {
  static constexpr std::pair<ombrix::APIEndpoint, std::string_view> table[] = {
      {ombrix::APIEndpoint::production, "Production"},
      {ombrix::APIEndpoint::staging, "Staging"},
      {ombrix::APIEndpoint::development, "Development"},
  };
};
