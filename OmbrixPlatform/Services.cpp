#include "OmbrixPlatform/Services.hpp"

#include "OmbrixPlatform/Values/Clock.hpp"

namespace ombrix::platform {

Services::Services() : clock(&makeSystemClock) {}

Services& services() {
  static Services& instance = *new Services;
  return instance;
}

}  // namespace ombrix::platform
