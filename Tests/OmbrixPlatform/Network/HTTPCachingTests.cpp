#include "OmbrixPlatform/Network/Caching/Detail/HTTPCaching.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clocale>

#include "CachingSamples.hpp"
#include "OmbrixPlatform/Network/Caching/Detail/HTTPCacheControl.hpp"
#include "OmbrixPlatform/Network/HTTPDate.hpp"

namespace ombrix::platform {
namespace {

using namespace detail;
using namespace samples;
using ::testing::ElementsAreArray;

// Catches a form of date that is not read, one read wrongly, and text taken for a date.
TEST(HTTPCachingTests, ReadsTheThreeFormsOfDates) {
  const struct {
    std::string_view text;
    double seconds;  // negative for none
  } rows[]{
      {"Sun, 06 Nov 1994 08:49:37 GMT", kNow},
      {"Sunday, 06-Nov-94 08:49:37 GMT", kNow},
      {"Sun Nov  6 08:49:37 1994", kNow},
      {"Sun Nov 16 08:49:37 1994", kNow + 864'000},
      {"Mon, 06 Nov 1994 08:49:37 GMT", kNow},  // the day of the week is not checked
      {"Thu, 01 Jan 1970 00:00:00 GMT", 0},
      {"Tue, 29 Feb 2000 23:59:60 GMT", 951'868'800},     // a leap second
      {"Friday, 06-Nov-43 08:49:37 GMT", 2'330'412'577},  // 49 years ahead of 1994
      {"Sunday, 06-Nov-60 08:49:37 GMT", -1},             // 1960, before any clock of ours
      {"Fri, 31 Dec 9999 23:59:59 GMT", 253'402'300'799},
      {"Wed, 31 Feb 1994 08:49:37 GMT", -1},
      {"Sun, 06 Nov 1994 24:00:00 GMT", -1},
      {"Sun, 06 Nov 1994 08:49:37 UTC", -1},
      {"Sun, 06 Nov 1994 08:49:37", -1},
      {"Sun, 06 Nov 1994 08:49:37 GMT ", -1},
      {"Sun, 6 Nov 1994 08:49:37 GMT", -1},
      {"Sun, 06 nov 1994 08:49:37 GMT", -1},
      {"Sun, 06 Nov 94 08:49:37 GMT", -1},
      {"06 Nov 1994 08:49:37 GMT", -1},
      {"0", -1},
      {"-1", -1},
      {"", -1},
  };
  std::setlocale(LC_ALL, "de_DE.UTF-8");
  for (const auto& [text, seconds] : rows) {
    const auto date = dateFromHTTPText(text, dateSince1970(kNow));
    const double found = date ? std::max(timeIntervalSince1970(*date), -1.0) : -1;
    EXPECT_EQ(found, seconds) << text;
  }
  EXPECT_EQ(httpTextFrom(dateSince1970(kNow + 0.9)), kNowText);
  EXPECT_EQ(httpTextFrom(dateSince1970(1e300)), "Fri, 31 Dec 9999 23:59:59 GMT");
  EXPECT_EQ(httpTextFrom(dateSince1970(-1)), "Wed, 31 Dec 1969 23:59:59 GMT");
  std::setlocale(LC_ALL, "C");
}

std::string textOf(const CacheControl& control) {
  std::string text;
  const auto add = [&](bool isThere, std::string_view name) {
    if (isThere) text.append(text.empty() ? "" : " ").append(name);
  };
  const auto addNumber = [&](std::optional<std::int64_t> number, std::string_view name) {
    if (number) add(true, std::string(name) + std::to_string(*number));
  };
  add(control.noStore, "no-store");
  add(control.noCache, "no-cache");
  add(control.mustRevalidate, "must-revalidate");
  add(control.mustUnderstand, "must-understand");
  add(control.isImmutable, "immutable");
  add(control.isPublic, "public");
  add(control.isPrivate, "private");
  add(control.onlyIfCached, "only-if-cached");
  addNumber(control.maxAge, "max-age=");
  addNumber(control.minFresh, "min-fresh=");
  addNumber(control.maxStale, "max-stale=");
  addNumber(control.staleWhileRevalidate, "stale-while-revalidate=");
  addNumber(control.staleIfError, "stale-if-error=");
  return text;
}

// Catches a directive that hides in a quoted text, is cut at a comma within one, or whose number
// overflows.
TEST(HTTPCachingTests, ReadsDirectives) {
  const struct {
    std::string_view field;
    std::string_view read;
  } rows[]{
      {"max-age=60", "max-age=60"},
      {"MAX-AGE=60, Private", "private max-age=60"},
      {"max-age=\"60\"", "max-age=60"},
      {"max-age = 60", "max-age=60"},
      {"max-age=60, max-age=5", "max-age=60"},
      {"max-age=99999999999999999999", "max-age=2147483648"},
      {"max-age=-1", "max-age=0"},
      {"max-age=6x", "max-age=0"},
      {"max-age=1.5", "max-age=0"},
      {"max-age", "max-age=0"},
      {"s-maxage=60", ""},
      {"no-cache=\"set-cookie, no-store\", public", "no-cache public"},
      {"ext=\"a\\\", no-store\", private=\"x\"", "private"},
      {"ext=\"never closed, no-store", ""},
      {"ext=\"\\", ""},
      {",, no-store ,\t,must-revalidate", "no-store must-revalidate"},
      {"max-stale, min-fresh=3", "min-fresh=3 max-stale=2147483648"},
      {"max-stale=5, min-fresh=x", "min-fresh=2147483648 max-stale=5"},
      {"only-if-cached must-understand", ""},
      {"immutable, stale-if-error=5, Stale-While-Revalidate=\"6\"",
       "immutable stale-while-revalidate=6 stale-if-error=5"},
      {"stale-if-error, stale-while-revalidate=x", "stale-while-revalidate=0 stale-if-error=0"},
      {"only-if-cached,must-understand", "must-understand only-if-cached"},
  };
  for (const auto& [field, read] : rows) {
    EXPECT_EQ(textOf(cacheControlOf({{"cache-control", std::string(field)}})), read) << field;
  }
}

// Catches a lifetime or an age that is taken from the wrong field or counted wrongly.
TEST(HTTPCachingTests, CountsLifetimeAndAge) {
  constexpr std::string_view kNowMinus100 = "Sun, 06 Nov 1994 08:47:57 GMT";
  const std::string date = "Date: " + std::string(kNowText);
  const std::string inAMinute = "|Expires: Sun, 06 Nov 1994 08:50:37 GMT";
  const std::string changed = "|Last-Modified: " + std::string(kNowMinus100);
  const struct {
    int status;
    std::string fields;
    double lifetime, age;  // with 2 s between request and answer
  } rows[]{
      {200, date + "|Cache-Control: max-age=30", 30, 2},
      {200, date + "|Cache-Control: max-age=30, s-maxage=90" + inAMinute, 30, 2},
      {200, date + inAMinute, 60, 2},
      {200, "Expires: Sun, 06 Nov 1994 08:50:37 GMT", 60, 2},
      {200, date + "|Expires: 0" + changed, 0, 2},
      {200, date + "|Expires: " + std::string(kNowMinus100), 0, 2},
      {200, date + "|Expires: Sunday, 06-Nov-94 08:50:37 GMT", 60, 2},
      {200, date + changed, 10, 2},
      {404, date + changed, 10, 2},
      {302, date + changed, 0, 2},
      {302, date + changed + "|Cache-Control: public", 10, 2},
      {200, date + "|Last-Modified: Mon, 07 Nov 1994 08:49:37 GMT", 0, 2},
      {200, date, 0, 2},
      {200, "Date: " + std::string(kNowMinus100) + "|Cache-Control: max-age=300", 300, 100},
      {200, date + "|Age: 40|Cache-Control: max-age=300", 300, 42},
      {200, date + "|Age: 0, 0|Cache-Control: max-age=300", 300, 2'147'483'650},
      {200, date + "|Age: -40|Cache-Control: max-age=300", 300, 2'147'483'650},
      {200, date + "|Age: 0;x|Cache-Control: max-age=300", 300, 2'147'483'650},
      {200, "Date: Mon, 07 Nov 1994 08:49:37 GMT|Cache-Control: max-age=9", 9, 2},
      {200, "Date: yesterday|Cache-Control: max-age=9", 9, 2},
  };
  for (const auto& row : rows) {
    const ExchangeTimes times{dateSince1970(kNow - 2), dateSince1970(kNow)};
    const auto freshness = freshnessOf(row.status, fieldsOf(row.fields), times);
    EXPECT_DOUBLE_EQ(freshness.lifetimeSeconds, row.lifetime) << row.fields;
    EXPECT_DOUBLE_EQ(freshness.ageSeconds(dateSince1970(kNow)), row.age) << row.fields;
    EXPECT_DOUBLE_EQ(freshness.ageSeconds(dateSince1970(kNow + 7)), row.age + 7) << row.fields;
    EXPECT_DOUBLE_EQ(freshness.ageSeconds(dateSince1970(0)), row.age) << "clock set back";
  }
}

const std::string kVaryOfManyNames = [] {
  std::string field = "Vary: X";
  for (int i = 0; i < 100; ++i) field += ", X" + std::to_string(i);
  return field;
}();

// Catches an answer kept that must not be, and one passed over that may be kept.
TEST(HTTPCachingTests, KeepsWhatMayBeKept) {
  const struct {
    std::string_view method, asked;
    int status;
    std::string_view said;
    bool isKept;
  } rows[]{
      {"GET", "", 200, "", true},
      {"GET", "", 200, "Cache-Control: no-store", false},
      {"GET", "Cache-Control: no-store", 200, "", false},
      {"GET", "Authorization: Bearer a", 200, "Cache-Control: private", true},
      {"GET", "", 200, "Vary: Accept, *", false},
      {"GET", "", 200, kVaryOfManyNames, false},
      {"GET", "", 206, "Cache-Control: max-age=9", false},
      {"GET", "", 304, "Cache-Control: max-age=9", false},
      {"GET", "", 100, "Cache-Control: max-age=9", false},
      {"GET", "", 299, "Cache-Control: max-age=9", true},
      {"GET", "", 299, "", false},
      {"GET", "", 599, "Cache-Control: max-age=9", true},
      {"GET", "", 306, "Expires: 0", true},
      {"GET", "", 412, "Cache-Control: max-age=9", false},
      {"GET", "", 416, "Cache-Control: max-age=9", false},
      {"GET", "", 299, "Cache-Control: max-age=9, must-understand", false},
      {"GET", "", 404, "Cache-Control: max-age=9, must-understand", true},
      {"GET", "", 200, "Cache-Control: max-age=9, must-understand, no-store", true},
      {"GET", "", 299, "Cache-Control: max-age=9, must-understand, no-store", false},
      {"GET", "", 200, "Cache-Control: must-understand", true},
      {"GET", "", 302, "", false},
      {"GET", "", 302, "Cache-Control: max-age=9", true},
      {"GET", "", 302, "Expires: 0", true},
      {"GET", "", 503, "", false},
      {"GET", "", 503, "Cache-Control: private", true},
      {"GET", "", 404, "", true},
      {"GET", "", 410, "", true},
      {"HEAD", "", 200, "Cache-Control: max-age=9", false},
      {"POST", "", 200, "Cache-Control: max-age=9", false},
      {"get", "", 200, "Cache-Control: max-age=9", false},
  };
  for (const auto& row : rows) {
    const auto request = requestFor("http://a.test/", row.asked, row.method);
    const auto answer = answerOf(row.status, row.said);
    EXPECT_EQ(isStorable(request, *answer.response), row.isKept)
        << row.method << " " << row.asked << " " << row.status << " " << row.said;
  }
}

constexpr std::string_view name(StoredUse use) {
  switch (use) {
    case StoredUse::serve:
      return "serve";
    case StoredUse::serveWhileRevalidating:
      return "serve and ask";
    case StoredUse::validate:
      return "validate";
    case StoredUse::load:
      return "load";
    case StoredUse::unavailable:
      break;
  }
  return "unavailable";
}

// Catches an answer served that is too old, and one fetched again that was good enough.
TEST(HTTPCachingTests, DecidesByFreshnessDirectivesAndPolicy) {
  using enum URLRequest::CachePolicy;
  constexpr auto protocol = useProtocolCachePolicy;
  constexpr std::string_view kTen = "Cache-Control: max-age=10|ETag: \"1\"";
  constexpr std::string_view kLenient =
      "Cache-Control: max-age=10, stale-while-revalidate=5, stale-if-error=20|ETag: \"1\"";
  constexpr std::string_view kImmutable = "Cache-Control: max-age=10, immutable|ETag: \"1\"";
  const struct {
    std::string_view stored;  // "-": nothing is
    double age;
    std::string_view asked;
    URLRequest::CachePolicy policy;
    std::string_view use;
  } rows[]{
      {"-", 0, "", protocol, "load"},
      {"-", 0, "Cache-Control: only-if-cached", protocol, "unavailable"},
      {kTen, 9, "", protocol, "serve"},
      {kTen, 10, "", protocol, "validate"},
      {"Cache-Control: max-age=10", 10, "", protocol, "load"},
      {"Cache-Control: max-age=10|Last-Modified: x", 10, "", protocol, "validate"},
      {"Cache-Control: max-age=10, no-cache|ETag: \"1\"", 0, "", protocol, "validate"},
      {"Cache-Control: max-age=10, no-cache", 0, "", protocol, "load"},
      {kTen, 1, "Cache-Control: no-cache", protocol, "validate"},
      {kTen, 1, "Pragma: no-cache", protocol, "validate"},
      {kTen, 1, "Pragma: no-cache|Cache-Control: max-age=5", protocol, "serve"},
      {kTen, 1, "Cache-Control: no-store", protocol, "serve"},
      {kTen, 5, "Cache-Control: max-age=5", protocol, "serve"},
      {kTen, 6, "Cache-Control: max-age=5", protocol, "validate"},
      {kTen, 0, "Cache-Control: max-age=0", protocol, "serve"},
      {kTen, 7, "Cache-Control: min-fresh=3", protocol, "serve"},
      {kTen, 8, "Cache-Control: min-fresh=3", protocol, "validate"},
      {kTen, 90, "Cache-Control: max-stale", protocol, "serve"},
      {kTen, 15, "Cache-Control: max-stale=5", protocol, "serve"},
      {kTen, 16, "Cache-Control: max-stale=5", protocol, "validate"},
      {"Cache-Control: max-age=10, must-revalidate|ETag: \"1\"", 11, "Cache-Control: max-stale",
       protocol, "validate"},
      {"Cache-Control: max-age=10, no-cache|ETag: \"1\"", 1, "Cache-Control: max-stale", protocol,
       "validate"},
      {kTen, 9, "Cache-Control: only-if-cached", protocol, "serve"},
      {kTen, 11, "Cache-Control: only-if-cached", protocol, "unavailable"},
      {kTen, 11, "Cache-Control: only-if-cached, max-stale=1", protocol, "serve"},
      {kTen, -1, "", protocol, "validate"},  // the clock was set back
      {"Cache-Control: max-age=10", -1, "", protocol, "load"},
      {kTen, -1, "Cache-Control: max-stale", protocol, "validate"},
      {kTen, -1, "", returnCacheDataElseLoad, "serve"},
      {kLenient, 9, "", protocol, "serve"},
      {kLenient, 14, "", protocol, "serve and ask"},
      {kLenient, 15, "", protocol, "validate or serve"},
      {kLenient, 14, "Cache-Control: max-age=12", protocol, "validate or serve"},
      {kLenient, 14, "Cache-Control: no-cache", protocol, "validate"},
      {kLenient, 14, "Cache-Control: only-if-cached", protocol, "serve"},
      {kLenient, 29, "", protocol, "validate or serve"},
      {kLenient, 30, "", protocol, "validate"},
      {kLenient, -1, "", protocol, "validate"},
      {"Cache-Control: max-age=10, must-revalidate, stale-while-revalidate=5, stale-if-error=5", 11,
       "", protocol, "load"},
      {"Cache-Control: stale-if-error=5", 1, "", protocol, "load or serve"},
      {kImmutable, 5, "Cache-Control: max-age=0", protocol, "serve"},
      {kImmutable, 5, "Cache-Control: no-cache", protocol, "validate"},
      {kImmutable, 10, "Cache-Control: max-age=0", protocol, "validate"},
      {kTen, 1, "", reloadIgnoringLocalCacheData, "load"},
      {kTen, 99, "", returnCacheDataElseLoad, "serve"},
      {"Cache-Control: no-cache, must-revalidate", 99, "", returnCacheDataElseLoad, "serve"},
      {"-", 0, "", returnCacheDataElseLoad, "load"},
      {kTen, 99, "Cache-Control: no-cache", returnCacheDataDontLoad, "serve"},
      {"-", 0, "", returnCacheDataDontLoad, "unavailable"},
  };
  for (const auto& row : rows) {
    const Date then = dateSince1970(kNow);
    const auto freshness = freshnessOf(200, fieldsOf(row.stored == "-" ? "" : row.stored),
                                       {.request = then, .response = then});
    const auto request = requestFor("http://a.test/", row.asked, "GET", row.policy);
    const Date now = then + TimeInterval(row.age);
    const auto use = useOf(request, row.stored == "-" ? nullptr : &freshness, now);
    std::string told(name(use));
    const bool isAsked = use == StoredUse::validate || use == StoredUse::load;
    if (isAsked && row.stored != "-" && mayServeOnError(request, freshness, now)) {
      told += " or serve";
    }
    EXPECT_EQ(told, row.use) << row.stored << " / " << row.age << " / " << row.asked;
  }
}

// Catches a confirmation that changes what belongs to the body, or leaves fields of a connection.
TEST(HTTPCachingTests, MergesAConfirmation) {
  const auto stored = fieldsOf(
      "ETag: \"1\"|Content-Length: 5|Content-Encoding: gzip|Content-MD5: m|Content-Type: a/b|"
      "X-Old: 1|Date: then|Age: 9");
  const auto merged = mergedFields(
      stored,
      fieldsOf(
          "Content-Length: 0|content-encoding: br|Content-Range: bytes 0-1/2|"
          "Content-MD5: n|Connection: close, X-Hop|X-Hop: 1|Keep-Alive: 1|Transfer-Encoding: x|"
          "Date: now|x-old: 2|X-New: 3|Authorization: Bearer new"));
  EXPECT_EQ(fieldsText(merged),
            "ETag: \"1\"|Content-Length: 5|Content-Encoding: gzip|Content-MD5: m|Content-Type: a/b|"
            "X-Old: 2|Date: now|X-New: 3|Authorization: Bearer new");
  EXPECT_EQ(fieldsText(fieldsToKeep(fieldsOf(
                "A: 1|Connection: x-hop|X-Hop: 1|Upgrade: h2|Authorization: t|Trailer: z"))),
            "A: 1");
  EXPECT_EQ(fieldsText(conditionsFrom(stored)), "If-None-Match: \"1\"");
  EXPECT_EQ(fieldsText(conditionsFrom(fieldsOf("Last-Modified: x|ETag: W/\"2\""))),
            "If-None-Match: W/\"2\"|If-Modified-Since: x");

  const struct {
    std::string_view stored, said;
    bool isConfirmed;
  } rows[]{
      {"ETag: \"1\"", "ETag: \"1\"", true},
      {"ETag: \"1\"", "ETag: W/\"1\"", true},
      {"ETag: \"1\"", "ETag: \"2\"", false},
      {"ETag: \"1\"", "", true},
      {"ETag: \"1\"|Last-Modified: x", "ETag: \"1\"|Last-Modified: y", true},
      {"Last-Modified: x", "Last-Modified: x", true},
      {"Last-Modified: x", "Last-Modified: y", false},
      {"Last-Modified: x", "", true},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(confirms(fieldsOf(row.said), fieldsOf(row.stored)), row.isConfirmed)
        << row.stored << " / " << row.said;
  }
}

// Catches an answer that outlives a change, and one removed at another server's word.
TEST(HTTPCachingTests, UnsafeMethodsInvalidate) {
  using Keys = std::vector<std::string>;
  const struct {
    std::string_view method;
    int status;
    std::string_view said;
    Keys keys;
  } rows[]{
      {"POST", 200, "", {"http://a.test/b"}},
      {"PUT", 204, "", {"http://a.test/b"}},
      {"PATCH", 201, "Location: /c", {"http://a.test/b", "http://a.test/c"}},
      {"DELETE", 303, "Location: c?d#e", {"http://a.test/b", "http://a.test/c?d"}},
      {"PROPPATCH", 200, "", {"http://a.test/b"}},
      {"POST", 200, "Content-Location: HTTP://A.TEST:80/c", {"http://a.test/b", "http://a.test/c"}},
      {"POST", 200, "Location: https://a.test/c", {"http://a.test/b"}},
      {"POST", 200, "Location: http://a.test:81/c", {"http://a.test/b"}},
      {"POST", 200, "Location: //x.test/c|Content-Location: b", {"http://a.test/b"}},
      {"POST", 200, "Location: http://[", {"http://a.test/b"}},
      {"POST", 400, "Location: /c", {}},
      {"DELETE", 500, "", {}},
      {"GET", 200, "Location: /c", {}},
      {"HEAD", 200, "", {}},
      {"OPTIONS", 200, "", {}},
  };
  for (const auto& row : rows) {
    const auto request = requestFor("http://a.test/b", "", row.method);
    EXPECT_THAT(invalidatedKeys(request, *answerOf(row.status, row.said).response),
                ElementsAreArray(row.keys))
        << row.method << " " << row.status << " " << row.said;
  }
}

// Catches one resource kept under two names, and two under one.
TEST(HTTPCachingTests, KeysAreUrlsWithoutWhatSaysNothing) {
  const struct {
    std::string_view url, key;
  } rows[]{
      {"http://a.test", "http://a.test/"},
      {"HTTP://A.Test/B?C#D", "http://a.test/B?C"},
      {"http://a.test?q", "http://a.test/?q"},
      {"http://a.test:80/x", "http://a.test/x"},
      {"https://a.test:443", "https://a.test/"},
      {"http://a.test:443/x", "http://a.test:443/x"},
      {"http://a.test:8080/x", "http://a.test:8080/x"},
      {"http://a.test:/x", "http://a.test/x"},
      {"http://Us:Er@A.test/x", "http://Us:Er@a.test/x"},
      {"http://[FE80::80]/x", "http://[fe80::80]/x"},
      {"http://[fe80::1]:80", "http://[fe80::1]/"},
      {"http://a.test/x:80", "http://a.test/x:80"},
  };
  for (const auto& row : rows) EXPECT_EQ(cacheKey(*URL::parse(row.url)), row.key) << row.url;
}

// Catches an answer given to a request, or to a user, that it was not for.
TEST(HTTPCachingTests, SelectsByVaryAndAuthorization) {
  const struct {
    std::string_view said, asked, later;
    bool isFor;
  } rows[]{
      {"", "", "", true},
      {"", "Accept: a", "Accept: b", true},
      {"Vary: accept", "Accept: a", "ACCEPT: a", true},
      {"Vary: Accept", "Accept: a", "Accept: b", false},
      {"Vary: Accept", "Accept: a", "", false},
      {"Vary: Accept", "", "Accept: a", false},
      {"Vary: Accept", "", "", true},
      {"Vary: Accept, X", "Accept: a|X: 1", "Accept: a|X: 2", false},
      {"Vary: Accept,, X", "Accept: a|X: 1", "X: 1|Accept: a|Y: 2", true},
      {"", "Authorization: Bearer a", "Authorization: Bearer a", true},
      {"", "Authorization: Bearer a", "Authorization: Bearer b", false},
      {"", "Authorization: Bearer a", "", false},
      {"", "", "Authorization: Bearer a", false},
      {"Vary: Authorization", "Authorization: Bearer a", "Authorization: Bearer a", true},
  };
  for (const auto& row : rows) {
    const auto fields = selectingFields(fieldsOf(row.said), fieldsOf(row.asked));
    ASSERT_TRUE(fields);
    EXPECT_EQ(selects(*fields, fieldsOf(row.later)), row.isFor)
        << row.said << " / " << row.asked << " / " << row.later;
  }
  EXPECT_FALSE(selectingFields(fieldsOf("Vary: Accept, *"), {}));
}

}  // namespace
}  // namespace ombrix::platform
