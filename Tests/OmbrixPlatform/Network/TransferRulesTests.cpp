#include "OmbrixPlatform/Network/Curl/Detail/TransferRules.hpp"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <string>
#include <vector>

#include "OmbrixPlatform/Detail/Descriptor.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/CurlErrors.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/CurlSockets.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/DelegateConversation.hpp"

namespace ombrix::platform::detail {
namespace {

// Catches requests sent again where that may do something twice, and tasks given up although
// nothing had been sent.
TEST(TransferRulesTests, FailedExchangesLeadToWhatIsSafe) {
  using enum AfterFailure;
  struct Case {
    FailedExchange exchange;
    AfterFailure expected;
  };
  // clang-format off: a table
  const std::vector<Case> cases{
      {{},                                                                                          fail},
      {{.wasSent = true, .connectionDiedBefore = true, .isIdempotent = true},                       sendAgain},
      {{.wasSent = true, .connectionDiedBefore = true, .isIdempotent = false},                      fail},
      {{.wasSent = true, .connectionDiedBefore = true, .isResend = true, .isIdempotent = true},     fail},
      {{.hasHeader = true, .wasSent = true, .connectionDiedBefore = true, .isIdempotent = true},    fail},
      {{.wasSent = true, .isIdempotent = true},                                                     fail},
      {{.wasSent = true, .connectionDiedBefore = true, .isHTTP1Required = true},                    sendByHTTP1},
      {{.foundSurplus = true},                                                                      tryOther},
      {{.isUndecided = true},                                                                       askAboutTrust},
      {{.wasSent = true, .isUndecided = true},                                                      fail},
      {{.isMissingConnectivity = true, .waitsForConnectivity = true},                               awaitConnectivity},
      {{.isMissingConnectivity = true},                                                             fail},
      {{.waitsForConnectivity = true},                                                              fail},
      {{.wasSent = true, .isMissingConnectivity = true, .waitsForConnectivity = true},              fail},
      {{.hasHeader = true, .isMissingConnectivity = true, .waitsForConnectivity = true},            fail},
  };
  // clang-format on
  for (const Case& row : cases) {
    EXPECT_EQ(afterFailure(row.exchange), row.expected) << &row - cases.data();
  }
}

// Catches answers that are handed over although another is meant, or the other way round.
TEST(TransferRulesTests, AnswersLeadOn) {
  using enum AfterAnswer::Step;
  struct Case {
    int status;
    const char* location;
    int redirects;
    bool isUnconfirmed;
    AfterAnswer::Step expected;
  };
  // clang-format off: a table
  const std::vector<Case> cases{
      {200, "/next",   0,  false, conclude},
      {302, nullptr,   0,  false, conclude},
      {302, "/next",   0,  false, follow},
      {302, "/next",   19, false, follow},
      {302, "/next",   20, false, fail},
      {302, "",        0,  false, fail},
      {304, nullptr,   0,  false, conclude},
      {304, nullptr,   0,  true,  loadAfresh},
  };
  // clang-format on
  const URLRequest request(URL::parse("http://host/first").value());
  for (const Case& row : cases) {
    HTTPHeaders headers;
    if (row.location != nullptr) headers.set("Location", row.location);
    const auto next = afterAnswer(request, HTTPURLResponse(request.url, row.status, headers),
                                  row.redirects, row.isUnconfirmed);
    EXPECT_EQ(next.step, row.expected) << row.status;
    EXPECT_EQ(next.next.has_value(), row.expected == follow);
    EXPECT_EQ(next.error != nullptr, row.expected == fail);
  }
}

// Catches our own want of memory told as the server's fault, where libcurl has one code for both.
TEST(TransferRulesTests, WantOfMemoryIsNoFaultOfTheServers) {
  using enum URLError::Code;
  EXPECT_EQ(urlErrorFor({.code = CURLE_OUT_OF_MEMORY})->code(), unknown);
  EXPECT_EQ(urlErrorFor({.code = CURLE_OUT_OF_MEMORY, .wasSent = true})->code(), badServerResponse);
  EXPECT_EQ(urlErrorFor({.code = CURLE_OUT_OF_MEMORY, .wasSent = true, .hasHeader = true})->code(),
            unknown);
}

// Catches names that pass by the proxy, though a name service elsewhere says what they are.
TEST(TransferRulesTests, ThisMachineIsReachedWithoutAProxy) {
  for (const char* host : {"localhost", "127.0.0.1", "127.255.1.2", "::1"}) {
    EXPECT_TRUE(isLoopback(host)) << host;
  }
  for (const char* host : {"127.evil.invalid", "127.0.0.1.evil.invalid", "127.", "128.0.0.1", ""}) {
    EXPECT_FALSE(isLoopback(host)) << host;
  }
}

sockaddr_storage loopbackAt(int family, int port) {
  sockaddr_storage address{};
  address.ss_family = static_cast<sa_family_t>(family);
  if (family == AF_INET6) {
    auto& end = reinterpret_cast<sockaddr_in6&>(address);
    end.sin6_addr = in6addr_loopback;
    end.sin6_port = htons(static_cast<std::uint16_t>(port));
  } else {
    auto& end = reinterpret_cast<sockaddr_in&>(address);
    end.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    end.sin_port = htons(static_cast<std::uint16_t>(port));
  }
  return address;
}

/// Binds a socket to a port of the loopback, 0 for any free one; 0 where that is taken.
int boundPort(int socket, int family, int port) {
  sockaddr_storage address = loopbackAt(family, port);
  auto* end = reinterpret_cast<sockaddr*>(&address);
  socklen_t size = family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
  if (::bind(socket, end, size) != 0 || ::getsockname(socket, end, &size) != 0) return 0;
  return ntohs(reinterpret_cast<sockaddr_in&>(address).sin_port);  // in one place in both
}

// Catches a connection over IPv4 taken for one over IPv6 between the same ports.
TEST(CurlSocketsTests, EqualPortsAreNoEqualConnections) {
  constexpr int kFamilies[]{AF_INET, AF_INET6};
  for (int attempt = 0; attempt < 50; ++attempt) {  // a port that one has may be taken in the other
    CurlSockets sockets;
    Descriptor listeners[2], clients[2];
    int listening = 0, local = 0, connected = 0;
    for (int i = 0; i < 2; ++i) {
      const int family = kFamilies[i];
      listeners[i].reset(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0));
      curl_sockaddr wanted{};
      wanted.family = family;
      wanted.socktype = SOCK_STREAM;
      clients[i].reset(sockets.open(wanted));
      if (!listeners[i] || !clients[i]) GTEST_SKIP() << "no IPv6 here";
      listening = boundPort(listeners[i].get(), family, listening);
      local = boundPort(clients[i].get(), family, local);
      if (listening == 0 || local == 0) break;
      const auto server = loopbackAt(family, listening);
      ASSERT_EQ(::listen(listeners[i].get(), 1), 0);
      ASSERT_EQ(::connect(clients[i].get(), reinterpret_cast<const sockaddr*>(&server),
                          family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in)),
                0);
      ++connected;
    }
    if (connected < 2) continue;
    EXPECT_EQ(sockets.numberOf({"::1", "::1", listening, local}), 2U);
    EXPECT_EQ(sockets.numberOf({"127.0.0.1", "127.0.0.1", listening, local}), 1U);
    return;
  }
  GTEST_SKIP() << "no IPv6, or no free port, here";
}

