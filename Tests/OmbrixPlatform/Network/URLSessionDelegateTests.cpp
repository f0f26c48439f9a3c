#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <map>
#include <thread>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/CurlTrust.hpp"
#include "OmbrixPlatform/Network/URLSession.hpp"
#include "OmbrixTesting/EventLog.hpp"
#include "OmbrixTesting/TestServer.hpp"
#include "SessionSupport.hpp"
#include "Tools/DevServer/HTTP/Compression.hpp"

namespace ombrix::platform {
namespace {

using devserver::Certificate;
using ::testing::ElementsAre;
using testing::fetch;
using ::testing::IsEmpty;
using testing::requestTo;
using ::testing::StartsWith;
using testing::TestServer;
using Code = URLError::Code;
using Trust = URLSessionDelegate::AuthChallengeDisposition;

std::string summaryOf(Code code) { return "error " + std::to_string(static_cast<int>(code)); }

TestServer::Options tlsOptions(Certificate certificate) {
  TestServer::Options options;
  options.certificate = certificate;
  return options;
}

/// Writes down what it is asked and told, on which queue, and answers as it is set up.
class RecordingDelegate : public URLSessionDelegate {
 public:
  enum class Manner { now, later, dropped, held };

  testing::EventLog log;
  Manner manner = Manner::now;
  Trust trust = Trust::performDefaultHandling;
  bool judges = true;
  bool givesCredential = true;
  int follows = 100;  // redirects
  ResponseDisposition response = ResponseDisposition::allow;
  std::atomic<int> challenges = 0;
  std::atomic<bool> wasElsewhere = false;  // a call off the delegate queue

  /// Gives the answers that were held.
  void release() {
    for (auto& call : std::exchange(held_, {})) call();
  }

  [[nodiscard]] bool judgesServers(const std::string&) const override { return judges; }
  void didReceiveChallenge(URLSession& session, const URLAuthenticationChallenge& challenge,
                           ChallengeHandler handler) override {
    note(session, "challenge " + challenge.protectionSpace.host);
    ++challenges;
    std::optional<URLCredential> credential;
    if (givesCredential) credential = URLCredential{*challenge.protectionSpace.serverTrust};
    answer([this, handler = std::move(handler), credential]() mutable {
      handler(trust, std::move(credential));
    });
  }
  void willPerformHTTPRedirection(URLSession& session, URLSessionTask&,
                                  const std::shared_ptr<const HTTPURLResponse>& answered,
                                  URLRequest next, RedirectHandler handler) override {
    const auto token = answered->valueForHTTPHeaderField("Authorization");
    note(session, "redirect " + std::to_string(answered->statusCode()) + (token ? " token" : ""));
    answer([this, handler = std::move(handler), next]() mutable {
      handler(follows-- > 0 ? std::optional(std::move(next)) : std::nullopt);
    });
  }
  void didReceiveResponse(URLSession& session, URLSessionDataTask&,
                          const std::shared_ptr<const HTTPURLResponse>& answered,
                          ResponseHandler handler) override {
    note(session, "response " + std::to_string(answered->statusCode()));
    answer([this, handler = std::move(handler)]() mutable { handler(response); });
  }
  void didReceiveData(URLSession&, URLSessionDataTask&, DataView data) override {
    received_ += textOf(data);
  }
  void didComplete(URLSession& session, URLSessionTask&,
                   const std::shared_ptr<const Error>& error) override {
    note(session, "complete " + std::to_string(received_.size()) + (error ? " failed" : ""));
  }
  void didSendBodyData(URLSession& session, URLSessionTask&, std::int64_t, std::int64_t total,
                       std::int64_t expected) override {
    if (total == expected) note(session, "sent " + std::to_string(total));
  }
  void didFinishCollectingMetrics(URLSession& session, URLSessionTask&,
                                  const URLSessionTaskMetrics& metrics) override {
    note(session, "metrics " + std::to_string(metrics.redirectCount));
  }
  void didBecomeInvalid(URLSession& session) override { note(session, "invalid"); }

