#include "OmbrixPlatform/Network/URLCache.hpp"

#include <algorithm>
#include <unordered_map>
#include <utility>

#include "OmbrixPlatform/Bundles/Bundle.hpp"
#include "OmbrixPlatform/Files/Directories.hpp"
#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Memory/MemoryWarning.hpp"
#include "OmbrixPlatform/Network/Caching/Detail/HTTPCacheControl.hpp"
#include "OmbrixPlatform/Network/Caching/Detail/MemoryURLCache.hpp"
#include "OmbrixPlatform/Network/Caching/Detail/SqliteURLCache.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixPlatform/Values/Clock.hpp"

namespace ombrix::platform {
namespace {

using namespace detail;

std::shared_ptr<const HTTPURLResponse> withFields(const HTTPURLResponse& response,
                                                  HTTPHeaders fields) {
  return std::make_shared<const HTTPURLResponse>(response.url(), response.statusCode(),
                                                 std::move(fields), response.httpVersion());
}

/// An answer in the form that is kept; null for one that varies by everything.
CachedAnswerPointer keptAnswer(std::string key, const URLRequest& request,
                               const ExchangeTimes& times, const CachedURLResponse& answer) {
  auto selecting = selectingFields(answer.response->headers(), request.headers);
  if (!selecting) return nullptr;
  auto response = answer.response;
  HTTPHeaders kept = fieldsToKeep(response->headers());
  if (kept.size() != response->headers().size()) response = withFields(*response, std::move(kept));
  const Freshness freshness = freshnessOf(response->statusCode(), response->headers(), times);
  static const auto kNothing = std::make_shared<const Data>();
  return std::make_shared<const CachedAnswer>(
      CachedAnswer{.key = std::move(key),
                   .selecting = *std::move(selecting),
                   .times = times,
                   .freshness = freshness,
                   .answer = {std::move(response), answer.data ? answer.data : kNothing}});
}

/// The keys that are being revalidated in the background. Any thread.
class Revalidations {
 public:
  /// Whether no caller was told within the last minute to revalidate the key.
  bool begin(const std::string& key, Date now) {
    const LockGuard lock(mutex_);
    std::erase_if(begun_, [&](const auto& entry) { return hasLapsed(entry.second, now); });
    return begun_.size() < kMost && begun_.emplace(key, now).second;
  }

  /// The server has answered about the URL.
  void end(const URL& url) {
    const LockGuard lock(mutex_);
    if (!begun_.empty()) begun_.erase(cacheKey(url));
  }

 private:
  static constexpr std::size_t kMost = 64;
  static constexpr TimeInterval kLapse{60};  // no failed attempt is repeated before

  static bool hasLapsed(Date begun, Date now) { return now < begun || now - begun > kLapse; }

  Mutex mutex_;
  std::unordered_map<std::string, Date> begun_ OMBRIX_GUARDED_BY(mutex_);
};

class TieredURLCache final : public URLCache {
 public:
  TieredURLCache(std::int64_t memoryCapacity, std::int64_t diskCapacity,
                 std::optional<URL> directory)
      : memoryCapacity_(std::max<std::int64_t>(memoryCapacity, 0)),
        diskCapacity_(directory ? std::max<std::int64_t>(diskCapacity, 0) : 0),
        memory_(std::make_shared<MemoryURLCache>(memoryCapacity_)),
        memoryWarning_(
            services().memoryWarnings.get().connect([memory = memory_] { memory->removeAll(); })) {
    if (!directory || !DiskBudget(diskCapacity_).isEnough()) return;
    disk_ = std::make_shared<SqliteURLCache>(
        directory->path(), diskCapacity_, [weak = std::weak_ptr(memory_)] {
          const auto memory = weak.lock();
          return memory ? memory->keysInUse() : std::vector<std::string>();
        });
  }

  std::int64_t memoryCapacity() const override { return memoryCapacity_; }
  std::int64_t diskCapacity() const override { return diskCapacity_; }
  std::int64_t currentMemoryUsage() const override { return memory_->usage(); }
  std::int64_t currentDiskUsage() const override { return disk_ ? disk_->usage() : 0; }

  std::optional<CachedURLResponse> cachedResponse(const URLRequest& request) override {
    if (request.httpMethod != "GET") return std::nullopt;
    const auto stored = find(cacheKey(request.url), request.headers);
    if (!stored) return std::nullopt;
    return stored->answer;
  }

  void storeCachedResponse(const CachedURLResponse& response, const URLRequest& request) override {
    if (!response.response || !isStorable(request, *response.response)) return;
    const Date now = services().clock.get().now();
    keep(request, {.request = now, .response = now}, response);
  }

  void removeCachedResponse(const URLRequest& request) override { remove(cacheKey(request.url)); }
  void removeAllCachedResponses() override {
    if (disk_) disk_->removeAll();
    memory_->removeAll();
  }

  Decision decide(const URLRequest& request) override;
  CachedURLResponse received(const URLRequest& request, Date requestTime, Date responseTime,
                             CachedURLResponse answer, const CachedURLResponse* validated) override;
  void flush() override {
    if (disk_) disk_->flush();
  }

 private:
  CachedAnswerPointer find(const std::string& key, const HTTPHeaders& request) {
    if (auto answer = memory_->find(key, request)) return answer;
    if (!disk_) return nullptr;
    const auto generation = memory_->generation();
    auto answer = disk_->find(key, request);
    if (answer) memory_->promote(answer, request, generation);
    return answer;
  }

