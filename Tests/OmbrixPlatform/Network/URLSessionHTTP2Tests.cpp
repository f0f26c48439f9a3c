#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Network/URLSession.hpp"
#include "OmbrixPlatform/Network/URLSessionDelegate.hpp"
#include "OmbrixTesting/ChildProcess.hpp"
#include "OmbrixTesting/Eventually.hpp"
#include "OmbrixTesting/ScopedDir.hpp"
#include "OmbrixTesting/UnusedPort.hpp"
#include "SessionSupport.hpp"
#include "Tests/Tools/DevServer/RawClient.hpp"

namespace ombrix::platform {
namespace {

using testing::RunningTask;

constexpr std::size_t kFileBytes = 200'000;  // more than a stream's first window

class TrustingDelegate final : public URLSessionDelegate {
 public:
  [[nodiscard]] bool judgesServers(const std::string&) const override { return true; }
  void didReceiveChallenge(URLSession&, const URLAuthenticationChallenge& challenge,
                           ChallengeHandler handler) override {
    handler(AuthChallengeDisposition::useCredential,
            URLCredential{challenge.protectionSpace.serverTrust.value()});
  }
};

// A server of HTTP/2 only, which serves "file" and gives back what is posted.
class URLSessionHTTP2Tests : public ::testing::Test {
 protected:
  void SetUp() override {
    if (std::system("command -v nghttpd openssl >/dev/null 2>&1") != 0) {
      GTEST_SKIP() << "nghttpd is not installed (scripts/setup --with-servers)";
    }
    std::ofstream(dir.path() / "file") << std::string(kFileBytes, 'f');
    server.emplace(std::vector<std::string>{
        "/bin/sh", "-c",
        "cd \"$0\" && openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes "
        "-keyout key.pem -out certificate.pem -days 2 -subj /CN=localhost 2>/dev/null && "
        "exec nghttpd -a 127.0.0.1 --echo-upload \"$1\" key.pem certificate.pem",
        dir.path().string(), std::to_string(port)});
    const auto isUp = [&] {
      return devserver::RawClient(static_cast<std::uint16_t>(port)).isConnected();
    };
    ASSERT_TRUE(testing::eventually(isUp)) << "nghttpd did not start";
  }

  [[nodiscard]] std::string url(const std::string& path) const {
    return "https://127.0.0.1:" + std::to_string(port) + "/" + path;
  }

  const testing::ScopedDir dir;
  const int port = testing::unusedPort();
  std::optional<testing::ChildProcess> server;
  const std::shared_ptr<URLSession> session =
      URLSession::make(URLSessionConfiguration::ephemeral(), std::make_shared<TrustingDelegate>());
};

// Catches streams of one connection that get each other's bytes, stand still, or do not go out
// as HTTP/2 at all; and cancelled ones that take the others with them.
TEST_F(URLSessionHTTP2Tests, ManyStreamsShareAConnection) {
  std::vector<std::pair<RunningTask, std::string>> tasks;
  for (int i = 0; i < 60; ++i) {
    if (i % 3 == 0) {
      tasks.emplace_back(testing::start(*session, testing::requestTo(url("file"))),
                         std::string(kFileBytes, 'f'));
      continue;
    }
    auto request = testing::requestTo(url("echo"));
    request.httpMethod = "POST";
    const std::string body(static_cast<std::size_t>(i) * 1'500, static_cast<char>('a' + i % 26));
    request.httpBody = dataFrom(body);
    tasks.emplace_back(testing::start(*session, std::move(request)), body);
  }
  for (std::size_t i = 0; i < tasks.size(); i += 7) tasks[i].first.task->cancel();
  for (std::size_t i = 0; i < tasks.size(); ++i) {
    auto& [running, expected] = tasks[i];
    const auto outcome = running.outcome();
    if (i % 7 == 0 && outcome.code() == URLError::Code::cancelled) continue;
    EXPECT_EQ(outcome.status(), 200) << i << outcome.summary().substr(0, 80);
    EXPECT_TRUE(outcome.text() == expected) << i << ": " << outcome.text().size() << " bytes";
    EXPECT_EQ(running.task->metrics().networkProtocol, "h2") << i;
  }
}

// Catches tasks that hang when the server dies in the middle of their streams.
TEST_F(URLSessionHTTP2Tests, StreamsFailWithTheirServer) {
  ASSERT_EQ(testing::fetch(*session, testing::requestTo(url("file"))).status(), 200);
  std::vector<RunningTask> tasks;
  for (int i = 0; i < 12; ++i) {
    tasks.push_back(testing::start(*session, testing::requestTo(url("file"))));
  }
  server->kill();
  for (RunningTask& running : tasks) {
    const auto outcome = running.outcome();
    if (!outcome.error) {
      EXPECT_EQ(outcome.text().size(), kFileBytes);
      continue;
    }
    ASSERT_TRUE(outcome.code()) << outcome.error->what();
    EXPECT_FALSE(outcome.response);
  }
}

}  // namespace
}  // namespace ombrix::platform
