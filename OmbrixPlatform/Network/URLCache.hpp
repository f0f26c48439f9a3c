#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "OmbrixPlatform/Files/URL.hpp"
#include "OmbrixPlatform/Network/URLRequest.hpp"
#include "OmbrixPlatform/Network/URLResponse.hpp"
#include "OmbrixPlatform/Values/Data.hpp"
#include "OmbrixPlatform/Values/Date.hpp"

namespace ombrix::platform {

/// An answer as it is kept.
struct CachedURLResponse {
  std::shared_ptr<const HTTPURLResponse> response;
  std::shared_ptr<const Data> data;  // decoded; never null
};

/// Answers of servers, kept in memory and on disk within their budgets by the rules of a private
/// cache (RFC 9111); the least recently used ones are evicted first. Any thread.
///
/// Only whole answers to GET are kept, and HEAD goes to the server like every other method. An
/// answer goes to requests with the same "Authorization" (or the same lack of it) and the same
/// values of the fields that it varies by, up to 32 of them for one URL. Fields of its header that
/// are about the connection are not kept, nor is a token in "Authorization". What `decide` serves
/// has its "Age"; `cachedResponse` gives it as it came. Of requests' fields only digests reach the
/// disk.
///
/// An answer of more than an eighth of the memory's budget is not kept in memory, and one of more
/// than a twentieth of the disk's budget not on disk. Several processes may share one folder; each
/// has its own memory, which does not notice when others drop answers. A damaged database is set
/// aside ("….damaged", the last one only) and started again; without a working disk the memory
/// serves alone. A warning that memory runs short empties the memory.
class URLCache {
 public:
  /// @param memoryCapacity Bytes in memory, 0 or more.
  /// @param diskCapacity Bytes on disk, overhead included, 0 or more; below about 190 KiB nothing
  ///   fits. A folder that was used with a larger budget is emptied first.
  /// @param directory Where the disk tier lies; made on first use. None: memory only.
  static std::shared_ptr<URLCache> make(std::int64_t memoryCapacity, std::int64_t diskCapacity,
                                        std::optional<URL> directory);

  /// The process's own: 4 MiB in memory, 20 MiB in the caches directory, named by the program.
  static const std::shared_ptr<URLCache>& shared();

  virtual ~URLCache() = default;

  [[nodiscard]] virtual std::int64_t memoryCapacity() const = 0;
  [[nodiscard]] virtual std::int64_t diskCapacity() const = 0;

  /// Bytes in use; counted from the index, never by loading bodies.
  [[nodiscard]] virtual std::int64_t currentMemoryUsage() const = 0;
  [[nodiscard]] virtual std::int64_t currentDiskUsage() const = 0;

  /// The stored answer that fits the request, fresh or not; empty when there is none.
  [[nodiscard]] virtual std::optional<CachedURLResponse> cachedResponse(
      const URLRequest& request) = 0;

  /// Keeps an answer as if it had just come from the server, if the rules allow it.
  virtual void storeCachedResponse(const CachedURLResponse& response,
                                   const URLRequest& request) = 0;

  /// Drops every answer to the request's URL.
  virtual void removeCachedResponse(const URLRequest& request) = 0;

  /// Drops everything, also for the other processes that share the folder; it is gone when this
  /// returns.
  virtual void removeAllCachedResponses() = 0;

  // For sessions, before and after an exchange.

  /// How a request is to be answered.
  struct Decision {
    enum class Kind {
      serve,        ///< by `answer`, now
      validate,     ///< by the server, with `conditions` added; a 304 confirms `answer`
      load,         ///< by the server
      unavailable,  ///< with a failure: it must come from the cache, which has none
    };
    Kind kind = Kind::load;
    std::optional<CachedURLResponse> answer;
    HTTPHeaders conditions{};  ///< If-None-Match, If-Modified-Since

    /// The answer to serve is stale: `revalidation(request)` is to be sent to the server in the
    /// background (RFC 5861 section 3). Set for one caller at a time.
    bool mustRevalidateBehind = false;

    /// The answer to hand over, without calling `received`, when the server cannot be reached or
    /// answers with a status for which `isServerError` is true (RFC 5861 section 4).
    std::optional<CachedURLResponse> answerOnError{};
  };

  /// The request that asks the server whether the answer kept for a request still holds.
  [[nodiscard]] static URLRequest revalidation(URLRequest request);

  /// Whether a status means that the server cannot answer now: 500, 502, 503, 504.
  [[nodiscard]] static bool isServerError(int status) noexcept;

  /// Decides by the request's method, header fields and cache policy, the stored answers and the
  /// clock service. The policies that accept a stored answer of any age get one whatever its
  /// directives say. An answer that seems to come from the future (the clock was set back) is
  /// validated. A request with conditions of its own or for a range goes to the server as it is.
  /// The answer served may be a redirect that is to be followed.
  [[nodiscard]] virtual Decision decide(const URLRequest& request) = 0;

  /// Takes note of the server's answer: keeps it, merges a 304 into `validated`, and removes the
  /// answers that an unsafe method has invalidated.
  ///
  /// @param requestTime, responseTime When the request was sent and the header came.
  /// @param validated The answer that the request's conditions were about; null when there were
  ///   none.
  /// @return The answer to hand over: the stored one with merged header fields after a 304 that
  ///   confirms `validated`, else the server's own. When this returns, `decide` knows of it; the
  ///   disk may follow.
  virtual CachedURLResponse received(const URLRequest& request, Date requestTime, Date responseTime,
                                     CachedURLResponse answer,
                                     const CachedURLResponse* validated) = 0;

  /// Waits until everything kept so far is on disk.
  virtual void flush() = 0;
};

}  // namespace ombrix::platform
