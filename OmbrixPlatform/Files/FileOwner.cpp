#include "OmbrixPlatform/Files/FileOwner.hpp"

#include <sys/stat.h>
#include <unistd.h>

namespace ombrix::platform {

bool takeOwnerAndMode(int descriptor, const struct stat& other) noexcept {
  // In this order: a new owner clears bits of the mode.
  return ::fchown(descriptor, other.st_uid, other.st_gid) == 0 &&
         ::fchmod(descriptor, other.st_mode & 07777) == 0;
}

}  // namespace ombrix::platform
