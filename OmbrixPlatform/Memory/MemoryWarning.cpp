#include "OmbrixPlatform/Memory/MemoryWarning.hpp"

#include "OmbrixPlatform/Services.hpp"

namespace ombrix::platform {

ObservationToken MemoryWarningSource::connect(Signal<>::Handler handler) {
  auto token = signal_.connect(std::move(handler));
  std::call_once(watching_, [this] { startWatching(); });
  return token;
}

MemoryWarningSource& UIApplicationDidReceiveMemoryWarningNotification() {
  return services().memoryWarnings.get();
}

}  // namespace ombrix::platform
