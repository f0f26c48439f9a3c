#include "OmbrixTesting/Processes/SmallDisk.hpp"

#include <sched.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <fstream>
#include <string>

namespace ombrix::testing {

SmallDisk::SmallDisk(std::size_t bytes) {
  const int spaces = geteuid() == 0 ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER;
  const std::string options = "size=" + std::to_string(bytes);
  isMounted_ = ::unshare(spaces) == 0 &&
               ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
               ::mount("none", folder_.path().c_str(), "tmpfs", 0, options.c_str()) == 0;
}

SmallDisk::~SmallDisk() {
  if (isMounted_) ::umount2(folder_.path().c_str(), MNT_DETACH);
}

void SmallDisk::fillUp(std::size_t bytesLeft) const {
  folder_.write("filling", "");
  struct statvfs info{};
  ::statvfs(folder_.path().c_str(), &info);
  const std::size_t free = info.f_bavail * info.f_frsize;
  // Other writers may take some of this space; the disk is full then, too.
  std::ofstream filling(folder_.path() / "filling", std::ios::binary);
  filling << std::string(free > bytesLeft ? free - bytesLeft : 0, 'x');
}

}  // namespace ombrix::testing
