#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <chrono>
#include <cmath>

#include "CachingSamples.hpp"
#include "OmbrixPlatform/Detail/Descriptor.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixTesting/Eventually.hpp"
#include "OmbrixTesting/ManualClock.hpp"
#include "OmbrixTesting/ManualPathMonitor.hpp"
#include "OmbrixTesting/Processes/UnusedPort.hpp"
#include "OmbrixTesting/ScopedDir.hpp"
#include "OmbrixTesting/ScopedService.hpp"
#include "OmbrixTesting/TestServer.hpp"
#include "SessionSupport.hpp"

// How the cache behaves over real requests: a table of stories, each told to a session of its own
// with a new cache in front of a real server.

namespace ombrix::platform {
namespace {

using namespace samples;
using testing::Outcome;

/// A resource ("item: value" separated by "|", as the server's /cache route has them) and what
/// happens with it, in words:
///
///   get=1N                   a GET; the server's first answer comes, from the network
///   get[Name: value|…]=2C    with header fields; the second answer, from the cache
///   post=3V  head=N          another method; V: validated; a number is left out without a body
///   reload= only= else=      the cache policies; "-" for refused by the cache, "304N" for a status
///   get@b=1N                 another resource of the same items
///   set@b{item: value|…}     changes a resource's items; "$" is this one's URL without its host
///   +30  -30                 seconds pass, or the clock is set back
///   fill=40                  GETs of 40 other resources of 100 kB
///   restart  clear           the program starts again; the cache is emptied
///   seen=2                   the server has seen two requests for the resource so far
struct Story {
  const char* items;
  const char* steps;
};

// clang-format off: a row each
const Story kStories[]{
    // Freshness.
    {"cache-control: max-age=60",                      "get=1N get=1C +59 get=1C +2 get=2N get=2C seen=2"},
    {"cache-control: max-age=60|etag: \"1\"",          "get=1N +61 get=1V +59 get=1C +2 get=1V"},
    {"cache-control: max-age=60|etag: \"1\"",          "get=1N -9000 get=1V get=1C +59 get=1C"},
    {"cache-control: max-age=60",                      "get=1N -9000 get=2N get=2C"},
    {"cache-control: max-age=60, stale-while-revalidate=30", "get=1N +70 get=1C seen=2"},
    {"cache-control: max-age=60, stale-if-error=30",   "get=1N +70 set{status: 503} get=1C seen=2 +30 get=3N"},
    {"cache-control: max-age=60, stale-if-error=30|etag: \"1\"", "get=1N +70 set{etag: \"2\"|status: 500} get=1C set{etag: \"2\"|status: 404} get=3N"},
    // Directives of answers.
    {"cache-control: no-store",                        "get=1N get=2N only=-"},
    {"cache-control: no-cache|etag: \"1\"",            "get=1N get=1V"},
    // Statuses and methods.
    {"cache-control: max-age=60|status: 206",          "get=1N get=2N"},
    {"cache-control: max-age=60|status: 299",          "get=1N get=1C restart get=1C"},
    {"cache-control: max-age=60",                      "post=1N get=2N head=N get=2C options=4N get=2C"},
    {"cache-control: max-age=60|status: 301|location: /bytes?bytes=1", "get=N get=N seen=1"},
    {"cache-control: no-store|status: 302|location: /bytes?bytes=1", "get=N get=N seen=2"},
    // Validation.
    {"etag: \"1\"",                                    "get=1N get=1V set{etag: \"2\"} get=2N get=2V"},
    {"etag: \"1\"|last-modified: Sun, 06 Nov 1994 08:49:37 GMT|cache-control: max-age=0", "get=1N get=1V"},
    {"etag: \"1\"",                                    "get=1N set{cache-control: max-age=100} get=1V +99 get=1C +2 get=1V"},
    {"etag: \"1\"",                                    "get=1N set{cache-control: no-store} get=1V set{} get=2N"},
    {"etag: \"1\"",                                    "get=1N set{etag: \"2\"|cache-control: no-store} get=2N set{} get=3N"},
    {"etag: \"1\"",                                    "get=1N set{etag: \"2\"|status: 500} get=2N set{} get=1V"},
    // Variants.
    {"cache-control: max-age=60|vary: X",              "get=1N get[X: 1]=2N get=1C get[X:]=3N"},
    {"vary: X|etag: \"1\"",                            "get[X: 1]=1N get[X: 2]=2N get[X: 1]=1V get[X: 2]=2V"},
    {"cache-control: max-age=60|vary: X",              "get[X: 1]=1N only[X: 1]=1C only[X: 2]=- else[X: 2]=2N"},
    {"cache-control: max-age=60|vary: X",              "get[X: 1]=1N get[X: 2]=2N delete=3N get[X: 1]=4N get[X: 2]=5N"},
    // Directives of requests.
    {"cache-control: max-age=60|etag: \"1\"",          "get=1N get[If-None-Match: \"1\"]=304N get[If-None-Match: \"0\"]=2N get=2C"},
    {"cache-control: max-age=60",                      "get=1N get[Range: bytes=0-1]=2N get=2C"},
    // Policies.
    {"cache-control: max-age=60|etag: \"1\"",          "get=1N reload=2N get=2C seen=2"},
    {"etag: \"1\"",                                    "only=- get=1N +600 only=1C only[Cache-Control: no-cache]=1C seen=1"},
    {"cache-control: no-cache, must-revalidate",       "get=1N +600 only=1C else=1C get=2N"},
    {"date: +0",                                       "else=1N +600 else=1C get=2N else=2C"},
    // What writes invalidate.
    {"cache-control: max-age=60",                      "get=1N post=2N get=3N get=3C"},
    {"cache-control: max-age=60",                      "get=1N set{status: 500} post=2N set{} get=1C set{status: 404} delete=3N get=1C"},
    {"cache-control: max-age=60",                      "get=1N get@b=1N post@b=2N get=1C get@b=3N"},
    {"cache-control: max-age=60",                      "get=1N set@b{location: $} post@b=1N get=2N"},
    {"cache-control: max-age=60",                      "get=1N set@b{content-location: $|status: 201} put@b=1N get=2N"},
    {"etag: \"1\"",                                    "get=1N post=2N only=- restart only=-"},
    // Whose answers.
    {"cache-control: max-age=60",                      "get[Authorization: Bearer a]=1N get[Authorization: Bearer a]=1C get[Authorization: Bearer b]=2N get=3N get[Authorization: Bearer a]=1C"},
    {"cache-control: public, max-age=60",              "get[Authorization: Bearer a]=1N restart get=2N get[Authorization: Bearer b]=3N get[Authorization: Bearer a]=1C"},
    {"cache-control: max-age=60",                      "get[Authorization: Bearer a]=1N get=2N post[Authorization: Bearer b]=3N get[Authorization: Bearer a]=4N get=5N"},
    // Budgets: 1 MiB in memory, 8 MiB on disk.
    {"cache-control: max-age=60|bytes: 200000",        "get=1N get=1C restart get=1C"},
    {"cache-control: max-age=60|bytes: 3000000",       "get=1N get=2N"},
    {"cache-control: max-age=60",                      "get=1N fill=20 get=1C"},
    {"cache-control: max-age=60",                      "get=1N fill=100 get=2N"},
    {"cache-control: max-age=60",                      "get=1N fill=50 get=1C fill=50 get=1C"},
    // Another run of the program.
    {"cache-control: max-age=60|etag: \"1\"",          "get=1N restart get=1C +61 get=1V restart get=1C"},
    {"cache-control: max-age=60|vary: X",              "get[X: 1]=1N get[X: 2]=2N restart get[X: 2]=2C get[X: 1]=1C get[X: 3]=3N"},
    {"last-modified: -1000|date: +0|etag: \"1\"",      "get=1N restart +80 get=1C +30 get=1V"},
    {"cache-control: max-age=60",                      "get=1N get@b=1N clear get=2N restart get=2C get@b=2N"},
};
// clang-format on

/// Takes words off the front of a text.
class Words {
 public:
  explicit Words(std::string_view text) : rest_(text) {}

