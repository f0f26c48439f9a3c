#include "OmbrixPlatform/Network/Curl/Detail/TransferRules.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

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

// Catches names that pass by the proxy, though a name service elsewhere says what they are.
TEST(TransferRulesTests, ThisMachineIsReachedWithoutAProxy) {
  for (const char* host : {"localhost", "127.0.0.1", "127.255.1.2", "::1"}) {
    EXPECT_TRUE(isLoopback(host)) << host;
  }
  for (const char* host : {"127.evil.invalid", "127.0.0.1.evil.invalid", "127.", "128.0.0.1", ""}) {
    EXPECT_FALSE(isLoopback(host)) << host;
  }
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
