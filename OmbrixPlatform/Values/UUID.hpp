#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace ombrix::platform {

/// A universally unique identifier (RFC 4122). A value: any thread may read it.
class UUID {
 public:
  /// Makes a new one (version 4) from the system's random source. Any thread.
  static UUID random();

  /// Reads "E621E1F8-C36C-495A-93FC-0C247A3E6E5F" in either case; empty for any other text.
  static std::optional<UUID> parse(std::string_view text) noexcept;

  explicit constexpr UUID(const std::array<std::uint8_t, 16>& bytes) noexcept : bytes_(bytes) {}

  /// The text form, in capitals.
  [[nodiscard]] std::string uuidString() const;

  [[nodiscard]] constexpr const std::array<std::uint8_t, 16>& bytes() const noexcept {
    return bytes_;
  }

  friend auto operator<=>(const UUID&, const UUID&) = default;

 private:
  std::array<std::uint8_t, 16> bytes_;
};

}  // namespace ombrix::platform

template <>
struct std::hash<ombrix::platform::UUID> {
  std::size_t operator()(const ombrix::platform::UUID& uuid) const noexcept {
    // The bytes are random already, except the six bits that hold the version and the variant.
    std::uint64_t halves[2];
    std::memcpy(halves, uuid.bytes().data(), sizeof halves);
    return static_cast<std::size_t>(halves[0] ^ halves[1]);
  }
};