  [[nodiscard]] bool isAtEnd() {
    while (rest_.starts_with(' ')) rest_.remove_prefix(1);
    return rest_.empty();
  }
  [[nodiscard]] char next() const { return rest_.empty() ? ' ' : rest_[0]; }

  /// What stands before the first of the characters.
  std::string until(std::string_view characters) {
    const auto end = std::min(rest_.find_first_of(characters), rest_.size());
    std::string taken(rest_.substr(0, end));
    rest_.remove_prefix(end);
    return taken;
  }
  /// What stands between two brackets, when the first is next.
  std::string between(char open, char close) {
    if (next() != open) return {};
    rest_.remove_prefix(1);
    std::string taken = until({&close, 1});
    rest_.remove_prefix(1);
    return taken;
  }
  bool skip(char character) {
    if (next() != character) return false;
    rest_.remove_prefix(1);
    return true;
  }

 private:
  std::string_view rest_;
};

std::string encoded(std::string_view text) {
  std::string result;
  for (const char character : text) {
    if (std::isalnum(static_cast<unsigned char>(character)) != 0) {
      result += character;
    } else {
      constexpr std::string_view kDigits = "0123456789ABCDEF";
      const auto byte = static_cast<unsigned char>(character);
      result.append({'%', kDigits[byte >> 4], kDigits[byte & 15]});
    }
  }
  return result;
}

/// "item: value|…" as a query.
std::string queryOf(std::string_view items) {
  std::string query;
  while (!items.empty()) {
    const auto end = std::min(items.find('|'), items.size());
    const std::string_view item = items.substr(0, end);
    const auto colon = item.find(':');
    const auto value = item.substr(std::min(colon + 2, item.size()));
    query.append(query.empty() ? "?" : "&").append(item.substr(0, colon));
    query.append("=").append(encoded(value));
    items.remove_prefix(std::min(end + 1, items.size()));
  }
  return query;
}

HTTPHeaders headersOf(std::string_view text) {
  // A field without a value stands for an empty one.
  return text.ends_with(':') ? HTTPHeaders{{std::string(text.substr(0, text.size() - 1)), ""}}
                             : fieldsOf(text);
}

class Teller {
 public:
  explicit Teller(testing::TestServer& server, testing::ManualClock& clock, int number)
      : server_(server), clock_(clock), path_("/cache/r" + std::to_string(number)) {
    restart();
  }
  ~Teller() { session_->invalidateAndCancel(); }

