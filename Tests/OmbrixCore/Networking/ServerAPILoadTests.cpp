#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <numeric>
#include <random>
#include <thread>
#include <vector>

#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixTesting/Eventually.hpp"
#include "OmbrixTesting/HTTP2Attacks.hpp"
#include "OmbrixTesting/Sanitizers.hpp"
#include "OmbrixTesting/TestServer.hpp"
#include "Tests/OmbrixCore/Networking/ServerAPIFixture.hpp"

namespace ombrix {
namespace {

using testing::TestServer;

constexpr std::size_t kRequests = testing::kUnderSanitizer ? 3'000 : 50'000;
constexpr std::size_t kCancelledTogether = 50;

// Catches an answer that comes twice, not at all or after cancelling, more requests in flight than
// the queue is wide, work that grows with the length of the queue, and operations that stay.
TEST(ServerAPILoadTests, ManyRequestsAtOnceHalfOfThemCancelled) {
  const testing::RecordingLog log;
  const testing::ScopedDirectories directories;
  auto options = TestServer::optionsFor(TestServer::Wire::plain);
  options.mostRecordedRequests = 0;
  TestServer server(options);
  auto configuration = ServerConfiguration::defaults();
  configuration.production = *platform::URL::parse(server.baseURL());
  const testing::ScopedServerAPI api(configuration);
  auto& client = api.client();
  const auto session = client.session();
  const auto target = *platform::URL::parse("status/200", client.endpoint());

  std::vector<std::atomic<int>> answers(kRequests);
  std::vector<platform::UUID> ids;
  ids.reserve(kRequests);
  for (std::size_t i = 0; i < kRequests; ++i) {
    const auto operation = std::make_shared<OmbrixAPIHttpRequestOperation>(
        target, HttpRequestOperation::HTTPMethod::GET, platform::HTTPHeaders(),
        [&answers, i](bool success, int code, auto, auto) {
          answers[i] += success && code == 200 ? 1 : 1'000;
        },
        session);
    ids.push_back(operation->taskID());
    client.addOperation(operation);
  }
  EXPECT_TRUE(client.hasOperations());

  // On the queue that answers come on, so that each request is either answered or cancelled.
  std::vector<std::size_t> order(kRequests);
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::ranges::shuffle(order, std::mt19937(7));
  order.resize(kRequests / 2);
  std::vector<bool> isCancelled(kRequests);
  for (std::size_t begin = 0; begin < order.size(); begin += kCancelledTogether) {
    session->delegateQueue()->async([&, begin] {
      const auto end = std::min(order.size(), begin + kCancelledTogether);
      for (std::size_t at = begin; at < end; ++at) {
        const auto i = order[at];
        if (answers[i] == 0) isCancelled[i] = true;
        client.cancelRequestWithID(ids[i]);
      }
    });
  }
  client.waitUntilAllOperationsAreFinished();
  session->delegateQueue()->sync([] {});

  std::size_t wrong = 0, cancelled = 0;
  for (std::size_t i = 0; i < kRequests; ++i) {
    cancelled += isCancelled[i] ? 1u : 0u;
    wrong += answers[i] == (isCancelled[i] ? 0 : 1) ? 0u : 1u;
  }
  EXPECT_EQ(wrong, 0u);
  EXPECT_GT(cancelled, kRequests / 4);
  EXPECT_LE(server.counters().mostInFlight, 6u);
  EXPECT_LE(server.counters().connections, 6u + cancelled);
  EXPECT_TRUE(testing::eventually([&] { return !client.hasOperations(); }));
  EXPECT_TRUE(testing::eventually([&] {
    return std::ranges::none_of(
        ids, [](const auto& id) { return HttpRequestOperation::withTaskID(id) != nullptr; });
  }));
}

// Catches a publisher that answers twice or never, takes what is broken for an answer, or leaves an
// operation or a connection behind, when four threads ask a server that breaks most answers, give
// up at random and change the environment meanwhile.
TEST(ServerAPILoadTests, BrokenAnswersThroughPublishersFromFourThreads) {
  constexpr std::size_t kThreads = 4;
  constexpr std::size_t kEach = testing::kUnderSanitizer ? 60 : 200;
  constexpr std::size_t kWholeKinds = 4;  // the first ones
  static constexpr std::array kPaths{"status/200",
                                     "bytes?bytes=200000",
                                     "gzip?bytes=50000",
                                     "redirect?to=/status/200",
                                     "fault/close-before-answer",
                                     "fault/reset-before-answer",
                                     "fault/close-in-head",
                                     "fault/reset-after-head",
                                     "fault/close-in-body",
                                     "fault/reset-in-body",
                                     "fault/truncated-chunked",
                                     "fault/truncated-chunk",
                                     "fault/truncated-gzip",
                                     "fault/damaged-gzip",
                                     "fault/conflicting-lengths",
                                     "fault/negative-length",
                                     "fault/no-chunk-size",
                                     "fault/garbage",
                                     "redirect-loop",
                                     "status/500"};
  const testing::RecordingLog log;
  const testing::ScopedDirectories directories;
  TestServer server(TestServer::Wire::plain);
  auto configuration = ServerConfiguration::defaults();
  configuration.production = configuration.staging = *platform::URL::parse(server.baseURL());
  struct Request {
    std::atomic<int> answers = 0;
    std::atomic<bool> isWhole = false;
    std::size_t kind = 0;
    bool isCancelled = false;
  };
  const auto requests = std::make_shared<std::array<Request, kThreads * kEach>>();
  {
    const testing::ScopedServerAPI api(configuration);
    std::vector<std::jthread> threads;
    for (std::size_t t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        std::mt19937_64 random(t + 1);
        for (std::size_t i = 0; i < kEach; ++i) {
          const std::size_t index = t * kEach + i;
          Request& request = (*requests)[index];
          request.kind = random() % kPaths.size();
          auto& client = api.client();
          const auto id = client.completionWrapper<HTTPAnswer>(
              client.publisher(kPaths[request.kind]), [requests, index](const auto& result) {
                (*requests)[index].isWhole = result.has_value();
                ++(*requests)[index].answers;
              });
          request.isCancelled = random() % 4 == 0;
          if (request.isCancelled) client.cancelRequestWithID(id);
          if (random() % 32 == 0) {
            OmbrixServerAPI::change(random() % 2 == 0 ? APIEndpoint::staging
                                                      : APIEndpoint::production);
          }
        }
      });
    }
    threads.clear();
    for (const Request& request : *requests) {
      ASSERT_TRUE(testing::eventually([&] { return request.isCancelled || request.answers > 0; }))
          << kPaths[request.kind];
    }
    EXPECT_TRUE(testing::eventually([&] { return !api.client().hasOperations(); }));
  }
  for (const Request& request : *requests) {
    EXPECT_LE(request.answers, 1);
    if (request.answers == 0) continue;
    EXPECT_EQ(request.isWhole, request.kind < kWholeKinds) << kPaths[request.kind];
  }
  EXPECT_TRUE(server.waitUntilDisconnected());
}

// Catches resets, floods and broken rules of HTTP/2 that reach a publisher as an answer or never.
TEST(ServerAPILoadTests, AttacksOverHTTP2ThroughPublishers) {
  const auto& attacks = testing::http2Attacks();
  std::atomic<std::size_t> current = 0;
  testing::RawHTTP2Server server(
      [&](std::uint32_t stream) { return attacks[current].reply(stream); });
  const testing::RecordingLog log;
  const testing::ScopedDirectories directories;
  auto configuration = ServerConfiguration::defaults();
  configuration.development = *platform::URL::parse(server.url());
  const testing::ScopedServerAPI api(configuration);
  OmbrixServerAPI::change(APIEndpoint::development);
  for (const auto& attack : attacks) {
    current = static_cast<std::size_t>(&attack - attacks.data());
    const auto result = resultOf(api.client().publisher("resorts"));
    EXPECT_EQ(result.has_value(), attack.isWhole) << attack.name;
    EXPECT_EQ(result ? platform::textOf(result->data) : "abc", "abc") << attack.name;
  }
}

}  // namespace
}  // namespace ombrix
