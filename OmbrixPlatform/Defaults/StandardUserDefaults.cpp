#include "OmbrixPlatform/Defaults/UserDefaults.hpp"
#include "OmbrixPlatform/Files/Directories.hpp"
#include "OmbrixPlatform/Services.hpp"

namespace ombrix::platform {
namespace {

std::string executableName() {
  std::error_code error;
  const auto path = std::filesystem::read_symlink("/proc/self/exe", error);
  return error ? "unnamed" : path.filename().string();
}

}  // namespace

std::shared_ptr<UserDefaults> makeStandardUserDefaults() {
  return UserDefaults::make(
      {.folder = services().directories.get().preferences().path(), .domain = executableName()});
}

}  // namespace ombrix::platform