  void tell(const Story& story) {
    // The server's clock does not move with the cache's: without a date the time of the answer
    // counts.
    const std::string items = story.items;
    query_ = queryOf(items.contains("date:") ? items : items + "|date:");
    for (Words words(story.steps); !words.isAtEnd();) step(words);
  }

 private:
  void restart() {
    if (session_) session_->invalidateAndCancel();
    if (cache_) cache_->flush();
    constexpr std::int64_t kMiB = 1 << 20;
    cache_ = URLCache::make(kMiB, 8 * kMiB, URL::fileURL(folder_.path().string(), true));
    auto configuration = URLSessionConfiguration::ephemeral();
    configuration.urlCache = cache_;
    session_ = URLSession::make(configuration);
  }

  void step(Words& words) {
    const std::string word = words.until(" @[{=");
    const std::string path = words.skip('@') ? path_ + "-" + words.until(" [{=") : path_;
    const std::string fields = words.between('[', ']');
    const std::string items = words.between('{', '}');
    const std::string expected = words.skip('=') ? words.until(" ") : "";
    SCOPED_TRACE(word + " " + fields + " " + expected);
    if (word[0] == '+') {
      clock_.advance(TimeInterval(std::stod(word)));
    } else if (word[0] == '-') {
      clock_.setNow(clock_.now() + TimeInterval(std::stod(word)));
    } else if (word == "restart") {
      restart();
    } else if (word == "clear") {
      cache_->removeAllCachedResponses();
    } else if (word == "set") {
      set(path, items);
    } else if (word == "fill") {
      fill(std::stoi(expected));
    } else if (word == "seen") {
      // One that was sent behind a caller's back may still be on its way.
      const auto isThere = [&] { return std::to_string(server_.requestCount(path)) == expected; };
      EXPECT_TRUE(testing::eventually(isThere)) << server_.requestCount(path);
    } else {
      EXPECT_EQ(fetched(word, path, fields), expected);
    }
  }

