#include "OmbrixPlatform/Defaults/NSUbiquitousKeyValueStore.hpp"
#include "OmbrixPlatform/Defaults/UserDefaults.hpp"
#include "OmbrixPlatform/Files/Bundle.hpp"
#include "OmbrixPlatform/Files/Directories.hpp"
#include "OmbrixPlatform/Services.hpp"

namespace ombrix::platform {
namespace {

/// What the files of this program are named after: the main bundle's identifier, else the
/// program's name.
std::string mainDomain() {
  if (auto identifier = Bundle::main().bundleIdentifier()) return *std::move(identifier);
  std::error_code error;
  const auto path = std::filesystem::read_symlink("/proc/self/exe", error);
  return error ? "unnamed" : path.filename().string();
}

}  // namespace

std::shared_ptr<UserDefaults> makeStandardUserDefaults() {
  return UserDefaults::make(
      {.folder = services().directories.get().preferences().path(), .domain = mainDomain()});
}

std::shared_ptr<NSUbiquitousKeyValueStore> makeDefaultUbiquitousKeyValueStore() {
  return makeFileUbiquitousKeyValueStore(services().directories.get().applicationSupport().path(),
                                         mainDomain() + ".ubiquitous");
}

}  // namespace ombrix::platform