  void keep(const URLRequest& request, const ExchangeTimes& times,
            const CachedURLResponse& answer) {
    auto kept = keptAnswer(cacheKey(request.url), request, times, answer);
    if (!kept) return;
    if (disk_) disk_->put(kept, request.headers);
    memory_->put(std::move(kept), request.headers);
  }

  /// The disk first: memory must not keep what a reader finds on disk afterwards.
  void remove(const std::string& key) {
    if (disk_) disk_->remove(key);
    memory_->remove(key);
  }

  CachedURLResponse confirmed(const URLRequest& request, const ExchangeTimes& times,
                              const HTTPURLResponse& notModified,
                              const CachedURLResponse& validated);

  const std::int64_t memoryCapacity_;
  const std::int64_t diskCapacity_;
  const std::shared_ptr<MemoryURLCache> memory_;
  const ObservationToken memoryWarning_;
  Revalidations revalidations_;
  std::shared_ptr<SqliteURLCache> disk_;  // none without a folder or with too small a budget
};

URLCache::Decision TieredURLCache::decide(const URLRequest& request) {
  using Kind = Decision::Kind;
  CachedAnswerPointer stored;
  if (request.httpMethod == "GET" && !isPartialOrConditional(request.headers) &&
      request.cachePolicy != URLRequest::CachePolicy::reloadIgnoringLocalCacheData) {
    stored = find(cacheKey(request.url), request.headers);
  }
  const Date now = services().clock.get().now();
  const StoredUse use = useOf(request, stored ? &stored->freshness : nullptr, now);
  const auto aged = [&] {
    const HTTPURLResponse& response = *stored->answer.response;
    return CachedURLResponse{
        withFields(response, fieldsWithAge(response.headers(), stored->freshness.ageSeconds(now))),
        stored->answer.data};
  };
  Decision decision;
  switch (use) {
    case StoredUse::serve:
    case StoredUse::serveWhileRevalidating:
      decision.kind = Kind::serve;
      decision.answer = aged();
      decision.mustRevalidateBehind =
          use == StoredUse::serveWhileRevalidating && revalidations_.begin(stored->key, now);
      break;
    case StoredUse::validate:
      decision.kind = Kind::validate;
      decision.answer = stored->answer;
      decision.conditions = conditionsFrom(stored->answer.response->headers());
      break;
    case StoredUse::unavailable:
      decision.kind = Kind::unavailable;
      break;
    case StoredUse::load:
      break;
  }
  const bool isAsked = decision.kind == Kind::validate || decision.kind == Kind::load;
  if (isAsked && stored && mayServeOnError(request, stored->freshness, now)) {
    decision.answerOnError = aged();
  }
  return decision;
}

CachedURLResponse TieredURLCache::received(const URLRequest& request, Date requestTime,
                                           Date responseTime, CachedURLResponse answer,
                                           const CachedURLResponse* validated) {
  if (!answer.response) return answer;
  const HTTPURLResponse& response = *answer.response;
  const ExchangeTimes times{.request = requestTime, .response = responseTime};
  for (const std::string& key : invalidatedKeys(request, response)) remove(key);
  if (request.httpMethod != "GET") return answer;
  revalidations_.end(request.url);
  if (response.statusCode() == 304 && validated != nullptr && validated->response) {
    if (confirms(response.headers(), validated->response->headers())) {
      return confirmed(request, times, response, *validated);
    }
    remove(cacheKey(request.url));  // the server means another answer than the kept one
  } else if (isStorable(request, response)) {
    keep(request, times, answer);
  } else if (response.statusCode() / 100 == 2 && cacheControlOf(response.headers()).noStore) {
    remove(cacheKey(request.url));  // there is something newer, which must not be kept
  }
  return answer;
}

CachedURLResponse TieredURLCache::confirmed(const URLRequest& request, const ExchangeTimes& times,
                                            const HTTPURLResponse& notModified,
                                            const CachedURLResponse& validated) {
  const HTTPHeaders fields = mergedFields(validated.response->headers(), notModified.headers());
  const CachedURLResponse merged{withFields(*validated.response, fields), validated.data};
  if (isStorable(request, *merged.response)) {
    keep(request, times, merged);
  } else if (!cacheControlOf(request.headers).noStore) {
    remove(cacheKey(request.url));
  }
  return merged;
}

}  // namespace

URLRequest URLCache::revalidation(URLRequest request) {
  request.headers.set("Cache-Control", "max-age=0");
  return request;
}

bool URLCache::isServerError(int status) noexcept { return detail::isServerError(status); }

std::shared_ptr<URLCache> URLCache::make(std::int64_t memoryCapacity, std::int64_t diskCapacity,
                                         std::optional<URL> directory) {
  return std::make_shared<TieredURLCache>(memoryCapacity, diskCapacity, std::move(directory));
}

const std::shared_ptr<URLCache>& URLCache::shared() {
  constexpr std::int64_t kMemoryBytes = 4 << 20;
  constexpr std::int64_t kDiskBytes = 20 << 20;
  // Leaked: sessions may use it while the process ends.
  static const auto& cache =
      *new std::shared_ptr<URLCache>(make(kMemoryBytes, kDiskBytes,
                                          services()
                                              .directories.get()
                                              .caches()
                                              .appendingPathComponent(mainBundleName(), true)
                                              .appendingPathComponent("URLCache", true)));
  return cache;
}

}  // namespace ombrix::platform
