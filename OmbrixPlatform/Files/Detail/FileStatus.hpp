#pragma once

#include <sys/stat.h>

#include "OmbrixPlatform/Files/FileManager.hpp"

namespace ombrix::platform::detail {

inline FileResourceValues resourceValuesFrom(const struct stat& info) noexcept {
  constexpr std::uint64_t kBlockBytes = 512;  // the unit of st_blocks, whatever the disk's own is
  FileResourceValues values;
  values.isRegularFile = S_ISREG(info.st_mode);
  values.isDirectory = S_ISDIR(info.st_mode);
  values.isSymbolicLink = S_ISLNK(info.st_mode);
  values.fileSize = static_cast<std::uint64_t>(info.st_size);
  if (values.isRegularFile) {
    values.fileAllocatedSize = static_cast<std::uint64_t>(info.st_blocks) * kBlockBytes;
    values.totalFileAllocatedSize = values.fileAllocatedSize;
  }
  values.contentModificationDate = dateSince1970(static_cast<double>(info.st_mtim.tv_sec) +
                                                 static_cast<double>(info.st_mtim.tv_nsec) * 1e-9);
  return values;
}

}  // namespace ombrix::platform::detail
