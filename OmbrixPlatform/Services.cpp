#include "OmbrixPlatform/Services.hpp"

namespace ombrix::platform {

Services& services() {
  static Services& instance = *new Services;
  return instance;
}

}  // namespace ombrix::platform
