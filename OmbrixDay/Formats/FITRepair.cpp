// What a damaged FIT file can be put right by: each message says by a number how long it is, so a
// bad byte in a header or a definition costs all behind it, but the checksum says which byte it can
// be.

#include "OmbrixDay/Formats/Detail/FITRepair.hpp"

#include <array>
#include <utility>

namespace ombrix::detail {

std::uint16_t fitChecksum(platform::DataView bytes) {
  static constexpr std::array<std::uint16_t, 16> kTable = {
      0x0000, 0xCC01, 0xD801, 0x1400, 0xF001, 0x3C00, 0x2800, 0xE401,
      0xA001, 0x6C00, 0x7800, 0xB401, 0x5000, 0x9C01, 0x8801, 0x4400};
  std::uint16_t sum = 0;
  const auto add = [&sum](unsigned nibble) {
    sum = static_cast<std::uint16_t>((sum >> 4) ^ kTable[sum & 0xF] ^ kTable[nibble]);
  };
  for (const std::byte byte : bytes) {
    add(std::to_integer<unsigned>(byte) & 0xF);
    add(std::to_integer<unsigned>(byte) >> 4);
  }
  return sum;
}

bool isFITFieldType(unsigned type) {
  constexpr unsigned kLastType = 16;
  return (type & 0x60) == 0 && (type & 0x1F) <= kLastType;
}

std::optional<FITDefinitionSizes> fitDefinitionAt(platform::DataView data) {
  constexpr std::size_t kFixedBytes = 6, kFieldBytes = 3;
  const auto byteAt = [data](std::size_t at) { return std::to_integer<unsigned>(data[at]); };
  if (data.size() < kFixedBytes || (byteAt(0) & 0x10) != 0 || byteAt(1) != 0 || byteAt(2) > 1) {
    return std::nullopt;
  }
  FITDefinitionSizes sizes{.definition = kFixedBytes};
  std::size_t left = byteAt(kFixedBytes - 1);
  for (const bool isDevelopers : {false, true}) {
    if (isDevelopers) {
      if ((byteAt(0) & 0x20) == 0) break;
      if (sizes.definition == data.size()) return std::nullopt;
      left = byteAt(sizes.definition++);
    }
    for (; left > 0; --left, sizes.definition += kFieldBytes) {
      if (data.size() - sizes.definition < kFieldBytes) return std::nullopt;
      if (!isDevelopers && !isFITFieldType(byteAt(sizes.definition + 2))) return std::nullopt;
      sizes.message += byteAt(sizes.definition + 1);
    }
  }
  return sizes;
}

namespace {

/// What a byte of a file's data is.
enum class Part : std::uint8_t { values, header, definition };

/// Walks through messages without reading their values.
/// @param see Is given what begins where, in order.
/// @return whether all of them make sense
template <class See>
bool walk(platform::DataView data, See see) {
  std::array<std::optional<std::size_t>, 16> sizes;
  for (std::size_t at = 0; at < data.size();) {
    const auto header = std::to_integer<unsigned>(data[at]);
    if ((header & 0xC0) == 0x40) {
      see(Part::definition, at);
      const auto found = fitDefinitionAt(data.subspan(at));
      if (!found) return false;
      sizes[header & 0xF] = found->message;
      at += found->definition;
    } else {
      see(Part::header, at++);
      const bool isCompressed = (header & 0x80) != 0;
      if (!isCompressed && (header & 0x30) != 0) return false;
      const auto& size = sizes[isCompressed ? (header >> 5) & 0x3 : header];
      if (!size || *size > data.size() - at) return false;
      if (*size > 0) see(Part::values, at);
      at += *size;
    }
  }
  return true;
}

}  // namespace

std::vector<FITSuspect> fitSuspects(platform::DataView data, std::uint16_t difference) {
  constexpr std::size_t kMostBytes = std::size_t{16} << 20, kMostFound = 64;
  // Of all looks at the file together: some seconds, however it is made up.
  constexpr std::size_t kMostBytesLookedAt = std::size_t{256} << 20;
  constexpr std::size_t kMostDefinition = 6 + 255 * 3 + 1 + 255 * 3;
  if (data.size() > kMostBytes) return {};
  std::vector<std::pair<std::uint32_t, Part>> parts;
  std::size_t last = 0;
  const bool madeSense = walk(data, [&](Part part, std::size_t at) {
    last = at;
    if (!parts.empty() && parts.back().second == part) return;
    parts.emplace_back(static_cast<std::uint32_t>(at), part);
  });
  if (!madeSense) {  // The byte is not behind the first message that makes no sense.
    last += parts.back().second == Part::header ? 1 : kMostDefinition;
    parts.emplace_back(static_cast<std::uint32_t>(last), Part::values);
  }

  // The checksum is linear: what a byte adds to it goes through one step for each byte behind it.
  // Each step has an inverse, so the difference is taken back to every byte from the end.
  std::array<std::uint16_t, 256> sums;
  std::array<std::uint8_t, 256> byHighByte;
  for (unsigned byte = 0; byte < 256; ++byte) {
    const std::byte one{static_cast<std::uint8_t>(byte)};
    sums[byte] = fitChecksum({&one, 1});
    byHighByte[sums[byte] >> 8] = static_cast<std::uint8_t>(byte);
  }
  platform::Data changed(data.begin(), data.end());
  std::vector<FITSuspect> found;
  std::size_t lookedAt = 0;
  for (std::size_t at = data.size(); at-- > 0;) {
    while (parts.back().first > at) parts.pop_back();
    const Part part = parts.back().second;
    const std::uint8_t bits = byHighByte[difference >> 8];
    const bool isSuspect = part == Part::definition || (part == Part::header && !madeSense);
    if (isSuspect && sums[bits] == difference && bits != 0 && lookedAt < kMostBytesLookedAt &&
        found.size() < kMostFound) {
      const FITSuspect suspect{at, std::byte{bits}};
      changed[at] ^= suspect.bits;
      if (walk(changed, [](Part, std::size_t) {})) found.push_back(suspect);
      lookedAt += data.size();
      changed[at] ^= suspect.bits;
    }
    difference = static_cast<std::uint16_t>((difference ^ sums[bits]) << 8 | bits);
  }
  return found;
}

}  // namespace ombrix::detail
