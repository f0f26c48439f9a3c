#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Text/NSRange.hpp"
#include "OmbrixPlatform/Values/Error.hpp"

namespace ombrix::platform {

/// Thrown for a pattern that is not a regular expression.
class RegularExpressionError : public Error {
 public:
  using Error::Error;
};

/// A match: its whole range and its groups.
struct NSTextCheckingResult {
  /// The whole match first, then each group. A group that did not take part has the location
  /// `NSNotFound` and the length 0.
  std::vector<NSRange> ranges;
};

/// A regular expression over Unicode text. Immutable: any thread may match with it.
class NSRegularExpression {
 public:
  /// @param pattern In UTF-8. Throws `RegularExpressionError`.
  explicit NSRegularExpression(std::string_view pattern);

  [[nodiscard]] const std::string& pattern() const noexcept { return pattern_; }

  /// Calls `block` for every match in the range, from left to right, on the calling thread; stops
  /// the program when the range does not lie inside the text.
  void enumerateMatches(std::u16string_view text, NSRange range,
                        const std::function<void(const NSTextCheckingResult&)>& block) const;

 private:
  struct Compiled;

  std::string pattern_;
  std::shared_ptr<const Compiled> compiled_;
};

}  // namespace ombrix::platform
