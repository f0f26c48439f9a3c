// Many short sessions, plain and over TLS, with and without delegates and caches, whose tasks,
// gathered and streamed, are resumed and cancelled from four threads and which are dropped or
// invalidated with transfers and questions under way: every task has one outcome, and threads do
// not pile up.

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Faults/FaultRun.hpp"
#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"
#include "OmbrixPlatform/Network/URLCache.hpp"
#include "OmbrixPlatform/Network/URLSessionDelegate.hpp"
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

struct Counts {
  std::atomic<int> outcomes = 0;
  std::atomic<int> wrong = 0;
};
using AllCounts = std::array<Counts, kTasksEach>;

/// Draws for whoever asks, on any thread.
class Moods {
 public:
  explicit Moods(std::uint64_t seed) : random_(seed) {}
  std::uint64_t draw(std::uint64_t below) {
    const std::lock_guard lock(mutex_);
    return random_() % below;
  }

 private:
  std::mutex mutex_;
  std::mt19937_64 random_;
};

/// Answers at once, later, or never; allows most.
class MoodyDelegate final : public platform::URLSessionDelegate {
 public:
  explicit MoodyDelegate(std::shared_ptr<Moods> moods) : moods_(std::move(moods)) {}

  [[nodiscard]] bool judgesServers(const std::string&) const override { return true; }
  void didReceiveChallenge(URLSession&, const platform::URLAuthenticationChallenge& challenge,
                           ChallengeHandler handler) override {
    answer([handler = std::move(handler),
            trust = challenge.protectionSpace.serverTrust.value()]() mutable {
      handler(AuthChallengeDisposition::useCredential, platform::URLCredential{std::move(trust)});
    });
  }
  void willPerformHTTPRedirection(URLSession&, platform::URLSessionTask&,
                                  const std::shared_ptr<const platform::HTTPURLResponse>&,
                                  platform::URLRequest next, RedirectHandler handler) override {
    std::optional<platform::URLRequest> wanted;
    if (moods_->draw(4) > 0) wanted = std::move(next);
    answer([handler = std::move(handler), wanted = std::move(wanted)]() mutable {
      handler(std::move(wanted));
    });
  }
  void didReceiveResponse(URLSession&, platform::URLSessionDataTask&,
                          const std::shared_ptr<const platform::HTTPURLResponse>&,
                          ResponseHandler handler) override {
    using enum ResponseDisposition;
    answer(
        [handler = std::move(handler),
         disposition = moods_->draw(8) > 0 ? allow : cancel]() mutable { handler(disposition); });
  }

 private:
  template <class Call>
  void answer(Call call) {
    const auto mood = moods_->draw(4);
    if (mood == 0) return;
    if (mood > 1) return call();
    platform::ThreadPool::shared().post(std::move(call));
  }

  const std::shared_ptr<Moods> moods_;
};

/// Takes a body as it comes, and holds it back now and then.
class Reader final : public platform::URLSessionTaskDelegate {
 public:
  Reader(std::shared_ptr<Moods> moods, std::shared_ptr<platform::DispatchQueue> queue,
         std::shared_ptr<AllCounts> counts, std::size_t index, std::size_t expected)
      : moods_(std::move(moods)),
        queue_(std::move(queue)),
        counts_(std::move(counts)),
        index_(index),
        expected_(expected) {}

  void isOf(const std::shared_ptr<platform::URLSessionTask>& task) { task_ = task; }

  Flow didReceiveData(platform::URLSessionDataTask&, platform::DataView data) override {
    bytes_ += data.size();
    if (moods_->draw(4) > 0) return Flow::goOn;
    // Behind this call, on its queue: what came before it would change nothing.
    queue_->async([task = task_] {
      if (const auto kept = task.lock()) kept->receiveMore();
    });
    return Flow::hold;
  }
  void didComplete(platform::URLSessionTask&,
                   const std::shared_ptr<const platform::Error>& error) override {
    Counts& counts = (*counts_)[index_];
    if (!error && expected_ != 0 && bytes_ != expected_) ++counts.wrong;
    ++counts.outcomes;
  }

