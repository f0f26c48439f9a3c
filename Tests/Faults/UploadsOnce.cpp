// Uploads to a server that ends connections before, instead of and in the middle of its answers:
// none may arrive more often than its method allows.

#include <algorithm>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "Faults/FaultRun.hpp"
#include "OmbrixTesting/TestServer.hpp"
#include "Tests/OmbrixPlatform/Network/SessionSupport.hpp"

namespace ombrix::faults {
namespace {

constexpr std::size_t kTogether = 100;

/// Answers some uploads, breaks others, and counts how often each arrives whole.
class FlakyServer {
 public:
  explicit FlakyServer(std::uint64_t seed) : random_(seed) {
    server_.route("*", "/upload/*", [this](const auto& request) { return answer(request); });
  }

  [[nodiscard]] std::string url(std::size_t upload) const {
    return server_.url("/upload/" + std::to_string(upload));
  }
  [[nodiscard]] int arrivals(std::size_t upload) {
    const std::lock_guard lock(mutex_);
    return arrivals_["/upload/" + std::to_string(upload)];
  }

 private:
  devserver::Response answer(const devserver::Request& request) {
    const std::lock_guard lock(mutex_);
    ++arrivals_[request.path];
    switch (random_() % 6) {
      case 0:
        return devserver::Response::following({devserver::End::reset});
      case 1:
        return devserver::Response::following({devserver::End::close});
      case 2:
        // A reset throws away what the client has not read: to it such an answer may never have
        // begun, so that a PUT may go once more.
        return devserver::Response::following(
            {devserver::Send{"HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\ndo"},
             devserver::End::reset});
      default:
        return devserver::Response::text("done");
    }
  }

  std::mutex mutex_;  // guards what follows
  std::mt19937_64 random_;
  std::map<std::string, int> arrivals_;
  testing::TestServer server_{testing::TestServer::Wire::plain};
};

}  // namespace

void run(const Plan& plan, Outcomes& outcomes) {
  FlakyServer server(plan.seed);
  const auto session = platform::URLSession::make(platform::URLSessionConfiguration::ephemeral());
  const std::size_t count = plan.rounds(400, 20'000);
  for (std::size_t first = 0; first < count; first += kTogether) {
    std::vector<testing::RunningTask> tasks;
    for (std::size_t i = first; i < first + kTogether; ++i) {
      auto request = testing::requestTo(server.url(i));
      request.httpMethod = i % 2 == 0 ? "POST" : "PUT";
      request.httpBody = platform::Data(1 + i % 5'000);
      tasks.push_back(testing::start(*session, std::move(request)));
    }
    for (std::size_t i = 0; i < tasks.size(); ++i) {
      const auto outcome = tasks[i].outcome();
      const int arrivals = server.arrivals(first + i);
      const bool isPost = i % 2 == 0;
      const std::string seen = outcome.summary() + ", " + std::to_string(arrivals) + " arrivals";
      outcomes.expect(arrivals <= (isPost ? 1 : 2),
                      isPost ? "a POST arrived once at most" : "a PUT arrived twice at most", seen);
      outcomes.expect(
          outcome.code() ? *outcome.code() == platform::URLError::Code::networkConnectionLost
                         : outcome.summary() == "200 done" && arrivals >= 1,
          outcome.code() ? "the connection was lost, and told so" : "it was answered", seen);
      const int resends = tasks[i].task->metrics().resendCount;
      outcomes.expect(resends <= (isPost ? 0 : 1) && arrivals <= resends + 1,
                      "the metrics count what was sent again", seen);
    }
  }
}

}  // namespace ombrix::faults
