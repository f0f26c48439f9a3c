#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Network/URLSession.hpp"
#include "OmbrixPlatform/Network/URLSessionDelegate.hpp"
#include "OmbrixTesting/Eventually.hpp"
#include "OmbrixTesting/HTTP2Attacks.hpp"
#include "OmbrixTesting/Processes/ChildProcess.hpp"
#include "OmbrixTesting/Processes/UnusedPort.hpp"
#include "OmbrixTesting/ScopedDir.hpp"
#include "OmbrixTesting/TestServer.hpp"
#include "SessionSupport.hpp"
#include "Tests/Tools/DevServer/RawClient.hpp"

namespace ombrix::platform {
namespace {

using testing::RunningTask;
using testing::TestServer;

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

std::shared_ptr<URLSession> trustingSession() {
  auto configuration = URLSessionConfiguration::ephemeral();
  configuration.loopbackHosts = {"api.ombrix.test"};
  return URLSession::make(configuration, std::make_shared<TrustingDelegate>());
}

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

// Catches answers that are taken for whole though they are cut or break the rules, tasks that hang
// on a flood, and connections that pass their damage on to the next request; on a new connection
// and on one that other streams use too.
TEST(URLSessionHTTP2AttackTests, EveryAnswerIsWholeOrAnError) {
  const auto& attacks = testing::http2Attacks();
  std::atomic<std::size_t> current = 0;
  std::atomic<int> left = 0;  // streams that are attacked
  testing::RawHTTP2Server server([&](std::uint32_t stream) {
    return attacks[left.fetch_sub(1) > 0 ? current.load() : 0].reply(stream);
  });
  const auto session = trustingSession();
  const auto request = testing::requestTo(server.url());
  for (const auto& attack : attacks) {
    SCOPED_TRACE(attack.name);
    current = static_cast<std::size_t>(&attack - attacks.data());
    left = 100;
    auto running = testing::start(*session, request);
    const auto outcome = running.outcome();
    EXPECT_EQ(outcome.summary() == "200 abc", attack.isWhole) << outcome.summary();
    EXPECT_TRUE(attack.isWhole || outcome.code()) << outcome.summary();
    EXPECT_EQ(outcome.code() == URLError::Code::timedOut, false);
    EXPECT_LE(running.task->metrics().resendCount, 1);
    left = 0;
    EXPECT_EQ(testing::fetch(*session, request).summary(), "200 abc") << "the next one";
    EXPECT_LE(left, 0);

    std::vector<RunningTask> neighbours;
    left = 2;
    for (int i = 0; i < 8; ++i) neighbours.push_back(testing::start(*session, request));
    for (auto& task : neighbours) {
      const auto each = task.outcome();
      EXPECT_TRUE(each.code() || each.summary() == "200 abc") << each.summary();
    }
  }
}

// Catches safe requests given up, and others sent again, when a connection that is used again ends
// before an answer.
TEST(URLSessionHTTP2AttackTests, SafeRequestsGoOnceMoreWhenTheirConnectionEnds) {
  std::atomic<int> arrivals = 0;
  std::atomic<int> deaths = 0;
  testing::RawHTTP2Server server([&](std::uint32_t stream) {
    ++arrivals;
    if (deaths.fetch_sub(1) > 0) return testing::RawHTTP2Server::Reply{.bytes = "", .closes = true};
    return testing::http2Attacks().front().reply(stream);
  });
  const auto session = trustingSession();
  const auto first = testing::requestTo(server.url());
  for (const auto* const method : {"GET", "PUT", "POST"}) {
    for (const int dying : {1, 2}) {
      deaths = 0;
      ASSERT_EQ(testing::fetch(*session, first).summary(), "200 abc");
      arrivals = 0;
      deaths = dying;
      auto request = first;
      request.httpMethod = method;
      if (request.httpMethod != "GET") request.httpBody = dataFrom("body");
      auto running = testing::start(*session, request);
      const auto outcome = running.outcome();
      const bool isSafe = request.httpMethod != "POST";
      EXPECT_EQ(outcome.summary(), isSafe && dying == 1 ? "200 abc" : "error -1005") << method;
      EXPECT_EQ(arrivals, isSafe ? 2 : 1) << method;
      EXPECT_EQ(running.task->metrics().resendCount, isSafe ? 1 : 0) << method;
    }
  }
}

// Catches requests given up, or sent to nowhere again, where the server wants them over HTTP/1.1.
TEST(URLSessionHTTP2AttackTests, WhatIsWantedOverHTTP1GoesThere) {
  std::atomic<int> arrivals = 0;
  testing::RawHTTP2Server server([&](std::uint32_t stream) {
    ++arrivals;
    return testing::RawHTTP2Server::Reply{testing::RawHTTP2Server::reset(stream, 13)};
  });
  const auto session = trustingSession();
  auto request = testing::requestTo(server.url());
  request.httpMethod = "POST";
  request.httpBody = dataFrom("body");
  auto running = testing::start(*session, request);
  const auto outcome = running.outcome();
  EXPECT_EQ(outcome.summary(), "200 abc") << (outcome.error ? outcome.error->what() : "");
  EXPECT_EQ(running.task->metrics().networkProtocol, "http/1.1");
  EXPECT_EQ(running.task->metrics().resendCount, 1);
  EXPECT_EQ(arrivals, 1);
}

// Catches a request that is refused beside others of its connection and sent again, as if the
// server had wanted it over HTTP/1.1.
TEST(URLSessionHTTP2AttackTests, WhatIsRefusedBesideOthersIsNotSentAgain) {
  std::atomic<int> arrivals = 0;
  testing::RawHTTP2Server server([&](std::uint32_t stream) {
    ++arrivals;
    return testing::RawHTTP2Server::Reply{
        stream == 1 ? "" : testing::RawHTTP2Server::reset(1, 7 /* REFUSED_STREAM */)};
  });
  const auto session = trustingSession();
  auto request = testing::requestTo(server.url());
  request.httpMethod = "POST";
  request.httpBody = dataFrom("body");
  auto refused = testing::start(*session, request);
  ASSERT_TRUE(testing::eventually([&] { return arrivals == 1; }));
  auto other = testing::start(*session, request);
  EXPECT_EQ(refused.outcome().summary(), "error -1005");
  EXPECT_EQ(refused.task->metrics().resendCount, 0);
  EXPECT_EQ(arrivals, 2);
  session->invalidateAndCancel();
  EXPECT_EQ(other.outcome().summary(), "error -999");
}

// Catches a network thread that looks again and again while an answer over TLS is awaited.
TEST(URLSessionHTTP2AttackTests, TheNetworkThreadSleepsWhileItWaits) {
  TestServer http1;
  http1.route("GET", "/held",
              [](const auto&) { return testing::held("gate", devserver::Response::text("abc")); });
  std::promise<void> arrived, gate;
  testing::RawHTTP2Server http2([&, isOpen = gate.get_future().share()](std::uint32_t stream) {
    arrived.set_value();
    isOpen.wait();
    return testing::http2Attacks().front().reply(stream);
  });
  TestServer slow(TestServer::Wire::plain);
  const auto wakeUps = [](const std::filesystem::path& thread) {
    std::ifstream status(thread / "status");
    for (std::string word; status >> word;) {
      long count = 0;
      if (word == "voluntary_ctxt_switches:" && status >> count) return count;
    }
    return -1L;
  };
  const auto before = testing::threadsOfSessions();
  const auto one = trustingSession();
  auto overHTTP1 = testing::start(*one, testing::requestTo(http1.url("/held")));
  ASSERT_TRUE(http1.waitUntilHeld(1));
  const auto other = trustingSession();
  auto overHTTP2 = testing::start(*other, testing::requestTo(http2.url()));
  ASSERT_EQ(arrived.get_future().wait_for(std::chrono::minutes(1)), std::future_status::ready);
  std::map<std::filesystem::path, long> threads;
  for (const auto& thread : testing::threadsOfSessions()) {
    if (!before.contains(thread)) threads[thread] = wakeUps(thread);
  }
  EXPECT_GE(threads.size(), 2U);  // those that they have started for others have their name
  // The longer this takes the more often one that does not sleep wakes up: some twelve times by
  // then.
  const auto third = URLSession::make(URLSessionConfiguration::ephemeral());
  EXPECT_EQ(testing::fetch(*third, testing::requestTo(slow.url("/slow?ms=3000"))).status(), 200);
  // What comes behind the handshake may still have been on its way.
  for (const auto& [thread, count] : threads) EXPECT_LE(wakeUps(thread) - count, 6);
  gate.set_value();
  http1.openGate("gate");
  EXPECT_EQ(overHTTP1.outcome().summary(), "200 abc");
  EXPECT_EQ(overHTTP2.outcome().summary(), "200 abc");
}

/// What a server answers, in a process whose system would have any version of TLS. OpenSSL must not
/// have been used yet.
std::string answerWhereAnyTLSWillDo(int newestTLS) {
  const testing::ScopedDir dir;
  const auto configuration = dir.write("openssl.cnf",
                                       "openssl_conf = all\n[all]\nssl_conf = tls\n"
                                       "[tls]\nsystem_default = any\n"
                                       "[any]\nMinProtocol = TLSv1\n"
                                       "CipherString = DEFAULT:@SECLEVEL=0\n");
  ::setenv("OPENSSL_CONF", configuration.c_str(), 1);
  const auto session = trustingSession();
  testing::RawHTTP2Server server(
      [](std::uint32_t stream) { return testing::http2Attacks().front().reply(stream); },
      {.newestTLS = newestTLS});
  return testing::fetch(*session, testing::requestTo(server.url())).summary();
}

// Catches a version of TLS that nobody should trust any more, taken where the system would.
TEST(URLSessionDeathTests, TLSBefore12IsRefused) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (const auto& [version, expected] :
       {std::pair(TLS1_2_VERSION, "200 abc"), std::pair(TLS1_1_VERSION, "error -1200")}) {
    EXPECT_EXIT(
        {
          const auto answer = answerWhereAnyTLSWillDo(version);
          std::fputs(answer.c_str(), stderr);
          std::_Exit(3);
        },
        ::testing::ExitedWithCode(3), expected);
  }
}

// Catches a server's wish for a certificate told as some failure of TLS or of the connection, and a
// lost connection told as that of a server that would only have liked one; and handshakes without
// end with one that shows a new certificate each time.
TEST(URLSessionHTTP2AttackTests, FailuresOfCertificatesAreToldAsSuch) {
  using Options = testing::RawHTTP2Server::Options;
  constexpr int kRequired = SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT;
  const std::pair<Options, URLError::Code> rows[]{
      {{.verifyMode = kRequired, .newestTLS = TLS1_2_VERSION},
       URLError::Code::clientCertificateRequired},
      {{.verifyMode = kRequired}, URLError::Code::clientCertificateRequired},
      {{.verifyMode = SSL_VERIFY_PEER}, URLError::Code::networkConnectionLost},
      {{.verifyMode = SSL_VERIFY_PEER | SSL_VERIFY_POST_HANDSHAKE},
       URLError::Code::networkConnectionLost},
      {{.changesCertificate = true}, URLError::Code::serverCertificateUntrusted},
  };
  for (const auto& [options, code] : rows) {
    testing::RawHTTP2Server server(
        [](auto) { return testing::RawHTTP2Server::Reply{.bytes = "", .closes = true}; }, options);
    const auto outcome = testing::fetch(*trustingSession(), testing::requestTo(server.url()));
    EXPECT_EQ(outcome.code(), code) << (outcome.error ? outcome.error->what() : "");
    EXPECT_FALSE(server.mayAskLater()) << "when nobody listens who could be told";
  }
}

}  // namespace
}  // namespace ombrix::platform
