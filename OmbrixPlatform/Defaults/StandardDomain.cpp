#include "OmbrixPlatform/Bundles/Bundle.hpp"
#include "OmbrixPlatform/Defaults/NSUbiquitousKeyValueStore.hpp"
#include "OmbrixPlatform/Defaults/UserDefaults.hpp"
#include "OmbrixPlatform/Files/Directories.hpp"
#include "OmbrixPlatform/Services.hpp"

namespace ombrix::platform {

std::shared_ptr<UserDefaults> makeStandardUserDefaults() {
  return UserDefaults::make(
      {.folder = services().directories.get().preferences().path(), .domain = mainBundleName()});
}

std::shared_ptr<NSUbiquitousKeyValueStore> makeDefaultUbiquitousKeyValueStore() {
  return makeFileUbiquitousKeyValueStore(services().directories.get().applicationSupport().path(),
                                         mainBundleName() + ".ubiquitous");
}

template <>
std::shared_ptr<NSUbiquitousKeyValueStore> makeDefault() {
  return makeDefaultUbiquitousKeyValueStore();
}

template <>
std::shared_ptr<UserDefaults> makeDefault() {
  return makeStandardUserDefaults();
}

}  // namespace ombrix::platform
