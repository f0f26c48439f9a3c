#include "OmbrixPlatform/Network/URLSession.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "RawServer.hpp"
#include "SessionSupport.hpp"

namespace ombrix::platform {
namespace {

using testing::fetch;
using ::testing::HasSubstr;
using ::testing::Not;
using testing::RawConnection;
using testing::RawServer;
using testing::requestTo;

// Answers with the request itself, connection by connection.
void echo(RawConnection& connection) {
  for (auto request = connection.readRequest(); !request.empty();
       request = connection.readRequest()) {
    if (request.starts_with("HEAD")) {
      connection.send("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n");
    } else {
      connection.answer("200 OK", request);
    }
  }
}

// Catches methods, bodies and fields that go out otherwise than the request says.
TEST(URLSessionTests, RequestsGoOutAsTheyAreStated) {
  RawServer server(echo);
  URLSessionConfiguration configuration = URLSessionConfiguration::ephemeral();
  configuration.httpAdditionalHeaders = {{"X-Session", "s"}, {"X-Both", "session"}};
  const auto session = URLSession::make(configuration);
  struct Case {
    const char* method;
    std::optional<Data> body;
    std::vector<const char*> sent;
    const char* notSent;
  };
  const std::vector<Case> cases{
      {"GET", std::nullopt, {"GET /p?q=1 HTTP/1.1\r\n", "\r\n\r\n"}, "Content-Length"},
      {"POST",
       dataFrom("a"),
       {"POST /p?q=1 ", "Content-Length: 1\r\n", "\r\n\r\na"},
       "Content-Type"},
      {"POST", std::nullopt, {"POST /p?q=1 ", "Content-Length: 0\r\n"}, "Content-Type"},
      {"PUT", dataFrom("put"), {"PUT /p?q=1 ", "Content-Length: 3\r\n", "\r\n\r\nput"}, "Expect"},
      {"PATCH", std::nullopt, {"PATCH /p?q=1 ", "Content-Length: 0\r\n"}, "Expect"},
      {"DELETE", std::nullopt, {"DELETE /p?q=1 "}, "Content-Length"},
      {"GET", dataFrom("body"), {"GET /p?q=1 ", "\r\n\r\nbody"}, "Content-Type"},
      {"HEAD", std::nullopt, {}, "HEAD"},
  };
  for (const auto& [method, body, sent, notSent] : cases) {
    SCOPED_TRACE(method);
    URLRequest request = requestTo(server.url("/p?q=1#fragment"));
    request.httpMethod = method;
    request.httpBody = body;
    request.headers = {{"X-Own", "o"}, {"X-Both", "own"}, {"X-Empty", ""}};
    const auto outcome = fetch(*session, request);
    EXPECT_EQ(outcome.status(), 200);
    EXPECT_EQ(outcome.error, nullptr);
    for (const char* text : sent) EXPECT_THAT(outcome.text(), HasSubstr(text));
    EXPECT_THAT(outcome.text(), Not(HasSubstr(notSent)));
    if (sent.empty()) continue;
    for (const char* field : {"X-Own: o\r\n", "X-Session: s\r\n", "X-Both: own\r\n", "X-Empty:\r\n",
                              "Accept-Encoding: gzip, deflate\r\n"}) {
      EXPECT_THAT(outcome.text(), HasSubstr(field));
    }
  }
  EXPECT_EQ(server.connections(), 1) << "connections are kept";
}

// Redirects "/r/STATUS/TARGET" to "/TARGET", or to TARGET when it is a URL; echoes everything else.
void redirectOrEcho(RawConnection& connection) {
  for (auto request = connection.readRequest(); !request.empty();
       request = connection.readRequest()) {
    const auto path = request.find(" /r/");
    if (path == std::string::npos || path > 10) {
      connection.answer("200 OK", request.starts_with("HEAD") ? "" : request);
      continue;
    }
    const std::string status = request.substr(path + 4, 3);
    const auto encoded = request.substr(path + 8, request.find(" HTTP/") - path - 8);
    std::string target = removingPercentEncoding(encoded).value();
    if (!target.contains(':')) target.insert(0, "/");
    connection.answer(status + " Elsewhere", "left behind", "Location: " + target + "\r\n");
  }
}

// Catches methods, bodies and tokens that travel along where they must not, or get lost where they
// must.
TEST(URLSessionTests, RedirectsAreFollowedByTheRules) {
  RawServer server(redirectOrEcho);
  RawServer other(redirectOrEcho);
  const auto session = URLSession::make(URLSessionConfiguration::ephemeral());
  struct Case {
    std::string method;
    std::string path;
    std::string expected;  // the last request begins so
    bool hasBody;
    bool hasToken = true;
  };
  // clang-format off: a table
  const std::vector<Case> cases{
      {"GET",  "/r/301/x",                 "GET /x ",        false},
      {"POST", "/r/301/x",                 "GET /x ",        false},
      {"POST", "/r/302/x",                 "GET /x ",        false},
      {"PUT",  "/r/302/x",                 "PUT /x ",        true},
      {"PUT",  "/r/303/x",                 "GET /x ",        false},
      {"POST", "/r/307/x",                 "POST /x ",       true},
      {"POST", "/r/308/x",                 "POST /x ",       true},
      {"POST", "/r/307/r/303/x",           "GET /x ",        false},
      {"POST", "/r/307/" + server.url("/x"), "POST /x ",     true},
      {"POST", "/r/307/" + other.url("/x"), "POST /x ",      true, false},
      {"GET",  "/r/301/" + other.url("/r/301/" + server.url("/x")), "GET /x ", false, false},
      {"GET",  "/r/301/a{b}",              "GET /a%7Bb%7D ", false},
  };
  // clang-format on
  for (const Case& row : cases) {
    SCOPED_TRACE(row.method + " " + row.path);
    URLRequest request = requestTo(
        server.url(addingPercentEncoding(row.path, URLAllowedCharacters::urlPathAllowed)));
    request.httpMethod = row.method;
    if (row.method != "GET") request.httpBody = dataFrom("body");
    request.headers = {{"Authorization", "Bearer t"}, {"Content-Type", "text/plain"}};
    const auto outcome = fetch(*session, request);
    EXPECT_THAT(outcome.text(), ::testing::StartsWith(row.expected));
    EXPECT_EQ(outcome.text().ends_with("\r\n\r\nbody"), row.hasBody);
    EXPECT_EQ(outcome.text().contains("Content-Type"), row.hasBody || row.method == "GET");
    EXPECT_EQ(outcome.text().contains("Bearer t"), row.hasToken);
  }
}

}  // namespace
}  // namespace ombrix::platform
