#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <numeric>
#include <random>
#include <vector>

#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixTesting/Eventually.hpp"
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

}  // namespace
}  // namespace ombrix