// Catches answers delivered before the delegate allows them, questions put twice, and bodies that
// pile up or stand still.
TEST(DelegateConversationTests, NothingGoesOnBeforeItIsAllowed) {
  const Data piece(DelegateConversation::kStreamedBytesKept / 2);
  for (const bool isStreaming : {false, true}) {
    DelegateConversation talk(true, isStreaming);
    talk.headerCame(false);
    EXPECT_FALSE(talk.mustAskEarly()) << "another answer may follow";
    EXPECT_TRUE(talk.takesMore(0));
    talk.headerCame(true);
    EXPECT_TRUE(talk.mustAskEarly());
    EXPECT_FALSE(talk.mustAskEarly());
    EXPECT_TRUE(talk.mustAsk());
    EXPECT_FALSE(talk.mustAsk());
    if (isStreaming) {
      EXPECT_FALSE(talk.keep(piece));
      EXPECT_TRUE(talk.takesMore(0));
      EXPECT_FALSE(talk.keep(piece));
      EXPECT_TRUE(talk.take().empty());
    }
    EXPECT_FALSE(talk.takesMore(DelegateConversation::kBytesBeforePermission));
    EXPECT_FALSE(talk.conclude({}));
    const auto next = talk.permit();
    EXPECT_EQ(next.mustHandOver, isStreaming);
    EXPECT_EQ(next.mustResume, !isStreaming);
    EXPECT_TRUE(next.outcome);
    EXPECT_TRUE(talk.conclude({}));
    EXPECT_EQ(talk.take().size(), isStreaming ? 2 * piece.size() : 0);
    EXPECT_EQ(talk.taken(true), isStreaming);
    EXPECT_TRUE(talk.takesMore(DelegateConversation::kBytesBeforePermission));
    EXPECT_EQ(talk.keep(piece), true) << "a job is due for what comes after";
    EXPECT_FALSE(talk.keep(piece)) << "one for both";
  }
  DelegateConversation alone(false, false);
  EXPECT_FALSE(alone.mustAsk());
  EXPECT_TRUE(alone.conclude({}));
  EXPECT_TRUE(alone.takesMore(std::size_t{1} << 40));
}

}  // namespace
}  // namespace ombrix::platform::detail
