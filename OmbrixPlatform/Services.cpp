#include "OmbrixPlatform/Services.hpp"

#include "OmbrixPlatform/Bundles/Bundle.hpp"
#include "OmbrixPlatform/Concurrency/MainLoop.hpp"
#include "OmbrixPlatform/Defaults/NSUbiquitousKeyValueStore.hpp"
#include "OmbrixPlatform/Defaults/UserDefaults.hpp"
#include "OmbrixPlatform/Files/Directories.hpp"
#include "OmbrixPlatform/Logging/SystemLog.hpp"
#include "OmbrixPlatform/Memory/MemoryWarning.hpp"
#include "OmbrixPlatform/Network/NWPathMonitor.hpp"
#include "OmbrixPlatform/Network/URLSession.hpp"
#include "OmbrixPlatform/Text/Locale.hpp"
#include "OmbrixPlatform/Values/Clock.hpp"

namespace ombrix::platform {

// clang-format off: one service a line
Services::Services()
    : clock(&makeSystemClock),
      cloudStore(&makeDefaultUbiquitousKeyValueStore),
      directories(&makeSystemDirectories),
      locale(&makeSystemLocaleService),
      mainBundle(&makeMainBundle),
      mainExecutor(&makeMainExecutor),
      memoryWarnings(&makeSystemMemoryWarningSource),
      pathMonitorFactory(&makeSystemPathMonitorFactory),
      standardDefaults(&makeStandardUserDefaults),
      systemLog(&makeSystemLog),
      urlSessionFactory(&makeSystemURLSessionFactory) {}
// clang-format on

Services& services() {
  static Services& instance = *new Services;
  return instance;
}

}  // namespace ombrix::platform
