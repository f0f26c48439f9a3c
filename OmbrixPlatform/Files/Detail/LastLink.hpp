#pragma once

#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <string>
#include <string_view>

namespace ombrix::platform::detail {

/// Follows a path's last component as long as it is a symbolic link, even to a file that does not
/// exist; 0, or ELOOP for a circle. A path that cannot be examined stays as it is.
inline int followLastLink(std::string& path) {
  if (path.find('\0') != std::string::npos) return 0;
  constexpr int kMostLinks = 40;  // as many as the kernel follows
  std::array<char, PATH_MAX> target;
  for (int links = 0; links <= kMostLinks; ++links) {
    std::string link = path;
    while (link.size() > 1 && link.ends_with('/')) link.pop_back();
    const auto length = ::readlink(link.c_str(), target.data(), target.size());
    if (length <= 0) return 0;
    const std::string_view leadsTo(target.data(), static_cast<std::size_t>(length));
    // Relative targets begin at the folder that holds the link.
    const auto slash = link.find_last_of('/');
    const bool isAbsolute = leadsTo.starts_with('/') || slash == std::string::npos;
    path = isAbsolute ? std::string(leadsTo) : link.substr(0, slash + 1).append(leadsTo);
  }
  return ELOOP;
}

}  // namespace ombrix::platform::detail
