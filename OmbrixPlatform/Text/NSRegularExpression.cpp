#include "OmbrixPlatform/Text/NSRegularExpression.hpp"

#include <unicode/regex.h>

#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix::platform {

struct NSRegularExpression::Compiled {
  std::unique_ptr<const icu::RegexPattern> pattern;
};

NSRegularExpression::NSRegularExpression(std::string_view pattern) : pattern_(pattern) {
  UErrorCode status = U_ZERO_ERROR;
  UParseError place;
  std::unique_ptr<const icu::RegexPattern> compiled(icu::RegexPattern::compile(
      icu::UnicodeString::fromUTF8({pattern.data(), static_cast<std::int32_t>(pattern.size())}),
      place, status));
  if (U_FAILURE(status)) {
    throw RegularExpressionError("“" + pattern_ + "” is not a regular expression (" +
                                 u_errorName(status) + ").");
  }
  compiled_ = std::make_shared<const Compiled>(std::move(compiled));
}

void NSRegularExpression::enumerateMatches(
    std::u16string_view text, NSRange range,
    const std::function<void(const NSTextCheckingResult&)>& block) const {
  if (!range.liesInside(text.size())) fatalError("NSRegularExpression: range beyond the text");
  UErrorCode status = U_ZERO_ERROR;
  const char16_t* units = text.data();
  const icu::UnicodeString subject(false, units, static_cast<std::int32_t>(text.size()));
  // A matcher belongs to one thread; the compiled pattern is shared.
  const std::unique_ptr<icu::RegexMatcher> matcher(compiled_->pattern->matcher(subject, status));
  if (U_FAILURE(status)) return;
  matcher->region(static_cast<std::int64_t>(range.location), static_cast<std::int64_t>(range.end()),
                  status);
  NSTextCheckingResult result;
  while (matcher->find(status) && U_SUCCESS(status)) {
    result.ranges.clear();
    for (std::int32_t group = 0; group <= matcher->groupCount(); ++group) {
      const std::int32_t start = matcher->start(group, status);
      const std::int32_t end = matcher->end(group, status);
      result.ranges.push_back(start < 0 ? NSRange{NSNotFound, 0}
                                        : NSRange{static_cast<std::size_t>(start),
                                                  static_cast<std::size_t>(end - start)});
    }
    block(result);
  }
}

}  // namespace ombrix::platform
