#include "OmbrixPlatform/Network/URLSession.hpp"

#include <gtest/gtest.h>

#include "OmbrixPlatform/Bundles/Bundle.hpp"
#include "OmbrixPlatform/Network/URLCache.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixTesting/ScopedService.hpp"
#include "OmbrixTesting/TestServer.hpp"
#include "SessionSupport.hpp"

namespace ombrix::platform {
namespace {

using testing::fetch;
using testing::requestTo;
using testing::TestServer;

// Catches methods, bodies and fields that go out otherwise than the request says.
TEST(URLSessionTests, RequestsGoOutAsTheyAreStated) {
  TestServer server(TestServer::Wire::plain);
  const testing::ScopedService scoped(
      services().mainBundle,
      std::make_shared<Bundle>(
          URL::fileURL("/nowhere", true),
          PropertyList::Dictionary{{"CFBundleName", "Ski (Tracks)\r\nX: y"},
                                   {"CFBundleShortVersionString", "1.2 beta"}}));
  auto configuration = URLSessionConfiguration::ephemeral();
  configuration.httpAdditionalHeaders = {{"X-Session", "s"}, {"X-Both", "session"}};
  const auto session = URLSession::make(configuration);
  struct Case {
    const char* method;
    std::optional<std::string> body;
    std::optional<std::string> length;  // the field that states it
  };
  // clang-format off: a table
  const std::vector<Case> cases{
      {"GET",    std::nullopt, std::nullopt},
      {"GET",    "body",       "4"},
      {"HEAD",   std::nullopt, std::nullopt},
      {"POST",   "post",       "4"},
      {"POST",   std::nullopt, "0"},
      {"PUT",    "put",        "3"},
      {"PATCH",  std::nullopt, "0"},
      {"DELETE", std::nullopt, std::nullopt},
      {"OWN",    "own",        "3"},
  };
  // clang-format on
  for (const auto& [method, body, length] : cases) {
    SCOPED_TRACE(method);
    URLRequest request = requestTo(server.url("/echo?q=%20#fragment"));
    request.httpMethod = method;
    if (body) request.httpBody = dataFrom(*body);
    request.headers = {{"X-Own", "o"}, {"X-Both", "own"}, {"X-Empty", ""}, {"Content-Length", "9"}};
    EXPECT_EQ(fetch(*session, request).status(), 200);
    const auto sent = server.requests().back();
    EXPECT_EQ(sent->method, method);
    EXPECT_EQ(sent->target, "/echo?q=%20");
    EXPECT_EQ(sent->body, body.value_or(""));
    const std::string* stated = sent->headers.find("Content-Length");
    EXPECT_EQ(stated ? std::optional(*stated) : std::nullopt, length);
    EXPECT_EQ(sent->headers.value("X-Own"), "o");
    EXPECT_EQ(sent->headers.value("X-Session"), "s");
    EXPECT_EQ(sent->headers.value("X-Both"), "own");
    EXPECT_EQ(sent->headers.value("Accept-Encoding"), "gzip, deflate");
    EXPECT_EQ(sent->headers.value("User-Agent"), "SkiTracksXy/1.2beta");
    EXPECT_NE(sent->headers.find("X-Empty"), nullptr);
    EXPECT_EQ(sent->headers.find("Content-Type"), nullptr);
    EXPECT_EQ(sent->headers.find("Expect"), nullptr);
  }
  URLRequest part = requestTo(server.url("/echo"));
  part.headers = {{"Range", "bytes=0-9"}, {"User-Agent", "own"}};
  EXPECT_EQ(fetch(*session, part).status(), 200);
  EXPECT_EQ(server.requests().back()->headers.value("Accept-Encoding"), "identity");
  EXPECT_EQ(server.requests().back()->headers.value("User-Agent"), "own");
  EXPECT_EQ(server.counters().connections, 1U) << "connections are kept";
}

// Redirects "/r/STATUS/TARGET" to "/TARGET", or to TARGET when it is a URL.
devserver::Response redirect(const devserver::Request& request) {
  const std::string target = request.rest.substr(4);
  return {.status = std::stoi(request.rest),
          .headers = {{"Location", target.starts_with("http") ? target : "/" + target}},
          .body = "left behind"};
}

// Catches methods, bodies and tokens that travel along where they must not, or get lost where they
// must.
TEST(URLSessionTests, RedirectsAreFollowedByTheRules) {
  TestServer server(TestServer::Wire::plain);
  TestServer other(TestServer::Wire::plain);
  for (TestServer* each : {&server, &other}) each->route("*", "/r/*", redirect);
  auto configuration = URLSessionConfiguration::ephemeral();
  configuration.httpAdditionalHeaders = {{"cookie", "session's"}};
  const auto session = URLSession::make(configuration);
  struct Case {
    std::string method;
    std::string path;
    std::string expected;  // method and target of the last request, "" for none but the redirect
    bool hasBody;
    bool hasToken = true;
    bool isElsewhere = false;
  };
  // clang-format off: a table
  const std::vector<Case> cases{
      {"GET",  "/r/301/echo",                           "GET /echo",      false},
      {"POST", "/r/301/echo",                           "GET /echo",      false},
      {"POST", "/r/302/echo",                           "GET /echo",      false},
      {"PUT",  "/r/302/echo",                           "PUT /echo",      true},
      {"PUT",  "/r/303/echo",                           "GET /echo",      false},
      {"HEAD", "/r/303/echo",                           "HEAD /echo",     false},
      {"POST", "/r/307/echo",                           "POST /echo",     true},
      {"POST", "/r/308/echo",                           "POST /echo",     true},
      {"POST", "/r/307/r/303/echo",                     "GET /echo",      false},
      {"POST", "/r/307/" + server.url("/echo"),         "POST /echo",     true},
      {"POST", "/r/307/" + other.url("/echo"),          "POST /echo",     true,  false, true},
      {"GET",  "/r/301/" + other.url("/r/301/" + server.url("/echo")), "GET /echo", false, false},
      {"GET",  "/r/301/echo?{b}\xC3\xA9",               "GET /echo?%7Bb%7D%C3%A9", false},
      {"GET",  "/r/304/echo",                           "",               false},
      {"GET",  "/r/300/echo",                           "",               false},
  };
  // clang-format on
  for (const Case& row : cases) {
    SCOPED_TRACE(row.method + " " + row.path);
    URLRequest request = requestTo(server.url(
        "/r/" + addingPercentEncoding(row.path.substr(3), URLAllowedCharacters::urlPathAllowed)));
    request.httpMethod = row.method;
    if (row.method.starts_with('P')) request.httpBody = dataFrom("body");
    request.headers = {{"Authorization", "Bearer t"},
                       {"Cookie", "own"},
                       {"Proxy-Authorization", "Basic p"},
                       {"Content-Type", "text/plain"}};
    const auto outcome = fetch(*session, request);
    if (row.expected.empty()) {
      EXPECT_EQ(std::to_string(outcome.status()), row.path.substr(3, 3));
      continue;
    }
    EXPECT_EQ(outcome.status(), 200);
    const auto last = (row.isElsewhere ? other : server).requests().back();
    EXPECT_EQ(last->method + " " + last->target, row.expected);
    EXPECT_EQ(last->body, row.hasBody ? "body" : "");
    EXPECT_EQ(last->headers.find("Content-Type") != nullptr,
              row.hasBody || !row.method.starts_with('P'));
    EXPECT_EQ(last->headers.value("Authorization"), row.hasToken ? "Bearer t" : "");
    EXPECT_EQ(last->headers.value("Proxy-Authorization"), row.hasToken ? "Basic p" : "");
    EXPECT_EQ(last->headers.value("Cookie"), row.hasToken      ? "own"
                                             : row.isElsewhere ? ""
                                                               : "session's");
  }
  const std::vector<std::pair<std::string, URLError::Code>> broken{
      {server.url("/redirect-loop"), URLError::Code::httpTooManyRedirects},
      {server.url("/redirect?to=%25"), URLError::Code::redirectToNonExistentLocation},
      {server.url("/redirect?to=ftp://x"), URLError::Code::unsupportedURL},
  };
  for (const auto& [url, code] : broken) EXPECT_EQ(fetch(*session, requestTo(url)).code(), code);
}

// Catches an empty 304 handed to a caller who set no condition, since the server means another
// answer than the one that is kept; and a token that is lost with it.
TEST(URLSessionTests, AnAnswerThatIsNotConfirmedIsLoadedAfresh) {
  TestServer server(TestServer::Wire::plain);
  server.route("GET", "/tagged", [](const auto& request) {
    const bool isCondition = request.headers.find("If-None-Match") != nullptr;
    devserver::Response response{.status = isCondition ? 304 : 200,
                                 .headers = {{"ETag", isCondition ? "\"2\"" : "\"1\""}},
                                 .body = isCondition ? "" : "whole"};
    if (isCondition) response.headers.add("Authorization", "Bearer next");
    return response;
  });
  auto configuration = URLSessionConfiguration::ephemeral();
  configuration.urlCache = URLCache::make(1 << 20, 0, std::nullopt);
  const auto session = URLSession::make(configuration);
  for (const std::uint64_t requests : {1U, 3U, 5U}) {
    auto running = testing::start(*session, requestTo(server.url("/tagged")));
    const auto outcome = running.outcome();
    EXPECT_EQ(outcome.summary(), "200 whole");
    EXPECT_EQ(outcome.response->valueForHTTPHeaderField("Authorization").value_or("none"),
              requests == 1 ? "none" : "Bearer next");
    EXPECT_EQ(running.task->metrics().fetchType, URLSessionTaskMetrics::FetchType::networkLoad);
    EXPECT_EQ(server.counters().requests, requests);
  }
}

// Catches more transfers to a host at once than allowed, fewer than there could be, and a queue
// that serves the last comer first.
TEST(URLSessionTests, TransfersToAHostTakeTurnsInOrder) {
  const struct {
    std::size_t perHost, inAll, width;
  } rows[]{{1, 64, 1}, {6, 64, 6}, {6, 2, 2}, {0, 0, 1}};
  for (const auto& [perHost, inAll, width] : rows) {
    TestServer server(TestServer::Wire::plain);
    auto configuration = URLSessionConfiguration::ephemeral();
    configuration.httpMaximumConnectionsPerHost = perHost;
    configuration.httpMaximumConnections = inAll;
    const auto session = URLSession::make(configuration);
    server.route("GET", "/held/*",
                 [](const auto&) { return testing::held("gate", devserver::Response::text("x")); });
    std::vector<testing::RunningTask> tasks;
    for (std::size_t i = 0; i < 30; ++i) {
      const std::string path = "/held/" + std::to_string(i);
      tasks.push_back(testing::start(*session, requestTo(server.url(path))));
    }
    ASSERT_TRUE(server.waitUntilHeld(width));
    EXPECT_EQ(server.counters().requests, width);
    server.openGate("gate");
    for (auto& task : tasks) EXPECT_EQ(task.outcome().status(), 200);
    EXPECT_EQ(server.counters().mostInFlight, width);
    EXPECT_EQ(server.counters().connections, width);
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 30U);
    for (std::size_t i = 0; i < 30; ++i) {
      const auto place = static_cast<std::size_t>(std::stoi(requests[i]->rest));
      EXPECT_LT(place, i + width);
      EXPECT_LT(i, place + width);
    }
  }
}

}  // namespace
}  // namespace ombrix::platform
