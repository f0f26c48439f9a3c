#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "OmbrixPlatform/Values/Data.hpp"

namespace ombrix::detail {

/// The protocol's checksum, four bits at a time.
std::uint16_t fitChecksum(platform::DataView bytes);

/// Whether a field of a definition can be of a type.
bool isFITFieldType(unsigned type);

struct FITDefinitionSizes {
  std::size_t definition = 0, message = 0;
};

/// The lengths of the definition at the beginning of the bytes and of one of its messages; empty if
/// it makes no sense.
std::optional<FITDefinitionSizes> fitDefinitionAt(platform::DataView data);

/// A byte that may be wrong, and the bits that would be wrong.
struct FITSuspect {
  std::size_t at;
  std::byte bits;
};

/// The bytes of headers and definitions whose change makes the checksum right and all messages
/// valid: with a single damaged byte there is rarely more than one. If all messages are valid as
/// they are, no header is suspected. None in more than 16 MiB.
/// @param data A file's messages.
/// @param difference The checksum's, from the one that is stored behind the data.
std::vector<FITSuspect> fitSuspects(platform::DataView data, std::uint16_t difference);

}  // namespace ombrix::detail
