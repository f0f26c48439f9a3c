#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Network/HTTPHeaders.hpp"
#include "OmbrixPlatform/Network/URLRequest.hpp"
#include "OmbrixPlatform/Network/URLResponse.hpp"
#include "OmbrixPlatform/Values/Date.hpp"

// The rules of a private cache (RFC 9111), without any storing: pure functions, any thread.

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

  /// RFC 9111 section 4.2.3; a clock that was set back makes no answer younger than it came.
  [[nodiscard]] double ageSeconds(Date now) const noexcept;
};

/// RFC 9111 sections 4.2.1 to 4.2.3: max-age, else Expires, else a tenth of the time since the
/// last change.
Freshness freshnessOf(int status, const HTTPHeaders& headers, const ExchangeTimes& times);

/// Whether the answer to a GET may be kept (RFC 9111 section 3). One without any word on freshness
/// may be when its status is of those that caches keep by default: policies that ask for stored
/// answers of any age can use it. A status without a known meaning is kept as its fields allow,
/// except under "must-understand"; for all others that one lifts "no-store".
bool isStorable(const URLRequest& request, const HTTPURLResponse& response);

/// Whether the method promises to change nothing at the server.
bool isSafeMethod(std::string_view method) noexcept;

/// Whether the request asks for a part, or brings conditions of its own: then it is between caller
/// and server alone.
bool isPartialOrConditional(const HTTPHeaders& headers) noexcept;

enum class StoredUse { serve, serveWhileRevalidating, validate, load, unavailable };

/// What to do for a GET without conditions of its own (RFC 9111 sections 4, 5.2.1, 5.4).
/// @param stored What is kept for it; null for nothing.
StoredUse useOf(const URLRequest& request, const Freshness* stored, Date now);

/// Whether a stored answer that was not good enough by `useOf` may be handed over all the same when
/// the server cannot answer (RFC 5861 section 4).
bool mayServeOnError(const URLRequest& request, const Freshness& stored, Date now);

/// Whether a status says that the server cannot answer now: those that RFC 5861 names.
bool isServerError(int status) noexcept;

/// The fields of a stored answer that is handed over without asking the server: with its age (RFC
/// 9111 section 5.1).
HTTPHeaders fieldsWithAge(const HTTPHeaders& stored, double ageSeconds);

/// The conditions that ask whether a stored answer still holds; empty without validators.
HTTPHeaders conditionsFrom(const HTTPHeaders& stored);

/// The fields to keep: without those of the connection (RFC 9111 section 3.1). A token that came
/// with an answer ("Authorization") is not kept either: it may have been replaced since.
HTTPHeaders fieldsToKeep(const HTTPHeaders& headers);

/// Whether a 304 is about the stored answer: their validators do not differ.
bool confirms(const HTTPHeaders& notModified, const HTTPHeaders& stored);

/// The stored fields brought up to date by those of a 304 (RFC 9111 section 3.2).
HTTPHeaders mergedFields(const HTTPHeaders& stored, const HTTPHeaders& notModified);

/// What stored answers are found by: the URL without its fragment, scheme and host in lower case,
/// without a port that says nothing.
std::string cacheKey(const URL& url);

/// The keys that an unsafe request has made out of date (RFC 9111 section 4.4): its own, and those
/// that "Location" and "Content-Location" name on the same origin. None after an error.
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

/// An answer that varies by more is not kept: every look-up would compare them all.
inline constexpr std::size_t kMostSelectingFields = 64;

/// The fields that "Vary" names, and "Authorization" first, with their values in the request;
/// nothing when it names "*" or more than `kMostSelectingFields`.
std::optional<SelectingFields> selectingFields(const HTTPHeaders& response,
                                               const HTTPHeaders& request);

/// Whether the request has the values that an answer was given for.
bool selects(const SelectingFields& fields, const HTTPHeaders& request) noexcept;

}  // namespace ombrix::platform::detail
