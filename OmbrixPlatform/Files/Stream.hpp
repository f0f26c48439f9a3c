#pragma once

#include <cstdint>

namespace ombrix::platform {

/// The state of a stream.
enum class StreamStatus : std::uint8_t {
  notOpen,
  open,
  atEnd,  ///< Everything was read.
  closed,
  error,  ///< An operation failed; `streamError` says why.
};

/// Whether a stream closes the file descriptor that it was made with.
enum class DescriptorOwnership : std::uint8_t { borrowed, owned };

}  // namespace ombrix::platform