  void set(const std::string& path, std::string items) {
    for (auto at = items.find('$'); at != std::string::npos; at = items.find('$')) {
      items.replace(at, 1, path_ + query_);
    }
    auto request = testing::requestTo(server_.url("/admin/answers" + path + queryOf(items)));
    request.httpMethod = "PUT";
    EXPECT_EQ(testing::fetch(*session_, request).status(), 200);
  }

  void fill(int count) {
    for (int i = 0; i < count; ++i) {
      const std::string path =
          "/cache/fill" + std::to_string(++fillings_) + "?cache-control=max-age%3D60&bytes=100000";
      EXPECT_EQ(testing::fetch(*session_, testing::requestTo(server_.url(path))).status(), 200);
    }
    cache_->flush();
  }

  /// The number in the answer's body, and where it came from.
  std::string fetched(const std::string& word, const std::string& path,
                      const std::string& fields) const {
    using enum URLRequest::CachePolicy;
    auto request = testing::requestTo(server_.url(path + query_));
    request.headers = headersOf(fields);
    if (word == "reload") {
      request.cachePolicy = reloadIgnoringLocalCacheData;
    } else if (word == "only") {
      request.cachePolicy = returnCacheDataDontLoad;
    } else if (word == "else") {
      request.cachePolicy = returnCacheDataElseLoad;
    } else {
      request.httpMethod = word;
      for (char& letter : request.httpMethod) letter = static_cast<char>(letter - 32);
    }
    auto running = testing::start(*session_, request);
    const Outcome outcome = running.outcome();
    if (outcome.code() == URLError::Code::resourceUnavailable) return "-";
    if (outcome.error) return outcome.error->what();
    const std::string body = outcome.text();
    constexpr std::string_view kFront = "{\"answer\":";
    std::string told;
    if (outcome.status() == 304) {
      told = "304";
    } else if (body.starts_with(kFront)) {
      told = Words(std::string_view(body).substr(kFront.size())).until(",} ");
    }
    using enum URLSessionTaskMetrics::FetchType;
    const auto type = running.task->metrics().fetchType;
    return told + (type == localCache ? "C" : type == validated ? "V" : "N");
  }

