#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "OmbrixTesting/TestServer.hpp"
#include "Tests/Tools/DevServer/RawClient.hpp"

namespace ombrix::devserver {
namespace {

using ombrix::testing::TestServer;
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

}  // namespace
}  // namespace ombrix::devserver
