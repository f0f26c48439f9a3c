#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "OmbrixTesting/TestServer.hpp"
#include "Tests/Tools/DevServer/CurlClient.hpp"
#include "Tests/Tools/DevServer/RawClient.hpp"

namespace ombrix::devserver {
namespace {

using ombrix::testing::TestServer;
using ::testing::HasSubstr;
using ::testing::StartsWith;

// Requests as they may come, against the first line of the answer.
TEST(DevServerProtocol, ReadsRequestsAndRefusesWhatIsNone) {
  TestServer::Options options = TestServer::optionsFor(TestServer::Wire::plain);
  options.mostBodyBytes = 10;
  TestServer server(options);
  server.route("*", "/body", [](const Request& request) { return Response::text(request.body); });
  const std::string chunked = "POST /body HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n";
  const struct {
    std::string request;
    const char* status;
    const char* end;
  } cases[] = {
      {"\r\nGET /body HTTP/1.1\r\n\r\n", "200", "\r\n\r\n"},
      {"GET http://any/body?x HTTP/1.0\r\n\r\n", "200", "\r\n\r\n"},
      {"POST /body HTTP/1.1\r\ncontent-LENGTH:  3 \r\n\r\nabc", "200", "abc"},
      {"POST /body HTTP/1.1\r\nContent-Length: 1\r\nContent-Length: 1\r\n\r\na", "200", "a"},
      {chunked + "2\r\nab\r\n1;x=y\r\nc\r\n0\r\nTrailer: t\r\n\r\n", "200", "abc"},
      {"POST /body HTTP/1.1\r\nContent-Length: 1\r\nContent-Length: 2\r\n\r\na", "400", "}"},
      {"POST /body HTTP/1.1\r\nContent-Length: -1\r\n\r\n", "400", "}"},
      {"POST /body HTTP/1.1\r\nContent-Length: 11\r\n\r\n", "413", "}"},
      {chunked + "b\r\n", "413", "}"},
      {chunked + "FFFFFFFFFFFFFFFFF\r\n", "400", "}"},
      {chunked + "1\r\nab\r\n", "400", "}"},
      {"POST /body HTTP/1.1\r\nTransfer-Encoding: gzip\r\n\r\n", "501", "}"},
      {"GET /body HTTP/2.0\r\n\r\n", "505", "}"},
      {"GET /body\r\n\r\n", "400", "}"},
      {"GET body HTTP/1.1\r\n\r\n", "400", "}"},
      {"GET /body HTTP/1.1\r\nno colon\r\n\r\n", "400", "}"},
      {"GET /body HTTP/1.1\r\nX: " + std::string(70'000, 'x'), "431", "}"},
  };
  for (const auto& [request, status, end] : cases) {
    const RawClient whole(server.port());
    const std::string answer = whole.exchange(request, end);
    EXPECT_THAT(answer, StartsWith(std::string("HTTP/1.1 ") + status)) << request.substr(0, 80);
    EXPECT_TRUE(answer.ends_with(end)) << answer;
  }
  // The same when they come byte by byte.
  for (const auto& [request, status, end] : cases) {
    if (request.size() > 1000) continue;
    const RawClient slow(server.port());
    for (const char byte : request) slow.send(std::string(1, byte));
    EXPECT_THAT(slow.receive(end), StartsWith(std::string("HTTP/1.1 ") + status)) << request;
  }
}

TEST(DevServerProtocol, AnswersPipelinedRequestsInOrder) {
  TestServer server(TestServer::Wire::plain);
  const RawClient client(server.port());
  const std::string answers = client.exchange(
      "GET /slow?ms=5&bytes=1 HTTP/1.1\r\n\r\nHEAD /bytes HTTP/1.1\r\n\r\n"
      "GET /status/201 HTTP/1.1\r\nConnection: close\r\n\r\nGET /never HTTP/1.1\r\n\r\n");
  EXPECT_THAT(answers, ::testing::ContainsRegex("200 OK(.|\n)*\r\n\r\naHTTP/1.1 200 OK(.|\n)*"
                                                "Length: 1024\r\n\r\nHTTP/1.1 201 Created"));
  EXPECT_EQ(server.counters().requests, 3u);
}

TEST(DevServerProtocol, TakesAndGivesLargeBodies) {
  TestServer server;
  CurlClient client(server);
  server.route("PUT", "/size", [](const Request& request) {
    return Response::text(std::to_string(request.body.size()));
  });
  const std::string large(std::size_t{20} * 1024 * 1024, 'x');
  for (const char* header : {"Transfer-Encoding: chunked", "Expect: 100-continue", "Expect:"}) {
    EXPECT_EQ(client.send("PUT", "/size", large, {header}).body, "20971520");
  }
  EXPECT_EQ(client.get("/bytes?bytes=5000000&chunked").body.size(), 5'000'000u);
  EXPECT_EQ(server.counters().connections, 1u);
}

TEST(DevServerProtocol, AnswersToOrder) {
  TestServer server(TestServer::Wire::plain);
  CurlClient client(server);
  const struct {
    const char* path;
    long status;
    const char* header;
    const char* value;
    const char* body;
  } cases[] = {
      {"/status/305?body=%22x%22", 305, "Content-Type", "application/json", "\"x\""},
      {"/status/204?header=X-A:%20b", 204, "X-A", "b", ""},
      {"/status/12", 400, "Content-Type", "application/json", "from 200"},
      {"/redirect?to=/a%3Fb%3D1&status=307", 307, "Location", "/a?b=1", ""},
      {"/redirect-loop", 302, "Location", "/redirect-loop", ""},
      {"/gzip?body=hello", 200, "Content-Encoding", "gzip", "hello"},
      {"/deflate?body=hello&chunked", 200, "Content-Encoding", "deflate", "hello"},
      {"/deflate?body=hello&bare", 200, "Content-Encoding", "deflate", "hello"},
      {"/json-charset", 200, "Content-Type", "application/json; charset=utf-8", "Groß"},
      {"/bytes?bytes=3", 200, "Content-Length", "3", "abc"},
      {"/slow?bytes=3&every=1", 200, "Content-Length", "3", "abc"},
      {"/echo?a=%20b", 200, "Content-Type", "application/json", R"("query":[["a"," b"]])"},
  };
  for (const auto& [path, status, header, value, body] : cases) {
    const Answer answer = client.get(path);
    EXPECT_EQ(answer.status, status) << path;
    EXPECT_EQ(answer.headers.value(header), value) << path;
    EXPECT_THAT(answer.body, HasSubstr(body)) << path;
  }
}

TEST(DevServerProtocol, ValidatesCachedAnswers) {
  TestServer server(TestServer::Wire::plain);
  CurlClient client(server);
  const struct {
    const char* path;
    const char* condition;
    long status;
  } cases[] = {
      {"/cache?etag=%22a%22", "If-None-Match: \"b\", W/\"a\"", 304},
      {"/cache?etag=W/%22a%22", "If-None-Match: \"a\"", 304},
      {"/cache?etag=%22a%22", "If-None-Match: \"b\"", 200},
      {"/cache?last-modified=Sun,%2006%20Nov%201994%2008:49:37%20GMT",
       "If-Modified-Since: Sun, 06 Nov 1994 08:49:37 GMT", 304},
      {"/cache?last-modified=-60", "If-Modified-Since: Sun, 06 Nov 1994 08:49:37 GMT", 200},
      {"/cache?status=404&cache-control=max-age=5", "X: ", 404},
  };
  std::uint64_t fresh = 0;
  for (const auto& [path, condition, status] : cases) {
    const Answer answer = client.get(path, {condition});
    EXPECT_EQ(answer.status, status) << path << " " << condition;
    if (status == 304) continue;
    EXPECT_EQ(answer.body, "{\"answer\":" + std::to_string(++fresh) + "}");
  }
  // A new version under the same URL.
  EXPECT_EQ(client.get("/cache/x?etag=%22a%22&age=3").headers.value("Age"), "3");
  client.send("PUT", "/admin/answers/cache/x?etag=%22b%22&header=X-New:yes");
  const Answer changed = client.get("/cache/x?etag=%22a%22", {"If-None-Match: \"a\""});
  EXPECT_EQ(changed.headers.value("ETag"), "\"b\"");
  EXPECT_EQ(changed.headers.value("X-New"), "yes");
  EXPECT_EQ(changed.body, "{\"answer\":2}");
  EXPECT_EQ(client.get("/cache/y?date=").headers.find("Date"), nullptr);
}

}  // namespace
}  // namespace ombrix::devserver
