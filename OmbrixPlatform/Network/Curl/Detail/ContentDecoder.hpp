#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "OmbrixPlatform/Values/Data.hpp"

namespace ombrix::platform::detail {

/// Undoes the content coding of a body (RFC 9110 section 8.4) as it comes and in bounded steps:
/// "gzip" and "deflate". Several codings and unknown ones are left as they are.
class ContentDecoder {
 public:
  enum class Result : std::uint8_t {
    ready,     ///< all of the input is decoded
    full,      ///< the allowed amount is decoded; more may follow without further input
    damaged,   ///< the coded bytes are damaged, or go on after their end
    exploding  ///< a few bytes unpack to so many that it must be an attack
  };

  /// How many bytes any body may unpack to before its ratio counts.
  static constexpr std::uint64_t kAnyRatioBytes = std::uint64_t{16} << 20;
  static constexpr std::uint64_t kMaximumRatio = 200;

  /// @param codings The value of "Content-Encoding".
  explicit ContentDecoder(std::string_view codings);
  ContentDecoder(ContentDecoder&&) noexcept;
  ContentDecoder& operator=(ContentDecoder&&) noexcept;
  ~ContentDecoder();

  /// Whether bytes come out as they go in.
  [[nodiscard]] bool isIdentity() const noexcept { return stream_ == nullptr; }

  /// Decodes from the front of `input`, which is shortened to what is left of it, and appends at
  /// most `maximumBytes` to `output`.
  Result decode(DataView& input, Data& output, std::size_t maximumBytes);

  /// Whether the stream ended where its format says that it ends; true also when no byte came.
  [[nodiscard]] bool isAtEnd() const noexcept;

 private:
  struct Stream;

  std::unique_ptr<Stream> stream_;  // null: nothing to undo
};

}  // namespace ombrix::platform::detail
