#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Network/HTTPHeaders.hpp"
#include "OmbrixPlatform/Network/URLRequest.hpp"
#include "OmbrixPlatform/Network/URLResponse.hpp"
#include "OmbrixPlatform/Values/Date.hpp"

// The rules of a private cache (RFC 9111); nothing here stores anything. Pure functions, any
// thread.

namespace ombrix::platform::detail {

/// When a request was sent and when the header of its answer came.
struct ExchangeTimes {
  Date request;
  Date response;

  friend bool operator==(const ExchangeTimes&, const ExchangeTimes&) = default;
};

/// What decides how long an answer may be served, read from its header once.
struct Freshness {
  double lifetimeSeconds = 0;
  double initialAgeSeconds = 0;  ///< when it came
  Date responseTime{};
  bool noCache = false;
  bool mustRevalidate = false;
  bool isImmutable = false;
  bool hasValidator = false;
  double staleWhileRevalidateSeconds = 0;  ///< beyond the lifetime
  double staleIfErrorSeconds = 0;          ///< beyond the lifetime

  /// RFC 9111 section 4.2.3; after the clock was set back no answer is younger than it was on
  /// arrival.
  [[nodiscard]] double ageSeconds(Date now) const noexcept;
};

/// RFC 9111 sections 4.2.1 to 4.2.3: max-age, else Expires, else a tenth of the time since the
/// last change.
Freshness freshnessOf(int status, const HTTPHeaders& headers, const ExchangeTimes& times);

/// Whether the answer to a GET may be kept (RFC 9111 section 3). An answer that says nothing of
/// freshness may be kept when caches keep its status by default: policies that accept stored
/// answers of any age can use it. Under "must-understand" an answer with an unknown status is not
/// kept, and one with a known status is kept despite "no-store"; otherwise an unknown status is
/// kept as its fields allow.
bool isStorable(const URLRequest& request, const HTTPURLResponse& response);

/// Whether the method promises to change nothing at the server.
bool isSafeMethod(std::string_view method) noexcept;

/// Whether the request asks for a range or brings conditions of its own: the cache then stays out
/// of it.
bool isPartialOrConditional(const HTTPHeaders& headers) noexcept;

enum class StoredUse { serve, serveWhileRevalidating, validate, load, unavailable };

/// How to answer a GET without conditions of its own (RFC 9111 sections 4, 5.2.1, 5.4).
/// @param stored The answer that is kept for it; null for none.
StoredUse useOf(const URLRequest& request, const Freshness* stored, Date now);

/// Whether a stored answer that `useOf` would not serve may be handed over all the same when the
/// server cannot answer (RFC 5861 section 4).
bool mayServeOnError(const URLRequest& request, const Freshness& stored, Date now);

/// Whether a status says that the server cannot answer now: those that RFC 5861 names.
bool isServerError(int status) noexcept;

/// The fields of a stored answer that is handed over without asking the server: with its age (RFC
/// 9111 section 5.1).
HTTPHeaders fieldsWithAge(const HTTPHeaders& stored, double ageSeconds);

/// The conditions that ask whether a stored answer still holds; empty without validators.
HTTPHeaders conditionsFrom(const HTTPHeaders& stored);

/// The fields to keep: all but those of the connection (RFC 9111 section 3.1) and a token that came
/// with the answer ("Authorization"), which may have been replaced since.
HTTPHeaders fieldsToKeep(const HTTPHeaders& headers);

/// Whether a 304 is about the stored answer: their validators do not differ.
bool confirms(const HTTPHeaders& notModified, const HTTPHeaders& stored);

/// The stored fields brought up to date by those of a 304 (RFC 9111 section 3.2).
HTTPHeaders mergedFields(const HTTPHeaders& stored, const HTTPHeaders& notModified);

/// The key that finds stored answers: the URL without its fragment and without the scheme's default
/// port, with scheme and host in lower case.
std::string cacheKey(const URL& url);

/// The keys that an unsafe request invalidates (RFC 9111 section 4.4): its own, and those that
/// "Location" and "Content-Location" name on the same origin. None after an error.
std::vector<std::string> invalidatedKeys(const URLRequest& request,
                                         const HTTPURLResponse& response);

/// A field of the request that selects among the answers to one URL. "Authorization" is always one:
/// an answer is for the user who asked.
struct SelectingField {
  std::string name;  // lower case
  std::optional<std::string> value;

  friend bool operator==(const SelectingField&, const SelectingField&) = default;
};
using SelectingFields = std::vector<SelectingField>;

/// An answer that varies by more fields is not kept: every look-up would compare them all.
inline constexpr std::size_t kMostSelectingFields = 64;

/// The fields that "Vary" names, and "Authorization" first, with their values in the request;
/// nothing when it names "*" or more than `kMostSelectingFields`.
std::optional<SelectingFields> selectingFields(const HTTPHeaders& response,
                                               const HTTPHeaders& request);

/// Whether the request has the values that an answer was given for.
bool selects(const SelectingFields& fields, const HTTPHeaders& request) noexcept;

}  // namespace ombrix::platform::detail
