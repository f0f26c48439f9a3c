#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ombrix::platform {

/// Whether each byte of a text is one user-perceived character: true for ASCII without carriage
/// returns, since CR LF is one character. Any thread.
bool bytesAreCharacters(std::string_view text) noexcept;

/// The user-perceived characters of a text: extended grapheme clusters of Unicode's annex 29, each
/// in its canonically composed form, so that equivalent characters have equal bytes.
///
/// Invalid bytes count as U+FFFD. Immutable; any thread may read it.
class TextCharacters {
 public:
  explicit TextCharacters(std::string_view text);

  [[nodiscard]] std::size_t size() const noexcept {
    return bytesAreCharacters_ ? text_.size() : ends_.size();
  }

  /// The character at `index`, below `size()`, as UTF-8; valid as long as this object.
  [[nodiscard]] std::string_view operator[](std::size_t index) const noexcept {
    if (bytesAreCharacters_) return std::string_view(text_).substr(index, 1);
    const std::uint32_t start = index == 0 ? 0 : ends_[index - 1];
    return std::string_view(text_).substr(start, ends_[index] - start);
  }

 private:
  bool splitAtCodePoints(std::string_view text);
  void splitAtClusters(std::string_view text);

  bool bytesAreCharacters_;
  std::string text_;
  std::vector<std::uint32_t> ends_;
};

}  // namespace ombrix::platform
