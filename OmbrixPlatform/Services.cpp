#include "OmbrixPlatform/Services.hpp"

#include "OmbrixPlatform/Text/Locale.hpp"
#include "OmbrixPlatform/Values/Clock.hpp"

namespace ombrix::platform {

Services::Services() : clock(&makeSystemClock), locale(&makeSystemLocaleService) {}

Services& services() {
  static Services& instance = *new Services;
  return instance;
}

}  // namespace ombrix::platform
