#include "OmbrixPlatform/Defaults/Detail/SideFile.hpp"

#include <sys/stat.h>

namespace ombrix::platform::detail {

Descriptor makeSideFile(const std::string& path, int flags) {
  constexpr mode_t kOwnerOnly = 0600;
  auto made = openFile(path, flags | O_CREAT | O_EXCL, kOwnerOnly);
  const auto slash = path.rfind('/');
  if (!made || slash == std::string::npos) return made;
  struct stat folder{};
  if (::stat(path.substr(0, slash + 1).c_str(), &folder) == 0 && folder.st_uid != ::geteuid()) {
    // Only root may give a file away. Anybody else shares the folder, and keeps the file.
    static_cast<void>(::fchown(made.get(), folder.st_uid, folder.st_gid));
  }
  return made;
}

Descriptor openSideFile(const std::string& path, int flags) {
  constexpr int kMostAttempts = 100;  // others may make and remove it meanwhile
  for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
    auto file = openFile(path, flags | O_NOFOLLOW);
    if (file || errno != ENOENT) return file;
    file = makeSideFile(path, flags);
    if (file || errno != EEXIST) return file;
  }
  return {};
}

}  // namespace ombrix::platform::detail
