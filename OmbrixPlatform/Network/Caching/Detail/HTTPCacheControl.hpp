#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "OmbrixPlatform/Network/HTTPHeaders.hpp"

namespace ombrix::platform::detail {

/// The greatest number of seconds; it stands for all longer times (RFC 9111 section 1.2.2).
inline constexpr std::int64_t kMostDeltaSeconds = std::int64_t{1} << 31;

/// A whole number of seconds; greater ones become `kMostDeltaSeconds`. Empty for any other text.
std::optional<std::int64_t> deltaSeconds(std::string_view text);

/// The text without spaces and tabs at its ends.
std::string_view trimmed(std::string_view text) noexcept;

/// Takes the next part of a list off its front: up to a comma outside quotes, trimmed.
std::string_view takeListPart(std::string_view& list) noexcept;

/// The directives of a Cache-Control field that a private cache obeys (RFC 9111 section 5.2); where
/// one is given twice, the first counts. A number that cannot be read counts as the strictest one.
struct CacheControl {
  bool isThere = false;  ///< the field itself
  bool noStore = false;
  bool noCache = false;  ///< with field names too
  bool mustRevalidate = false;
  bool mustUnderstand = false;
  bool isImmutable = false;  ///< RFC 8246
  bool isPublic = false;
  bool isPrivate = false;
  bool onlyIfCached = false;
  std::optional<std::int64_t> maxAge;
  std::optional<std::int64_t> minFresh;
  std::optional<std::int64_t> maxStale;              ///< without a number: `kMostDeltaSeconds`
  std::optional<std::int64_t> staleWhileRevalidate;  ///< RFC 5861 section 3
  std::optional<std::int64_t> staleIfError;          ///< RFC 5861 section 4
};

CacheControl cacheControlOf(const HTTPHeaders& headers);

}  // namespace ombrix::platform::detail
