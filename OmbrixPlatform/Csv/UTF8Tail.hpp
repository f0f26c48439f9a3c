#pragma once

#include <optional>
#include <string>

namespace ombrix::platform {

/// The last Unicode scalar value of a file whose contents are UTF-8 from beginning to end.
///
/// Nothing when the file is empty, is not valid UTF-8, is not a regular file or cannot be read.
///
/// @param settles  tells whether the caller has no use for the check of the whole file when this is
///                 the last scalar: the end alone is then read and the scalar given at once. For
///                 other scalars the file is read in blocks, in constant memory.
/// Any thread.
[[nodiscard]] std::optional<char32_t> lastScalarOfFile(const std::string& path,
                                                       bool (*settles)(char32_t));

}  // namespace ombrix::platform
