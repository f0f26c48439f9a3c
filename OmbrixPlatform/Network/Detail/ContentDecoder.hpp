#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Values/Data.hpp"

namespace ombrix::platform::detail {

/// Undoes the content codings of a body as it comes (RFC 9110 section 8.4): "gzip" and "deflate",
/// also several one after the other.
class ContentDecoder {
 public:
  /// For the value of "Content-Encoding"; nothing for a coding that is not known.
  static std::optional<ContentDecoder> make(std::string_view codings);

  ContentDecoder(ContentDecoder&&) noexcept;
  ContentDecoder& operator=(ContentDecoder&&) noexcept;
  ~ContentDecoder();

  /// Whether bytes come out as they go in.
  [[nodiscard]] bool isIdentity() const noexcept { return stages_.empty(); }

  /// Appends the decoded bytes to `output`; false when they are damaged, go on after their end, or
  /// would make `output` longer than `maximumBytes`.
  bool decode(DataView input, Data& output, std::size_t maximumBytes);

  /// Whether the stream ended where its format says that it does; also when nothing came at all.
  [[nodiscard]] bool isAtEnd() const noexcept;

 private:
  struct Stage;

  ContentDecoder();
  bool decodeFrom(std::size_t stage, DataView input, Data& output, std::size_t maximumBytes);

  std::vector<std::unique_ptr<Stage>> stages_;  // the coding that was applied last comes first
};

}  // namespace ombrix::platform::detail
