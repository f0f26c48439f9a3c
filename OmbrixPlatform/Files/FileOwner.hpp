#pragma once

struct stat;

namespace ombrix::platform {

/// Gives an open file the owner, group and mode of the file that it is about to replace: false,
/// with `errno`, where this process may not. See `takeAttributes` for a file's other attributes.
///
/// @param other As stat(2) shows it. Any thread.
[[nodiscard]] bool takeOwnerAndMode(int descriptor, const struct stat& other) noexcept;

/// Gives an open file the extended attributes ("user.*") and the access list of the file at a path,
/// as far as both file systems have them: false, with `errno`, when one of them cannot be set. Call
/// it after `takeOwnerAndMode`. Any thread.
[[nodiscard]] bool takeAttributes(int descriptor, const char* path) noexcept;

}  // namespace ombrix::platform