 private:
  template <class Call>
  void answer(Call call) {
    switch (manner) {
      case Manner::now:
        return call();
      case Manner::later:
        return ThreadPool::shared().post(std::move(call));
      case Manner::dropped:
        return;
      case Manner::held:
        held_.emplace_back(std::move(call));
        return;
    }
  }

  void note(URLSession& session, std::string line) {
    if (!session.delegateQueue()->isCurrent()) wasElsewhere = true;
    log.add(std::move(line));
  }

  std::string received_;
  std::vector<std::move_only_function<void()>> held_;
};

std::shared_ptr<URLSession> sessionFor(const std::shared_ptr<URLSessionDelegate>& delegate) {
  auto configuration = URLSessionConfiguration::ephemeral();
  configuration.loopbackHosts = {"api.ombrix.test"};
  return URLSession::make(configuration, delegate);
}

// Catches servers that are trusted without being asked about, refused although they are, asked
// about again and again, or taken for another: the answer holds for one host and one certificate.
TEST(URLSessionDelegateTests, ServersAreTrustedAsTheDelegateSays) {
  using Manner = RecordingDelegate::Manner;
  struct Case {
    Certificate certificate;
    Trust trust;
    bool givesCredential;
    Manner manner;
    std::string expected;
    int challenges;
  };
  const std::string refused = summaryOf(Code::userCancelledAuthentication);
  const std::string untrusted = summaryOf(Code::serverCertificateUntrusted);
  const std::string unknownRoot = summaryOf(Code::serverCertificateHasUnknownRoot);
  using enum Certificate;
  using enum URLSessionDelegate::AuthChallengeDisposition;
  // clang-format off: a table
  const std::vector<Case> cases{
      {selfSigned,    useCredential,                 true,  Manner::now,     "200 ok",    1},
      {selfSigned,    useCredential,                 true,  Manner::later,   "200 ok",    1},
      {wrongHost,     useCredential,                 true,  Manner::now,     "200 ok",    1},
      {expired,       useCredential,                 true,  Manner::now,     "200 ok",    1},
      {selfSigned,    useCredential,                 false, Manner::now,     untrusted,   1},
      {selfSigned,    performDefaultHandling,        true,  Manner::now,     untrusted,   1},
      {fromAuthority, performDefaultHandling,        true,  Manner::later,   unknownRoot, 1},
      {selfSigned,    useCredential,                 true,  Manner::dropped, untrusted,   1},
      {selfSigned,    cancelAuthenticationChallenge, true,  Manner::now,     refused,     3},
  };
  // clang-format on
  std::map<Certificate, std::unique_ptr<TestServer>> servers;  // their keys take long to make
  for (const Case& row : cases) {
    SCOPED_TRACE(&row - cases.data());
    auto& made = servers[row.certificate];
    if (!made) made = std::make_unique<TestServer>(tlsOptions(row.certificate));
    const TestServer& server = *made;
    const auto delegate = std::make_shared<RecordingDelegate>();
    delegate->trust = row.trust;
    delegate->givesCredential = row.givesCredential;
    delegate->manner = row.manner;
    const auto session = sessionFor(delegate);
    std::vector<testing::RunningTask> tasks;
    for (int i = 0; i < 3; ++i) {
      tasks.push_back(testing::start(*session, requestTo(server.url("/status/200?body=ok"))));
    }
    for (auto& task : tasks) EXPECT_EQ(task.outcome().summary(), row.expected);
    EXPECT_EQ(delegate->challenges, row.challenges);
    EXPECT_FALSE(delegate->wasElsewhere);
  }
}

// Catches handshakes broken off to ask a delegate that does not want to judge.
TEST(URLSessionDelegateTests, OnlyServersToBeJudgedAreAskedAbout) {
  const TestServer server;
  const TestServer plain(TestServer::Wire::plain);
  for (const bool judges : {false, true}) {
    const auto delegate = std::make_shared<RecordingDelegate>();
    delegate->judges = judges;
    delegate->trust = Trust::useCredential;
    const auto before = server.counters().connections;
    const auto outcome = fetch(*sessionFor(delegate), requestTo(server.url("/status/200?body=ok")));
    EXPECT_EQ(outcome.summary(), judges ? "200 ok" : summaryOf(Code::serverCertificateUntrusted));
    EXPECT_EQ(delegate->challenges, judges ? 1 : 0);
    EXPECT_EQ(server.counters().connections - before, judges ? 2U : 1U);
    const std::string there = server.url("/status/200?body=there");
    EXPECT_EQ(fetch(*sessionFor(delegate), requestTo(plain.url("/redirect?to=" + there))).summary(),
              judges ? "200 there" : summaryOf(Code::serverCertificateUntrusted));
  }
}

// Catches a trust that outlives its certificate or leaks to other sessions and other hosts.
TEST(URLSessionDelegateTests, TrustHoldsForOneCertificateInOneSession) {
  const auto delegate = std::make_shared<RecordingDelegate>();
  delegate->trust = Trust::useCredential;
  const auto session = sessionFor(delegate);
  std::uint16_t port = 0;
  for (int round = 1; round <= 2; ++round) {
    TestServer::Options options;
    options.port = port;
    TestServer server(options);  // with a key of its own
    port = server.port();
    EXPECT_EQ(fetch(*session, requestTo(server.url("/echo"))).status(), 200);
    EXPECT_EQ(delegate->challenges, round) << "a new certificate is asked about";
    // The same place by another name, which the accepted answer does not cover.
    const std::string byAddress = "https://127.0.0.1:" + std::to_string(port) + "/echo";
    delegate->trust = Trust::performDefaultHandling;
    const auto fresh = std::make_shared<RecordingDelegate>();
    EXPECT_EQ(fetch(*sessionFor(fresh), requestTo(server.url("/echo"))).code(),
              Code::serverCertificateUntrusted);
    EXPECT_EQ(fetch(*sessionFor(nullptr), requestTo(byAddress)).code(),
              Code::serverCertificateUntrusted);
    delegate->trust = Trust::useCredential;
  }
}

// Catches a proxy's certificate judged as that of the server behind it.
TEST(URLSessionDelegateTests, ProxiesAreVerifiedForThemselves) {
  const TestServer proxy;
  const std::string proxyURL = "https://localhost:" + std::to_string(proxy.port());
  const std::unique_ptr<CURL, void (*)(CURL*)> easy(::curl_easy_init(), ::curl_easy_cleanup);
  const auto load = [&](detail::CurlTrust& trust, const std::string& url) {
    trust.install(easy.get(), true);
    ::curl_easy_setopt(easy.get(), CURLOPT_URL, url.c_str());
    return ::curl_easy_perform(easy.get());
  };
  detail::CurlTrust direct("localhost", proxy.port());
  EXPECT_EQ(load(direct, proxyURL), CURLE_PEER_FAILED_VERIFICATION);
  const auto question = direct.takeQuestion();
  ASSERT_TRUE(question);
  ::curl_easy_setopt(easy.get(), CURLOPT_PROXY, proxyURL.c_str());
  for (const std::string host : {"far.ombrix.test", "192.0.2.1"}) {
    detail::CurlTrust trust(host, 443);
    EXPECT_EQ(load(trust, "https://" + host + "/"), CURLE_PEER_FAILED_VERIFICATION) << host;
    EXPECT_FALSE(trust.takeQuestion());
    trust.decide(question->leaf, detail::CurlTrust::Decision::accept);
    EXPECT_EQ(load(trust, "https://" + host + "/"), CURLE_PEER_FAILED_VERIFICATION) << host;
  }
}

// Catches other faults of TLS under the names of certificates, and expired certificates under that
// of unknown ones.
TEST(URLSessionDelegateTests, FaultsOfTLSHaveTheirNames) {
  const auto session = sessionFor(nullptr);
  TestServer server(tlsOptions(Certificate::expired));
  EXPECT_THAT(
      fetch(*session, requestTo(server.url("/echo"))).code(),
      ::testing::AnyOf(Code::serverCertificateHasBadDate, Code::serverCertificateUntrusted));
  server.scriptConnections({devserver::Send{"no TLS at all\r\n"}, devserver::End::close});
  EXPECT_EQ(fetch(*session, requestTo(server.url("/echo"))).code(), Code::secureConnectionFailed);
  server.scriptConnections({devserver::End::reset});
  EXPECT_EQ(fetch(*session, requestTo(server.url("/echo"))).code(), Code::secureConnectionFailed);
}

// Catches calls in the wrong order, on other threads, or not at all, whatever the delegate's
// manner.
TEST(URLSessionDelegateTests, TheDelegateIsAskedAndToldInOrder) {
  using Manner = RecordingDelegate::Manner;
  TestServer server(TestServer::Wire::plain);
  for (const Manner manner : {Manner::now, Manner::later, Manner::dropped}) {
    const auto delegate = std::make_shared<RecordingDelegate>();
    delegate->manner = manner;
    const auto session = sessionFor(delegate);
    URLRequest request = requestTo(server.url("/redirect?status=307&to=/echo"));
    request.httpMethod = "POST";
    request.httpBody = Data(300'000, std::byte{'x'});
    EXPECT_EQ(fetch(*session, request).status(), 200);
    session->finishTasksAndInvalidate();
    auto lines = delegate->log.takeOnce("invalid");
    std::erase(lines, "sent 300000");  // once or twice
    EXPECT_THAT(lines, ElementsAre("redirect 307", "response 200", "metrics 1", "invalid"));
    EXPECT_FALSE(delegate->wasElsewhere);
  }
}

// Catches a refused redirect or answer that goes on all the same, also while its body is coming.
TEST(URLSessionDelegateTests, RefusalsEndTheTask) {
  TestServer server(TestServer::Wire::plain);
  const auto delegate = std::make_shared<RecordingDelegate>();
  delegate->follows = 1;
  const auto session = sessionFor(delegate);
  // The other origin's token is for nobody here.
  TestServer other(TestServer::Wire::plain);
  const std::string there = other.url("/redirect?to=/echo%26header=Authorization:t");
  const auto declined = fetch(*session, requestTo(server.url("/redirect?to=" + there)));
  EXPECT_EQ(declined.status(), 302);
  EXPECT_FALSE(declined.response->valueForHTTPHeaderField("Authorization"));
  EXPECT_THAT(delegate->log.take(), ::testing::Contains("redirect 302").Times(2));
  for (const auto manner : {RecordingDelegate::Manner::now, RecordingDelegate::Manner::later}) {
    delegate->manner = manner;
    delegate->response = URLSessionDelegate::ResponseDisposition::cancel;
    for (const char* path : {"/echo", "/bytes?bytes=3000000", "/slow?bytes=20&every=50"}) {
      EXPECT_EQ(fetch(*session, requestTo(server.url(path))).code(), Code::cancelled) << path;
    }
    delegate->response = URLSessionDelegate::ResponseDisposition::allow;
    const auto outcome = fetch(*session, requestTo(server.url("/bytes?bytes=3000000")));
    EXPECT_EQ(outcome.text().size(), 3'000'000U);
  }
  EXPECT_TRUE(server.waitUntilIdle());
}

// Catches a question about an answer that is put again whenever more of its body comes.
TEST(URLSessionDelegateTests, AQuestionIsPutOnce) {
  TestServer server(TestServer::Wire::plain);
  const auto delegate = std::make_shared<RecordingDelegate>();
  const auto session = sessionFor(delegate);
  std::promise<void> gate;
  session->delegateQueue()->async([ended = gate.get_future().share()] { ended.wait(); });
  auto running = testing::start(*session, requestTo(server.url("/slow?bytes=40&every=2")));
  while (running.task->countOfBytesReceived() < 40) std::this_thread::yield();
  EXPECT_LT(session.use_count(), 20) << "each question waits with its session";
  gate.set_value();
  EXPECT_EQ(running.outcome().status(), 200);
}

// Catches requests that are sent again although the answer has begun, and safe ones given up
// although the connection only ended, whatever answers it has carried before.
TEST(URLSessionDelegateTests, WhatIsAnsweredInPartIsNotSentAgain) {
  TestServer plain(TestServer::Wire::plain), tls;
  const auto delegate = std::make_shared<RecordingDelegate>();
  delegate->trust = Trust::useCredential;
  const auto session = sessionFor(delegate);
  for (TestServer* server : {&plain, &tls}) {
    for (const std::string before : {"/status/200", "/status/204", "/bytes?bytes=70000",
                                     "/bytes?bytes=70000&chunked", "/gzip?bytes=70000"}) {
      for (const std::string bytes : {"", "HTTP/1.1 20"}) {
        SCOPED_TRACE(before + bytes);
        const std::string path = "/cut" + std::to_string(bytes.size());
        server->route("GET", path, [bytes](const auto&) {
          return devserver::Response::following({devserver::Send{bytes}, devserver::End::close});
        });
        auto request = requestTo(server->url(before));
        for (const char* method : {"GET", "GET", "HEAD", "GET"}) {
          request.httpMethod = method;
          ASSERT_GE(fetch(*session, request).status(), 200);
        }
        const auto requests = server->requestCount(path);
        EXPECT_EQ(fetch(*session, requestTo(server->url(path))).code(),
                  Code::networkConnectionLost);
        EXPECT_EQ(server->requestCount(path) - requests, bytes.empty() ? 2U : 1U);
      }
    }
  }
}

// Catches an answer without a length that anybody on the way has cut off, told as whole.
TEST(URLSessionDelegateTests, OverTLSTheEndIsOneThatTheServerTells) {
  TestServer server;
  const auto delegate = std::make_shared<RecordingDelegate>();
  delegate->trust = Trust::useCredential;
  const auto session = sessionFor(delegate);
  using devserver::End;
  for (const auto end : {End::close, End::drop}) {
    server.route("GET", "/until", [end](const auto&) {
      return devserver::Response::following({devserver::Send{"HTTP/1.1 200 OK\r\n\r\nhalf"}, end});
    });
    EXPECT_EQ(fetch(*session, requestTo(server.url("/until"))).summary(),
              end == End::close ? "200 half" : summaryOf(Code::networkConnectionLost));
  }
}

// Catches streamed answers that are gathered, lost in part, or handed over after the end.
TEST(URLSessionDelegateTests, TasksWithoutAHandlerStreamToTheDelegate) {
  TestServer server(TestServer::Wire::plain);
  const auto delegate = std::make_shared<RecordingDelegate>();
  const auto session = sessionFor(delegate);
  const auto task = session->dataTask(requestTo(server.url("/bytes?bytes=5000000")), nullptr);
  task->resume();
  EXPECT_THAT(delegate->log.takeOnce("complete 5000000"),
              ElementsAre("response 200", "metrics 0", "complete 5000000"));
  server.route("GET", "/endless", [](const auto&) {
    return devserver::Response::following(
        {devserver::Send{"HTTP/1.1 200 OK\r\n\r\n"}, devserver::Repeat{std::string(10'000, 'x')}});
  });
  const auto endless = std::make_shared<RecordingDelegate>();
  const auto other = sessionFor(endless);
  const auto watch = other->dataTask(requestTo(server.url("/endless")), nullptr);
  watch->resume();
  while (watch->countOfBytesReceived() < 1'000'000) std::this_thread::yield();
  watch->cancel();
  other->finishTasksAndInvalidate();
  const auto lines = endless->log.takeOnce("invalid");
  ASSERT_EQ(lines.size(), 4U);
  EXPECT_THAT(lines[2], ::testing::EndsWith("failed"));
  EXPECT_TRUE(server.waitUntilIdle());
}

// Catches a streamed answer that breaks off and takes along what came before, which a delegate that
// was not asked yet, or had not answered yet, was not given.
TEST(URLSessionDelegateTests, WhatCameBeforeABreakIsHandedOver) {
  using Manner = RecordingDelegate::Manner;
  TestServer server(TestServer::Wire::plain);
  server.route("GET", "/cut", [](const auto&) {
    return devserver::Response::following(
        {devserver::Send{"HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nabc"},
         devserver::End::close});
  });
  for (int round = 0; round < 10; ++round) {
    for (const Manner manner : {Manner::now, Manner::later, Manner::dropped}) {
      const auto delegate = std::make_shared<RecordingDelegate>();
      delegate->manner = manner;
      const auto session = sessionFor(delegate);
      session->dataTask(requestTo(server.url("/cut")), nullptr)->resume();
      session->finishTasksAndInvalidate();
      ASSERT_THAT(delegate->log.takeOnce("invalid"),
                  ElementsAre("response 200", "metrics 0", "complete 3 failed", "invalid"));
    }
  }
}

/// Adds up what it is handed, and tells of the end.
class CountingDelegate : public URLSessionDelegate {
 public:
  std::size_t bytes = 0, largestPiece = 0;
  std::promise<bool> isWhole;  // told without an error

  void didReceiveData(URLSession&, URLSessionDataTask&, DataView data) override {
    bytes += data.size();
    largestPiece = std::max(largestPiece, data.size());
  }
  void didComplete(URLSession&, URLSessionTask&,
                   const std::shared_ptr<const Error>& error) override {
    isWhole.set_value(error == nullptr);
  }
};

// Catches a decompression bomb that reaches a delegate in one piece, or to its end.
TEST(URLSessionDelegateTests, ABombIsStreamedInPiecesAndNotToItsEnd) {
  TestServer server(TestServer::Wire::plain);
  server.route("GET", "/bomb", [](const auto&) {
    return devserver::Response{
        .headers = {{"Content-Encoding", "gzip"}},
        .body = devserver::compressed(std::string(60'000'000, ' '), devserver::Compression::gzip)};
  });
  const auto delegate = std::make_shared<CountingDelegate>();
  auto isWhole = delegate->isWhole.get_future();
  const auto session = sessionFor(delegate);
  session->dataTask(requestTo(server.url("/bomb")), nullptr)->resume();
  ASSERT_EQ(isWhole.wait_for(std::chrono::minutes(1)), std::future_status::ready);
  EXPECT_FALSE(isWhole.get());
  EXPECT_LT(delegate->bytes, 20'000'000U);
  EXPECT_LT(delegate->largestPiece, 1'000'000U);
}

// Catches sessions that take tasks after their end, or end before their tasks.
TEST(URLSessionDelegateTests, SessionsEndOnceTheirTasksHave) {
  TestServer server(TestServer::Wire::plain);
  server.route("GET", "/held", [](const auto&) {
    return testing::held("gate", devserver::Response::text("at last"));
  });
  enum class End { finish, cancel, close };
  for (const End end : {End::close, End::finish, End::cancel}) {
    server.shutGate("gate");
    const auto delegate = std::make_shared<RecordingDelegate>();
    auto session = sessionFor(delegate);
    auto held = testing::start(*session, requestTo(server.url("/held")));
    ASSERT_TRUE(server.waitUntilHeld(1));
    auto suspended = testing::prepare(*session, requestTo(server.url("/echo")));
    testing::RunningTask late;  // made after the end, and never resumed
    if (end == End::close) {
      const std::size_t threads = testing::networkThreads();
      session->close();
      EXPECT_EQ(delegate->log.take().back(), "invalid");
      EXPECT_EQ(suspended.future.wait_for(std::chrono::seconds(0)), std::future_status::ready);
      EXPECT_LT(testing::networkThreads(), threads);
      session->close();
    } else if (end == End::cancel) {
      session->invalidateAndCancel();
      EXPECT_EQ(suspended.outcome().code(), Code::cancelled);
    } else {
      session->finishTasksAndInvalidate();
      late = testing::prepare(*session, requestTo(server.url("/echo")));
      suspended.task = nullptr;
      server.openGate("gate");
    }
    EXPECT_EQ(held.outcome().summary(),
              end == End::finish ? "200 at last" : summaryOf(Code::cancelled));
    EXPECT_EQ(fetch(*session, requestTo(server.url("/echo"))).code(), Code::cancelled);
    if (end != End::close) delegate->log.takeOnce("invalid");
    EXPECT_EQ(delegate->log.take(), std::vector<std::string>());
    session = nullptr;
    late = {};
    EXPECT_TRUE(server.waitUntilDisconnected()) << "the session's sockets go with it";
  }
}

// Catches tasks without an outcome, and answers to questions that are heard after their session.
TEST(URLSessionDelegateTests, SessionsAreCancelledInTheMiddleOfAQuestion) {
  TestServer plain(TestServer::Wire::plain);
  TestServer secure;
  const std::pair<std::string, std::string> cases[] = {
      {secure.url("/echo"), "challenge api.ombrix.test"},
      {plain.url("/redirect?to=/echo"), "redirect 302"},
      {plain.url("/echo"), "response 200"},
  };
  for (const auto& [url, question] : cases) {
    SCOPED_TRACE(question);
    const auto delegate = std::make_shared<RecordingDelegate>();
    delegate->manner = RecordingDelegate::Manner::held;
    delegate->trust = Trust::useCredential;
    auto session = sessionFor(delegate);
    auto running = testing::start(*session, requestTo(url));
    delegate->log.takeOnce(question);
    session->invalidateAndCancel();
    EXPECT_EQ(running.outcome().code(), Code::cancelled);
    delegate->log.takeOnce("invalid");
    delegate->release();
    session->close();
    EXPECT_THAT(delegate->log.take(), IsEmpty());
    session = nullptr;
    running.task = nullptr;
    EXPECT_TRUE(plain.waitUntilDisconnected() && secure.waitUntilDisconnected());
  }
}

// Catches the system's certificates read anew for each connection, which holds all others up.
TEST(URLSessionDelegateTests, TheSystemsCertificatesAreReadOnce) {
  const auto bundle = std::filesystem::file_size(::curl_version_info(CURLVERSION_NOW)->cainfo);
  const auto bytesRead = [] {
    std::string name;
    std::uintmax_t bytes = 0;
    std::ifstream("/proc/self/io") >> name >> bytes;
    return bytes;
  };
  TestServer server;
  server.route("GET", "/held", [](const auto&) {
    return testing::held("gate", devserver::Response::text("at last"));
  });
  const auto delegate = std::make_shared<RecordingDelegate>();
  delegate->trust = Trust::useCredential;
  const auto session = sessionFor(delegate);
  const auto before = bytesRead();
  constexpr int kConnections = 6;
  std::vector<testing::RunningTask> tasks;
  for (int i = 0; i < kConnections; ++i) {
    tasks.push_back(testing::start(*session, requestTo(server.url("/held"))));
  }
  ASSERT_TRUE(server.waitUntilHeld(kConnections));
  EXPECT_LT(bytesRead() - before, kConnections / 2 * bundle);
  server.openGate("gate");
  for (auto& task : tasks) EXPECT_EQ(task.outcome().status(), 200);
}

// Catches transfers that die with the last reference to their session.
TEST(URLSessionDelegateTests, DroppedSessionsLetTheirTransfersEnd) {
  TestServer server(TestServer::Wire::plain);
  auto session = sessionFor(nullptr);
  auto running = testing::start(*session, requestTo(server.url("/slow?ms=50")));
  const std::weak_ptr<URLSession> weak = session;
  session = nullptr;
  EXPECT_EQ(running.outcome().status(), 200);
  EXPECT_TRUE(server.waitUntilDisconnected());
  EXPECT_TRUE(weak.expired());
}

}  // namespace
}  // namespace ombrix::platform