 private:
  const std::shared_ptr<Moods> moods_;
  const std::shared_ptr<platform::DispatchQueue> queue_;
  const std::shared_ptr<AllCounts> counts_;
  const std::size_t index_, expected_;
  std::weak_ptr<platform::URLSessionTask> task_;
  std::size_t bytes_ = 0;
};

struct Servers {
  testing::TestServer plain{testing::TestServer::Wire::plain};
  testing::TestServer secure;
};

/// A task of any kind, which is not resumed yet.
std::shared_ptr<platform::URLSessionTask> makeTask(URLSession& session, const std::string& base,
                                                   const std::shared_ptr<Moods>& moods,
                                                   const std::shared_ptr<AllCounts>& counts,
                                                   std::size_t index) {
  struct Path {
    const char* path;
    std::size_t bytes;  // of a body that is whole; 0: of any length
  };
  constexpr std::array<Path, 6> kPaths{{{"bytes?bytes=10", 10},
                                        {"bytes?bytes=300000", 300'000},
                                        {"slow?ms=1", 0},
                                        {"redirect?to=/bytes", 0},
                                        {"gzip?bytes=50000", 0},
                                        {"fault/reset-in-body", 0}}};
  const Path& path = kPaths[moods->draw(kPaths.size())];
  auto request = testing::requestTo(base + path.path);
  if (moods->draw(3) == 0) {
    const auto reader =
        std::make_shared<Reader>(moods, session.delegateQueue(), counts, index, path.bytes);
    auto task = session.dataTask(std::move(request), nullptr);
    reader->isOf(task);
    task->setDelegate(reader);
    return task;
  }
  return session.dataTask(
      std::move(request),
      [counts, index](const auto& data, const auto& response, const auto& error) {
        if (error ? data || response : !response) ++(*counts)[index].wrong;
        ++(*counts)[index].outcomes;
      });
}

/// One session's life on one thread.
void live(const Servers& servers, std::mt19937_64& random, Outcomes& outcomes) {
  const auto counts = std::make_shared<AllCounts>();
  const auto moods = std::make_shared<Moods>(random());
  const bool isSecure = random() % 4 == 0;
  auto configuration = URLSessionConfiguration::ephemeral();
  configuration.loopbackHosts = {"api.ombrix.test"};
  if (random() % 3 == 0) {
    configuration.urlCache = platform::URLCache::make(1 << 20, 0, std::nullopt);
  }
  std::shared_ptr<MoodyDelegate> delegate;
  if (isSecure || random() % 2 == 0) delegate = std::make_shared<MoodyDelegate>(moods);
  auto session = URLSession::make(configuration, delegate);
  std::vector<std::shared_ptr<platform::URLSessionTask>> tasks;
  for (std::size_t i = 0; i < kTasksEach; ++i) {
    const auto& server = isSecure ? servers.secure : servers.plain;
    tasks.push_back(makeTask(*session, server.baseURL(), moods, counts, i));
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
  const Servers servers;
  std::atomic<std::size_t> left = plan.rounds(60, 4'000);
  std::atomic<std::size_t> most = 0;
  std::vector<std::jthread> threads;
  for (std::size_t t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      std::mt19937_64 random(plan.seed * kThreads + t);
      while (left.fetch_sub(1) - 1 < (std::size_t{1} << 60)) {
        live(servers, random, outcomes);
        most = std::max(most.load(), testing::networkThreads());
      }
    });
  }
  threads.clear();
  outcomes.expect(most <= kMostThreads, "network threads stayed few", std::to_string(most));
  const bool areGone =
      servers.plain.waitUntilDisconnected() && servers.secure.waitUntilDisconnected();
  outcomes.expect(areGone, "no connection was left behind");
}

}  // namespace ombrix::faults
