// Many short sessions whose tasks are resumed and cancelled from four threads and which are dropped
// or invalidated with transfers in flight: every task has one outcome, and threads do not pile up.

#include <algorithm>
#include <array>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "Faults/FaultRun.hpp"
#include "OmbrixTesting/Eventually.hpp"
#include "OmbrixTesting/TestServer.hpp"
#include "Tests/OmbrixPlatform/Network/SessionSupport.hpp"

namespace ombrix::faults {
namespace {

using platform::URLSession;
using platform::URLSessionConfiguration;

constexpr std::size_t kThreads = 4;
constexpr std::size_t kTasksEach = 15;
constexpr std::size_t kMostThreads = 24;  // those that end, and those that run

/// One session's life on one thread.
void live(const testing::TestServer& server, std::mt19937_64& random, Outcomes& outcomes) {
  constexpr std::array<const char*, 6> kPaths{"/bytes?bytes=10",   "/bytes?bytes=300000",
                                              "/slow?ms=1",        "/redirect?to=/bytes",
                                              "/gzip?bytes=50000", "/fault/reset-in-body"};
  struct Counts {
    std::atomic<int> outcomes = 0;
    std::atomic<int> wrong = 0;
  };
  const auto counts = std::make_shared<std::array<Counts, kTasksEach>>();
  auto session = URLSession::make(URLSessionConfiguration::ephemeral());
  std::vector<std::shared_ptr<platform::URLSessionTask>> tasks;
  for (std::size_t i = 0; i < kTasksEach; ++i) {
    auto request = testing::requestTo(server.url(kPaths[random() % kPaths.size()]));
    tasks.push_back(session->dataTask(
        std::move(request), [counts, i](const auto& data, const auto& response, const auto& error) {
          if (error ? data || response : !response) ++(*counts)[i].wrong;
          ++(*counts)[i].outcomes;
        }));
  }
  for (std::size_t step = 0; step < 3 * kTasksEach; ++step) {
    auto& task = tasks[random() % kTasksEach];
    if (random() % 4 == 0) {
      task->cancel();
    } else {
      task->resume();
    }
  }
  for (const auto& task : tasks) task->resume();
  bool isOver = false;
  switch (random() % 4) {
    case 0:
      session->invalidateAndCancel();
      break;
    case 1:
      session->finishTasksAndInvalidate();
      break;
    case 2:
      session->close();
      isOver = std::ranges::all_of(*counts, [](const Counts& each) { return each.outcomes == 1; });
      outcomes.expect(isOver, "every task of a closed session had ended");
      break;
    default:
      break;
  }
  session = nullptr;
  const auto areOver = [&] {
    return std::ranges::all_of(*counts, [](const Counts& each) { return each.outcomes >= 1; });
  };
  outcomes.expect(testing::eventually(areOver), "every task of a dropped session ended");
  for (const Counts& each : *counts) {
    outcomes.expect(each.outcomes == 1 && each.wrong == 0, "a task had one outcome");
  }
}

}  // namespace

void run(const Plan& plan, Outcomes& outcomes) {
  const testing::TestServer server(testing::TestServer::Wire::plain);
  std::atomic<std::size_t> left = plan.rounds(60, 4'000);
  std::atomic<std::size_t> most = 0;
  std::vector<std::jthread> threads;
  for (std::size_t t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      std::mt19937_64 random(plan.seed * kThreads + t);
      while (left.fetch_sub(1) - 1 < (std::size_t{1} << 60)) {
        live(server, random, outcomes);
        most = std::max(most.load(), testing::networkThreads());
      }
    });
  }
  threads.clear();
  outcomes.expect(most <= kMostThreads, "network threads stayed few", std::to_string(most));
  outcomes.expect(server.waitUntilDisconnected(), "no connection was left behind");
}

}  // namespace ombrix::faults
