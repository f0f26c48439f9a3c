#pragma once

struct stat;

namespace ombrix::platform {

/// Gives an open file the owner, group and mode of another, whose place it is about to take: false,
/// with `errno`, where this process may not.
///
/// @param other As stat(2) shows it. Any thread.
[[nodiscard]] bool takeOwnerAndMode(int descriptor, const struct stat& other) noexcept;

}  // namespace ombrix::platform
