#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "OmbrixTesting/TestServer.hpp"
#include "Tests/Tools/DevServer/RawClient.hpp"

namespace ombrix::devserver {
namespace {

using ombrix::testing::TestServer;
using ::testing::EndsWith;
using ::testing::StartsWith;

std::string requestFor(const std::string& path) {
  return "GET " + path + " HTTP/1.1\r\nHost: test\r\n\r\n";
}

// What goes over the wire, and how the connection ends.
TEST(DevServerFault, MisbehavesByteForByte) {
  TestServer server(TestServer::Wire::plain);
  server.openGate("stall");
  const std::string head = "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\n";
  const std::string ten = head + "Content-Length: 10\r\n\r\n";
  const std::string chunked = head + "Transfer-Encoding: chunked\r\n\r\n";
  const struct {
    const char* fault;
    std::string bytes;
    const char* until = "(end)";
  } cases[] = {
      {"close-before-answer", ""},
      {"reset-before-answer", "(reset)"},
      {"close-in-head", "HTTP/1.1 200 OK\r\nContent-Ty"},
      {"close-in-body?bytes=10", ten + "01234"},
      {"close-in-body?bytes=10&end=reset&sent=1&ms=1", ten + "0(reset)"},
      {"reset-after-head?bytes=10&ms=1", ten + "(reset)"},
      {"reset-in-body?bytes=10&sent=3&gate=stall&ms=1", ten + "012(reset)"},
      {"close-after-answer?bytes=10", ten + "0123456789"},
      {"without-length?bytes=10", head + "\r\n01234"},
      {"truncated-chunked?bytes=10", chunked + "5\r\n01234\r\n"},
      {"truncated-chunk?bytes=10", chunked + "a\r\n0123"},
      {"stall-in-body?bytes=10", ten + "0123456789", "9"},
      {"stall-before-head?bytes=10", ten + "0123456789", "9"},
      {"drip?bytes=10&every=1", ten + "0123456789", "9"},
      {"drip-head?bytes=10&every=1", ten + "0123456789", "9"},
      {"short-length?bytes=10&sent=5", head + "Content-Length: 5\r\n\r\n0123456789", "9"},
      {"two-lengths?bytes=1", head + "Content-Length: 1\r\nContent-Length: 1\r\n\r\n0", "\n0"},
      {"conflicting-lengths?bytes=1", head + "Content-Length: 1\r\nContent-Length: 2\r\n\r\n0",
       "\n0"},
      {"negative-length?bytes=1", head + "Content-Length: -1\r\n\r\n0", "\n0"},
      {"chunk-overflow?bytes=1", chunked + "FFFFFFFFFFFFFFFFF\r\n0", "\n0"},
      {"no-chunk-size?bytes=1", chunked + "many\r\n0\r\n0\r\n\r\n", "0\r\n\r\n"},
      {"long-header?bytes=3", "HTTP/1.1 200 OK\r\nX-Long: xxx\r\nContent-Length: 0\r\n\r\n",
       "\n\r\n"},
      {"header-flood?bytes=1&count=2", "HTTP/1.1 200 OK\r\nX-Flood: x\r\nX-Flood: x\r\n",
       "x\r\nX-Flood: x\r\n"},
  };
  for (const auto& [fault, bytes, until] : cases) {
    const RawClient client(server.port());
    EXPECT_EQ(client.exchange(requestFor(std::string("/fault/") + fault), until), bytes) << fault;
  }
  EXPECT_THAT(RawClient(server.port()).exchange(requestFor("/fault/garbage")), StartsWith("\x7f"
                                                                                          "ELF"));
  EXPECT_TRUE(server.waitUntilDisconnected());
  EXPECT_TRUE(server.waitUntilIdle());
}

TEST(DevServerFault, FloodsUntilTheClientLeavesAndServesOthersMeanwhile) {
  TestServer server(TestServer::Wire::plain);
  for (const char* flood : {"header-flood", "endless-header", "endless-body"}) {
    const RawClient flooded(server.port());
    flooded.send(requestFor(std::string("/fault/") + flood));
    EXPECT_GE(flooded.receive("(end)", 1 << 20).size(), std::size_t{1} << 20) << flood;
    EXPECT_THAT(RawClient(server.port()).exchange(requestFor("/status/200"), "}"), EndsWith("}"))
        << flood;
  }
  EXPECT_TRUE(server.waitUntilDisconnected());
}

TEST(DevServerFault, EndsIdleConnectionsOnDemand) {
  TestServer server(TestServer::Wire::plain);
  for (const End how : {End::close, End::drop, End::reset}) {
    const RawClient client(server.port());
    EXPECT_THAT(client.exchange(requestFor("/status/200"), "}"), EndsWith("}"));
    server.endConnections(how);
    EXPECT_EQ(client.receive(), how == End::reset ? "(reset)" : "");
  }
}

}  // namespace
}  // namespace ombrix::devserver
