#pragma once

#include <sys/types.h>

#include <string>

#include "OmbrixPlatform/Detail/Descriptor.hpp"

// Files and folders created here get the owner of their folder: otherwise those that root creates
// in passing would lock users out of their own settings, logs and messages for good. Only root can
// change owners; other users keep what they create.

namespace ombrix::platform::detail {

constexpr mode_t kOwnerOnly = 0600;

/// Creates a file that must not exist yet, by open(2); on failure, `errno` says why (EEXIST).
Descriptor makeFile(const std::string& path, int flags, mode_t mode = kOwnerOnly);

/// The same, but opens the file if it exists; does not follow links.
Descriptor openOrMakeFile(const std::string& path, int flags, mode_t mode = kOwnerOnly);

/// mkdir(2); 0 or errno.
int makeFolder(const std::string& path, mode_t mode = 0777);

/// Changes the owner of a file that this process has just created to its folder's owner.
void giveToOwnerOfFolder(int made, const std::string& path);

}  // namespace ombrix::platform::detail