  testing::TestServer& server_;
  testing::ManualClock& clock_;
  const std::string path_;
  std::string query_;
  testing::ScopedDir folder_;
  std::shared_ptr<URLCache> cache_;
  std::shared_ptr<URLSession> session_;
  int fillings_ = 0;
};

// Catches any rule of caching that holds in a part alone and not between a session and a server.
TEST(URLCacheSessionTests, TellsEachStoryRight) {
  testing::TestServer server(testing::TestServer::Wire::plain);
  const auto clock = std::make_shared<testing::ManualClock>();
  const testing::ScopedService scoped(services().clock, std::shared_ptr<Clock>(clock));
  const auto systemClock = makeSystemClock();
  int number = 0;
  for (const Story& story : kStories) {
    // The server's dates count from the real time.
    clock->setNow(dateSince1970(std::floor(timeIntervalSince1970(systemClock->now()))));
    SCOPED_TRACE(std::string(story.items) + ": " + story.steps);
    Teller(server, *clock, ++number).tell(story);
  }
}

// Catches a stale answer that is withheld although its server, which is gone, allows it, or that
// comes only when a session has waited for the server; and one handed over beyond what it allows.
TEST(URLCacheSessionTests, StandsInForAServerThatIsGone) {
  const auto cache = URLCache::make(1 << 20, 0, std::nullopt);
  auto configuration = URLSessionConfiguration::ephemeral();
  configuration.urlCache = cache;
  const auto session = URLSession::make(configuration);
  const auto url = "http://127.0.0.1:" + std::to_string(testing::unusedPort()) + "/";
  const struct {
    std::string_view allowed;
    std::string_view outcome;
  } rows[]{
      {"Cache-Control: max-age=0, stale-if-error=600", "200 body"},
      {"Cache-Control: max-age=0, stale-if-error=600|ETag: \"1\"", "200 body"},
      {"Cache-Control: max-age=0, stale-if-error=600, must-revalidate", "error -1004"},
      {"Cache-Control: max-age=0", "error -1004"},
  };
  for (const auto& row : rows) {
    cache->storeCachedResponse(answerOf(200, row.allowed, "body", url), requestFor(url));
    EXPECT_EQ(testing::fetch(*session, testing::requestTo(url)).summary(), row.outcome)
        << row.allowed;
  }
  session->invalidateAndCancel();

  // The clock stands still, the path does not change: nothing is tried again.
  const testing::ScopedService clock(
      services().clock, std::shared_ptr<Clock>(std::make_shared<testing::ManualClock>()));
  const testing::ScopedService paths(
      services().pathMonitorFactory,
      std::shared_ptr<NWPathMonitorFactory>(std::make_shared<testing::ManualPathMonitorFactory>()));
  configuration.waitsForConnectivity = true;
  configuration.timeoutIntervalForResource = TimeInterval(3600);
  const auto patient = URLSession::make(configuration);
  constexpr auto kNowhere = "http://nowhere.invalid/";
  cache->storeCachedResponse(answerOf(200, rows[0].allowed, "body"), requestFor(kNowhere));
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(testing::fetch(*patient, testing::requestTo(kNowhere)).summary(), "200 body") << i;
  }
  patient->invalidateAndCancel();
}

/// A port at which nobody answers, not even to refuse: one waits there to be let in, more may not.
std::array<detail::Descriptor, 2> silentPort(std::string& url) {
  std::array ends{detail::Descriptor(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)),
                  detail::Descriptor(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))};
  sockaddr_in address{};
  auto* where = reinterpret_cast<sockaddr*>(&address);
  socklen_t size = sizeof address;
  ::listen(ends[0].get(), 0);
  ::getsockname(ends[0].get(), where, &size);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::connect(ends[1].get(), where, size) == 0) {
    url = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/";
  }
  return ends;
}

// Catches a stale answer withheld while others find out, until their time-out, that the server is
// still gone.
TEST(URLCacheSessionTests, StandsInWhileAServerIsTriedAgain) {
  const auto clock = std::make_shared<testing::ManualClock>();
  const testing::ScopedService scopedClock(services().clock, std::shared_ptr<Clock>(clock));
  const testing::ScopedService paths(
      services().pathMonitorFactory,
      std::shared_ptr<NWPathMonitorFactory>(std::make_shared<testing::ManualPathMonitorFactory>()));
  std::string url;
  const auto port = silentPort(url);
  ASSERT_NE(url, "");
  auto configuration = URLSessionConfiguration::ephemeral();
  configuration.urlCache = URLCache::make(1 << 20, 0, std::nullopt);
  configuration.waitsForConnectivity = true;
  configuration.timeoutIntervalForResource = TimeInterval(999999999);  // however far the clock runs
  configuration.urlCache->storeCachedResponse(
      answerOf(200, "Cache-Control: max-age=0, stale-if-error=999999999", "body", url),
      requestFor(url));
  const auto session = URLSession::make(configuration);
  const auto waiting = testing::start(*session, testing::requestTo(url + "other"));
  // The first attempt ends after a minute; the clock stands still once the second is under way.
  ASSERT_TRUE(testing::eventually([&] {
    clock->advance(std::chrono::seconds(1));
    return waiting.task->metrics().waiting >= std::chrono::minutes(1);
  }));
  EXPECT_EQ(testing::fetch(*session, testing::requestTo(url)).summary(), "200 body");
  session->close();
}

}  // namespace
}  // namespace ombrix::platform
