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

// Catches a 304 whose fields are not kept, whose body is lost, or that confirms something else.
TEST_F(URLCacheTests, ConfirmationRenewsWhatIsKept) {
  const auto cache = URLCache::make(kMiB, 0, std::nullopt);
  const auto request = requestFor("http://a.test/");
  load(*cache, request, answerOf(200, "Cache-Control: max-age=10|ETag: \"1\"|X: old", "body"));
  clock->advance(TimeInterval(11));
  auto decided = cache->decide(request);
  ASSERT_EQ(decided.kind, Kind::validate);
  const auto handed = load(
      *cache, request, answerOf(304, "Cache-Control: max-age=20|X: new|Authorization: Bearer t"),
      &*decided.answer);
  EXPECT_EQ(handed.response->statusCode(), 200);
  EXPECT_EQ(handed.response->valueForHTTPHeaderField("Authorization"), "Bearer t");
  EXPECT_EQ(textOf(*handed.data), "body");
  clock->advance(TimeInterval(19));
  decided = cache->decide(request);
  ASSERT_EQ(decided.kind, Kind::serve);
  EXPECT_EQ(fieldsText(decided.answer->response->headers()),
            "Cache-Control: max-age=20|ETag: \"1\"|X: new|Age: 19");

  clock->advance(TimeInterval(2));
  decided = cache->decide(request);
  ASSERT_EQ(decided.kind, Kind::validate);
  const auto other = load(*cache, request, answerOf(304, "ETag: \"2\""), &*decided.answer);
  EXPECT_EQ(other.response->statusCode(), 304);
  EXPECT_EQ(decision(*cache, request), "load");
}

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

// Catches variants that push each other out, and a newer one that does not replace its own.
TEST_F(URLCacheTests, KeepsSeveralVariantsOfAURL) {
  const auto cache = URLCache::make(kMiB, 0, std::nullopt);
  constexpr auto kFields = "Cache-Control: max-age=10|Vary: Accept-Language";
  for (const std::string body : {"de", "fr", "it", "de"}) {
    load(*cache, requestFor("http://a.test/", "Accept-Language: " + body),
         answerOf(200, kFields, body));
  }
  load(*cache, requestFor("http://a.test/", "Accept-Language: fr"), answerOf(200, kFields, "FR"));
  EXPECT_EQ(decision(*cache, requestFor("http://a.test/", "Accept-Language: de")), "serve de");
  EXPECT_EQ(decision(*cache, requestFor("http://a.test/", "Accept-Language: fr")), "serve FR");
  EXPECT_EQ(decision(*cache, requestFor("http://a.test/", "Accept-Language: it")), "serve it");
  EXPECT_EQ(decision(*cache, requestFor("http://a.test/")), "load");
  for (int i = 0; i < 100; ++i) {
    load(*cache, requestFor("http://a.test/", "Accept-Language: " + std::to_string(i)),
         answerOf(200, kFields));
  }
  EXPECT_EQ(decision(*cache, requestFor("http://a.test/", "Accept-Language: 0")), "load");
  load(*cache, requestFor("http://a.test/", "", "DELETE"), answerOf(204, ""));
  EXPECT_EQ(decision(*cache, requestFor("http://a.test/", "Accept-Language: 99")), "load");
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
