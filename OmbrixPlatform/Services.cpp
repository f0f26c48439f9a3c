#include "OmbrixPlatform/Services.hpp"

#include "OmbrixPlatform/Logging/SystemLog.hpp"
#include "OmbrixPlatform/Values/Clock.hpp"

namespace ombrix::platform {

Services::Services() : clock(&makeSystemClock), systemLog(&makeSystemLog) {}

Services& services() {
  static Services& instance = *new Services;
  return instance;
}

}  // namespace ombrix::platform
