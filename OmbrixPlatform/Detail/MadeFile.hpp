#pragma once

#include <sys/types.h>

#include <string>

#include "OmbrixPlatform/Detail/Descriptor.hpp"

// What is made here belongs to whom its folder belongs to: what root makes on a visit would else
// keep the user out of his own settings, logs and messages for good. Only root can give things
// away; what anybody else makes stays his.

namespace ombrix::platform::detail {

constexpr mode_t kOwnerOnly = 0600;

/// Makes a file that must not be there yet, by open(2); without one, `errno` says why (EEXIST).
Descriptor makeFile(const std::string& path, int flags, mode_t mode = kOwnerOnly);

/// The same, or the file that is there; no link is followed.
Descriptor openOrMakeFile(const std::string& path, int flags, mode_t mode = kOwnerOnly);

/// mkdir(2); 0 or errno.
int makeFolder(const std::string& path, mode_t mode = 0777);

/// Gives what this process has just made to whom its folder belongs to.
void giveToOwnerOfFolder(int made, const std::string& path);

}  // namespace ombrix::platform::detail
