#pragma once

#include <optional>
#include <string>

namespace ombrix::platform {

/// The last Unicode scalar value of a file whose whole content is UTF-8.
///
/// Empty when the file is empty, is not valid UTF-8, is not a regular file or cannot be read.
///
/// @param settles  whether this last scalar is enough for the caller, without a check of the whole
///   file: then only the end is read and the scalar returned at once. For other scalars the file is
///   read in blocks, in constant memory.
/// Any thread.
[[nodiscard]] std::optional<char32_t> lastScalarOfFile(const std::string& path,
                                                       bool (*settles)(char32_t));

}  // namespace ombrix::platform
