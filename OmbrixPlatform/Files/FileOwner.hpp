#pragma once

struct stat;

namespace ombrix::platform {

/// Gives an open file the owner, group and mode of another, whose place it is about to take: false,
/// with `errno`, where this process may not. See `takeAttributes` for what else a file has.
///
/// @param other As stat(2) shows it. Any thread.
[[nodiscard]] bool takeOwnerAndMode(int descriptor, const struct stat& other) noexcept;

/// Gives an open file the extended attributes ("user.*") and the access list of the file at a path,
/// as far as both file systems have them: false, with `errno`, for one that cannot be given. To be
/// called behind `takeOwnerAndMode`. Any thread.
[[nodiscard]] bool takeAttributes(int descriptor, const char* path) noexcept;

}  // namespace ombrix::platform
