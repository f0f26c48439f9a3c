#include "OmbrixPlatform/Network/URLCache.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OmbrixPlatform/Memory/MemoryWarning.hpp"
#include "URLCacheFixture.hpp"

namespace ombrix::platform {
namespace {

using namespace samples;

constexpr std::int64_t kMiB = 1 << 20;

class URLCacheTests : public URLCacheFixture {};

// Catches a server that is asked by every caller of a stale answer, or by none ever after.
TEST_F(URLCacheTests, OneCallerRevalidatesBehind) {
  const auto cache = URLCache::make(kMiB, 0, std::nullopt);
  const auto request = requestFor("http://a.test/");
  constexpr auto kFields =
      "Cache-Control: max-age=10, stale-while-revalidate=900|Age: 5|ETag: \"1\"";
  load(*cache, request, answerOf(200, kFields, "body"));
  clock->advance(TimeInterval(11));
  for (const bool isToldToAsk : {true, false}) {
    const auto decided = cache->decide(request);
    ASSERT_EQ(decided.kind, Kind::serve);
    EXPECT_EQ(decided.answer->response->valueForHTTPHeaderField("Age"), "16");
    EXPECT_EQ(decided.mustRevalidateBehind, isToldToAsk);
  }
  const auto asking = URLCache::revalidation(request);
  auto decided = cache->decide(asking);
  ASSERT_EQ(decided.kind, Kind::validate);
  load(*cache, asking, answerOf(304, ""), &*decided.answer);
  clock->advance(TimeInterval(9));  // the confirmation has no "Age" and is new
  EXPECT_FALSE(cache->decide(request).mustRevalidateBehind);
  for (int attempt = 0; attempt < 3; ++attempt) {  // which the server never answers
    clock->advance(TimeInterval(61));
    EXPECT_TRUE(cache->decide(request).mustRevalidateBehind) << attempt;
    EXPECT_FALSE(cache->decide(request).mustRevalidateBehind) << attempt;
  }
}

// Catches variants of one URL that pile up, and some that a change of it leaves there.
TEST_F(URLCacheTests, VariantsOfAURLHaveTheirLimit) {
  const auto cache = URLCache::make(kMiB, 0, std::nullopt);
  const auto in = [](int i) {
    return requestFor("http://a.test/", "Accept-Language: " + std::to_string(i));
  };
  for (int i = 0; i < 100; ++i) {
    load(*cache, in(i), answerOf(200, "Cache-Control: max-age=10|Vary: Accept-Language"));
  }
  EXPECT_EQ(decision(*cache, in(0)), "load");
  EXPECT_EQ(decision(*cache, in(99)), "serve ");
  load(*cache, requestFor("http://a.test/", "", "DELETE"), answerOf(204, ""));
  EXPECT_EQ(decision(*cache, in(99)), "load");
  EXPECT_EQ(cache->currentMemoryUsage(), 0);
}

// Catches a budget that is overrun, an order of use that hits do not change, and one answer that
// pushes out all others.
TEST_F(URLCacheTests, MemoryHoldsWhatWasUsedLast) {
  constexpr std::int64_t kCapacity = 100'000;
  const auto cache = URLCache::make(kCapacity, 0, std::nullopt);
  const auto url = [](int i) { return requestFor("http://a.test/" + std::to_string(i)); };
  const auto put = [&](int i, std::size_t bytes) {
    load(*cache, url(i), answerOf(200, "Cache-Control: max-age=10", std::string(bytes, 'x')));
  };
  for (int i = 0; i < 100; ++i) {
    put(i, 9'000);
    EXPECT_LE(cache->currentMemoryUsage(), kCapacity);
    EXPECT_EQ(cache->decide(url(0)).kind, Kind::serve) << i;
  }
  EXPECT_GT(cache->currentMemoryUsage(), kCapacity * 8 / 10);
  EXPECT_EQ(cache->decide(url(50)).kind, Kind::load);
  EXPECT_EQ(cache->decide(url(99)).kind, Kind::serve);
  put(99, 13'000);
  EXPECT_EQ(cache->decide(url(99)).kind, Kind::load);
  EXPECT_EQ(cache->decide(url(98)).kind, Kind::serve);
  cache->removeCachedResponse(url(98));
  EXPECT_FALSE(cache->cachedResponse(url(98)));
  EXPECT_TRUE(cache->cachedResponse(url(0)));
  UIApplicationDidReceiveMemoryWarningNotification().send();
  EXPECT_EQ(cache->currentMemoryUsage(), 0);
  put(0, 9'000);
  cache->removeAllCachedResponses();
  EXPECT_FALSE(cache->cachedResponse(url(0)));
  EXPECT_EQ(cache->currentMemoryUsage(), 0);
  const auto none = URLCache::make(0, 0, std::nullopt);
  none->storeCachedResponse(answerOf(200, "Cache-Control: max-age=10"), url(0));
  EXPECT_FALSE(none->cachedResponse(url(0)));
}

}  // namespace
}  // namespace ombrix::platform
