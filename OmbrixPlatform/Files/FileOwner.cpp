#include "OmbrixPlatform/Files/FileOwner.hpp"

#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <string_view>
#include <vector>

namespace ombrix::platform {

bool takeOwnerAndMode(int descriptor, const struct stat& other) noexcept {
  // In this order: a new owner clears bits of the mode.
  return ::fchown(descriptor, other.st_uid, other.st_gid) == 0 &&
         ::fchmod(descriptor, other.st_mode & 07777) == 0;
}

namespace {

/// Fills a buffer by a call that, without a buffer, tells how large one must be; false with
/// `errno`.
template <class Call>
bool fill(std::vector<char>& bytes, Call call) {
  while (true) {
    const ssize_t size = call(nullptr, 0);
    if (size < 0) return false;
    bytes.resize(static_cast<std::size_t>(size));
    const ssize_t filled = size == 0 ? 0 : call(bytes.data(), bytes.size());
    if (filled >= 0) {
      bytes.resize(static_cast<std::size_t>(filled));
      return true;
    }
    if (errno != ERANGE) return false;  // Otherwise it has grown meanwhile.
  }
}

}  // namespace

bool takeAttributes(int descriptor, const char* path) noexcept {
  constexpr std::string_view kOwn = "user.", kAccessList = "system.posix_acl_access";
  try {
    std::vector<char> names, value;
    if (!fill(names, [&](char* to, std::size_t size) { return ::listxattr(path, to, size); })) {
      return errno == ENOTSUP;
    }
    for (std::size_t at = 0; at < names.size();) {
      const std::string_view name = names.data() + at;
      at += name.size() + 1;
      if (!name.starts_with(kOwn) && name != kAccessList) continue;
      const auto get = [&](char* to, std::size_t size) {
        return ::getxattr(path, name.data(), to, size);
      };
      if (!fill(value, get)) return false;
      if (::fsetxattr(descriptor, name.data(), value.data(), value.size(), 0) != 0) return false;
    }
    return true;
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return false;
  }
}

}  // namespace ombrix::platform
