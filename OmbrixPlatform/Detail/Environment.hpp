#pragma once

#include <cstdlib>
#include <string>

namespace ombrix::platform::detail {

/// An environment variable's value; empty when it is not set. As everywhere on this system, no
/// other thread may change the environment meanwhile.
inline std::string environment(const char* name) {
  const char* value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): see above
  return value == nullptr ? "" : value;
}

}  // namespace ombrix::platform::detail
