#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <mutex>
#include <random>
#include <set>

#include "OmbrixPlatform/Services.hpp"
#include "OmbrixTesting/Eventually.hpp"
#include "OmbrixTesting/ManualClock.hpp"
#include "OmbrixTesting/ManualPathMonitor.hpp"
#include "OmbrixTesting/Sanitizers.hpp"
#include "OmbrixTesting/ScopedService.hpp"
#include "OmbrixTesting/TestServer.hpp"
#include "SessionSupport.hpp"
#include "Tools/DevServer/HTTP/Compression.hpp"

namespace ombrix::platform {
namespace {

using namespace std::chrono_literals;
using devserver::compressed;
using testing::eventually;
using testing::fetch;
using testing::requestTo;
using testing::TestServer;
using enum devserver::Compression;
using Code = URLError::Code;

std::string answer(std::string_view fields, std::string_view body) {
  return "HTTP/1.1 200 OK\r\n" + std::string(fields) +
         "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + std::string(body);
}

/// A text that packs to little less than a number of bytes in the front, and to nearly none behind.
std::string explosive(std::size_t packedBytes) {
  std::string text(20'000'000, ' ');
  std::minstd_rand random;
  for (std::size_t i = 0; i < packedBytes; ++i) text[i] = static_cast<char>(random());
  return text;
}

std::string manyFields(int count) {
  std::string fields;
  for (int i = 0; i < count; ++i) fields += "X-" + std::to_string(i) + ": v\r\n";
  return fields;
}

std::string summaryOf(Code code) { return "error " + std::to_string(static_cast<int>(code)); }

// Catches answers that are taken for whole though they are cut, damaged, ambiguous or endless, and
// whole ones that are refused for an unusual form; on a new connection and on one that has carried
// an answer before, whose traces must harm nothing.
TEST(URLSessionFaultTests, EveryAnswerIsWholeOrAnError) {
  const std::string text(5000, 'x');
  const std::string packed = compressed(text, gzip);
  const std::string coded = "Content-Encoding: gzip\r\n";
  const std::string dense = explosive(85'000);  // to 190 times its size; with 75,000 to 212
  const std::string chunked = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
  struct Case {
    const char* name;
    std::string bytes;  // then the connection is closed
    bool isReset = false;
    std::string expected;
  };
  // clang-format off: a table
  const std::vector<Case> cases{
      {"whole",                  answer("", "abc"), false, "200 abc"},
      {"until the end",          "HTTP/1.0 200 OK\r\n\r\nabc", false, "200 abc"},
      {"chunked",                chunked + "3\r\nabc\r\n0\r\nX-Trailer: t\r\n\r\n", false, "200 abc"},
      {"length said twice",      answer("Content-Length: 3\r\n", "abc"), false, "200 abc"},
      {"interim answers",        "HTTP/1.1 103 Early Hints\r\nX: y\r\n\r\n" + answer("", "abc"), false, "200 abc"},
      {"folded field",           answer("X-Folded: a\r\n b\r\n", "abc"), false, "200 abc"},
      {"gzip",                   answer(coded, packed), false, "200 " + text},
      {"gzip in two members",    answer(coded, packed + packed), false, "200 " + text + text},
      {"deflate",                answer("Content-Encoding: deflate\r\n", compressed(text, zlib)), false, "200 " + text},
      {"deflate, bare",          answer("Content-Encoding: deflate\r\n", compressed(text, bareDeflate)), false, "200 " + text},
      {"several codings",        answer("Content-Encoding: gzip, gzip\r\n", packed), false, "200 " + packed},
      {"empty gzip",             answer(coded, ""), false, "200 "},

      {"nothing",                "", false, summaryOf(Code::networkConnectionLost)},
      {"reset at once",          "", true, summaryOf(Code::networkConnectionLost)},
      {"part of a status line",  "HTTP/1.1 20", false, summaryOf(Code::networkConnectionLost)},
      {"half a header",          "HTTP/1.1 200 OK\r\nX: ", false, summaryOf(Code::networkConnectionLost)},
      {"first field folded",     "HTTP/1.1 200 OK\r\n X: a\r\nContent-Length: 3\r\n\r\nabc", false, summaryOf(Code::cannotParseResponse)},
      {"no HTTP",                "220 mail.example ready\r\n\r\n", false, summaryOf(Code::cannotParseResponse)},
      {"a field without colon",  answer("nonsense\r\n", "abc"), false, summaryOf(Code::cannotParseResponse)},
      {"too many fields",        answer(manyFields(1500), "abc"), false, summaryOf(Code::badServerResponse)},
      {"too long a header",      answer(manyFields(900) + "X: " + std::string(90'000, 'x') + "\r\nY: " + std::string(90'000, 'x') + "\r\nZ: " + std::string(90'000, 'x') + "\r\n", "abc"), false, summaryOf(Code::badServerResponse)},
      {"body cut short",         answer("", "abc").substr(0, 40), false, summaryOf(Code::networkConnectionLost)},
      {"reset in the body",      answer("", "abc").substr(0, 40), true, summaryOf(Code::networkConnectionLost)},
      {"lengths that differ",    answer("Content-Length: 2\r\n", "abc"), false, summaryOf(Code::badServerResponse)},
      {"length below zero",      "HTTP/1.1 200 OK\r\nContent-Length: -3\r\n\r\nabc", false, summaryOf(Code::cannotParseResponse)},
      {"chunks cut short",       chunked + "3\r\nabc\r\n", false, summaryOf(Code::networkConnectionLost)},
      {"chunks without lengths", chunked + "xyz\r\n", false, summaryOf(Code::cannotParseResponse)},
      {"gzip cut, length right", answer(coded, packed.substr(0, packed.size() - 5)), false, summaryOf(Code::cannotDecodeContentData)},
      {"gzip damaged",           answer(coded, "no gzip"), false, summaryOf(Code::cannotDecodeContentData)},
      {"bytes after the gzip",   answer(coded, packed + "tail"), false, summaryOf(Code::cannotDecodeContentData)},
      {"unknown coding",         answer("Content-Encoding: own\r\n", "abc"), false, "200 abc"},
      {"almost explosive",       answer(coded, compressed(dense, gzip)), false, "200 " + dense},
      {"a little explosive",     answer(coded, compressed(explosive(75'000), gzip)), false, summaryOf(Code::cannotDecodeContentData)},
      {"small, if explosive",    answer(coded, compressed(std::string(15'000'000, ' '), gzip)), false, "200 " + std::string(15'000'000, ' ')},
      {"blank before a colon",   "HTTP/1.1 200 OK\r\nContent-Length : 100\r\n\r\nabc", false, summaryOf(Code::badServerResponse)},
      {"chunked, with a blank",  "HTTP/1.1 200 OK\r\nTransfer-Encoding : chunked\r\n\r\n3\r\nabc\r\n0\r\n\r\n", false, summaryOf(Code::badServerResponse)},
      {"chunked, a parameter",   "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked;q=1\r\n\r\n3\r\nabc\r\n0\r\n\r\n", false, summaryOf(Code::badServerResponse)},
      {"almost chunked",         "HTTP/1.1 200 OK\r\nTransfer-Encoding: xchunked\r\n\r\n3\r\nabc\r\n0\r\n\r\n", false, summaryOf(Code::badServerResponse)},
      {"gzip, chunked",          "HTTP/1.1 200 OK\r\nTransfer-Encoding: gzip, chunked\r\n\r\n3\r\nabc\r\n0\r\n\r\n", false, summaryOf(Code::badServerResponse)},
      {"chunked and a length",   "HTTP/1.1 200 OK\r\nContent-Length: 3\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n0\r\n\r\n", false, summaryOf(Code::badServerResponse)},
      {"protocol switched",      "HTTP/1.1 101 Switching Protocols\r\nUpgrade: own\r\n\r\nown", false, summaryOf(Code::badServerResponse)},
      {"too long a field",       answer("X: " + std::string(150'000, 'x') + "\r\n", "abc"), false, summaryOf(Code::badServerResponse)},
  };
  // clang-format on
  TestServer server(TestServer::Wire::plain);
  const auto session = URLSession::make(URLSessionConfiguration::ephemeral());
  server.route("GET", "/case/*", [&](const devserver::Request& request) {
    const Case& row = cases[std::stoul(request.rest)];
    return devserver::Response::following(
        {devserver::Send{row.bytes}, row.isReset ? devserver::End::reset : devserver::End::close});
  });
  for (std::size_t i = 0; i < cases.size(); ++i) {
    for (const bool isReused : {false, true}) {
      SCOPED_TRACE(cases[i].name);
      if (isReused) {
        EXPECT_EQ(fetch(*session, requestTo(server.url("/status/200"))).status(), 200);
      }
      const auto before = server.requestCount("/case/" + std::to_string(i));
      auto running = testing::start(*session, requestTo(server.url("/case/" + std::to_string(i))));
      const auto summary = running.outcome().summary();
      EXPECT_TRUE(summary == cases[i].expected) << summary.substr(0, 100);
      const bool isSentAgain = isReused && cases[i].bytes.empty();
      EXPECT_LE(server.requestCount("/case/" + std::to_string(i)) - before, isSentAgain ? 2 : 1);
      // Another kept connection, which its server has ended since, may have been tried first.
      EXPECT_GE(running.task->metrics().resendCount, isSentAgain ? 1 : 0);
      EXPECT_LE(running.task->metrics().resendCount, 1);
    }
  }
}

// Catches bodies kept in memory beyond what a session may keep, of one answer or of all together.
TEST(URLSessionFaultTests, BodiesHaveTheirLimits) {
  TestServer server(TestServer::Wire::plain);
  server.route("GET", "/half", [](const auto&) {
    return devserver::Response::following(
        {devserver::Send{"HTTP/1.1 200 OK\r\nContent-Length: 80001\r\n\r\n" +
                         std::string(80'000, 'x')},
         devserver::Hold{"gate"}, devserver::Send{"x"}});
  });
  auto configuration = URLSessionConfiguration::ephemeral();
  configuration.maximumBodyBytes = 100'000;
  configuration.maximumBodyBytesTogether = 150'000;
  const auto session = URLSession::make(configuration);
  const auto load = [&](const char* path) { return fetch(*session, requestTo(server.url(path))); };
  EXPECT_EQ(load("/bytes?bytes=100000").status(), 200);
  EXPECT_EQ(load("/bytes?bytes=100001").code(), Code::dataLengthExceedsMaximum);
  auto half = testing::start(*session, requestTo(server.url("/half")));
  ASSERT_TRUE(eventually([&] { return half.task->countOfBytesReceived() == 80'000; }));
  EXPECT_EQ(load("/bytes?bytes=80000").code(), Code::dataLengthExceedsMaximum);
  EXPECT_EQ(load("/bytes?bytes=60000").status(), 200);
  server.openGate("gate");
  EXPECT_EQ(half.outcome().text().size(), 80'001U);
  EXPECT_EQ(load("/bytes?bytes=80000").status(), 200);
}

// Catches requests that reach a server twice though only once is safe, or more often than twice;
// and safe ones given up at once.
TEST(URLSessionFaultTests, RequestsAreSentAgainOnlyWhereThatIsSafe) {
  TestServer server(TestServer::Wire::plain);
  std::mutex mutex;
  std::map<std::string, int> arrivals;
  std::set<std::uint64_t> used;  // connections
  // Ends each connection that is used again, "/once/" ones for one time.
  server.route("*", "/*", [&](const devserver::Request& request) {
    const std::lock_guard lock(mutex);
    const int arrival = ++arrivals[request.path];
    const bool isReused = !used.insert(request.connection).second;
    if (request.path.starts_with("/first") ||
        (!isReused && (arrival == 1 || request.path.starts_with("/once/")))) {
      return devserver::Response::text("done");
    }
    return devserver::Response::following({devserver::End::reset});
  });
  struct Case {
    const char* method;
    const char* path;
    std::string expected;
    int arrivals;
  };
  const std::string lost = summaryOf(Code::networkConnectionLost);
  // clang-format off: a table
  const std::vector<Case> cases{
      {"GET",    "/once/",   "200 done", 2},
      {"PUT",    "/once/",   "200 done", 2},
      {"DELETE", "/once/",   "200 done", 2},
      {"POST",   "/once/",   lost,       1},
      {"PATCH",  "/once/",   lost,       1},
      {"OWN",    "/once/",   lost,       1},
      {"PUT",    "/always/", lost,       2},
  };
  // clang-format on
  const auto session = URLSession::make(URLSessionConfiguration::ephemeral());
  int number = 0;
  for (const Case& row : cases) {
    SCOPED_TRACE(std::string(row.method) + " " + row.path);
    ASSERT_EQ(fetch(*session, requestTo(server.url("/first" + std::to_string(++number)))).status(),
              200);
    URLRequest request = requestTo(server.url(row.path + std::to_string(number)));
    request.httpMethod = row.method;
    if (row.method != std::string("GET")) request.httpBody = dataFrom("body");
    auto running = testing::start(*session, request);
    EXPECT_EQ(running.outcome().summary(), row.expected);
    EXPECT_EQ(running.task->metrics().resendCount, row.arrivals - 1);
    const std::lock_guard lock(mutex);
    EXPECT_EQ(arrivals[row.path + std::to_string(number)], row.arrivals);
  }
}

// Catches a whole answer told as a lost connection, since libcurl would ask again after a 417.
TEST(URLSessionFaultTests, ARefusedExpectationIsAnAnswer) {
  TestServer server(TestServer::Wire::plain);
  server.scriptConnections(
      {devserver::Send{"HTTP/1.1 417 Expectation Failed\r\nContent-Length: 2\r\n\r\nno"},
       devserver::Hold{"end"}});
  const auto session = URLSession::make(URLSessionConfiguration::ephemeral());
  auto request = requestTo(server.url("/"));
  request.httpMethod = "POST";
  request.headers.set("Expect", "100-continue");
  request.httpBody = dataFrom("body");
  auto running = testing::start(*session, request);
  EXPECT_EQ(running.outcome().summary(), "417 no");
  EXPECT_EQ(running.task->metrics().resendCount, 0);
}

// Catches the next answer taken from what a server has sent beyond the length that it stated.
TEST(URLSessionFaultTests, BytesBeyondTheLengthAreNoAnswer) {
  TestServer server(TestServer::Wire::plain);
  server.scriptConnections({devserver::Send{answer("", "abc")}, devserver::Wait{20ms},
                            devserver::Send{answer("", "wrong")}, devserver::Hold{"end"}});
  const auto session = URLSession::make(URLSessionConfiguration::ephemeral());
  EXPECT_EQ(fetch(*session, requestTo(server.url("/"))).summary(), "200 abc");
  ASSERT_TRUE(server.waitUntilHeld(1));
  EXPECT_EQ(fetch(*session, requestTo(server.url("/status/200?body=right"))).summary(),
            "200 right");
}

// Catches requests that would go out garbled, and hosts that cannot be reached, under other codes.
TEST(URLSessionFaultTests, WhatCannotBeSentIsRefusedByName) {
  const std::string closedPort = TestServer(TestServer::Wire::plain).baseURL();
  const auto with = [](const std::string& url, const std::string& method, HTTPHeaders headers) {
    URLRequest request = requestTo(url);
    request.httpMethod = method;
    request.headers = std::move(headers);
    return request;
  };
  // clang-format off: a table
  const std::vector<std::pair<URLRequest, Code>> cases{
      {requestTo(closedPort),                                  Code::cannotConnectToHost},
      {requestTo("http://no-such-host.invalid/"),              Code::cannotFindHost},
      {requestTo("http://224.0.0.1/"),                     Code::notConnectedToInternet},
      {requestTo("ftp://127.0.0.1/"),                          Code::unsupportedURL},
      {requestTo("/relative"),                                 Code::unsupportedURL},
      {with(closedPort, "GET", {{"X", "a\r\nInjected: b"}}),   Code::badURL},
      {with(closedPort, "GET", {{"X Y", "a"}}),                Code::badURL},
      {with(closedPort, "GET / HTTP/1.1\r\nX:", {}),           Code::badURL},
  };
  // clang-format on
  const auto session = URLSession::make(URLSessionConfiguration::ephemeral());
  for (const auto& [request, code] : cases) {
    EXPECT_EQ(fetch(*session, request).summary(), summaryOf(code)) << request.url.absoluteString();
  }
}

// Catches the want of descriptors told as a server that is not there.
TEST(URLSessionFaultTests, TheLackOfDescriptorsIsToldAsSuch) {
  // The undefined-behaviour sanitizer asks the kernel about memory by a pipe.
  if (testing::kUnderSanitizer) GTEST_SKIP() << "sanitizers need descriptors of their own";
  TestServer server(TestServer::Wire::plain);
  auto configuration = URLSessionConfiguration::ephemeral();
  configuration.waitsForConnectivity = true;
  const auto session = URLSession::make(configuration);
  ASSERT_EQ(fetch(*session, requestTo(server.url("/status/200"))).status(), 200);
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  const int next = ::dup(0);
  ::close(next);
  const rlimit none{.rlim_cur = static_cast<rlim_t>(next), .rlim_max = before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  const auto byAddress = fetch(*session, requestTo("http://127.0.0.2:1/"));
  const auto byName = fetch(*session, requestTo("http://no-such-host.invalid/"));
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
  for (const auto& outcome : {byAddress, byName}) {
    EXPECT_EQ(outcome.summary(), summaryOf(Code::cannotConnectToHost));
    EXPECT_THAT(outcome.error->what(), ::testing::StartsWith("no descriptors are left"));
  }
}

/// No thread can be made during its scope: none finds room for such a stack.
class ThreadShortage {
 public:
  ThreadShortage() {
    constexpr std::size_t kWholeAddressSpace = std::size_t{1} << 47;
    EXPECT_EQ(::pthread_getattr_default_np(&before_), 0);
    pthread_attr_t none;
    EXPECT_EQ(::pthread_attr_init(&none), 0);
    EXPECT_EQ(::pthread_attr_setstacksize(&none, kWholeAddressSpace), 0);
    EXPECT_EQ(::pthread_setattr_default_np(&none), 0);
    ::pthread_attr_destroy(&none);
  }
  ~ThreadShortage() {
    EXPECT_EQ(::pthread_setattr_default_np(&before_), 0);
    ::pthread_attr_destroy(&before_);
  }
  ThreadShortage(const ThreadShortage&) = delete;
  ThreadShortage& operator=(const ThreadShortage&) = delete;

 private:
  pthread_attr_t before_{};
};

// Catches a task that nobody ends when its session gets no thread, and a session that is of no use
// from then on.
TEST(URLSessionFaultTests, AShortageOfThreadsEndsATaskWithAnError) {
  if (testing::kUnderSanitizer) GTEST_SKIP() << "sanitizers choose stacks of their own";
  TestServer server(TestServer::Wire::plain);
  const auto load = [&](URLSession& session) {
    return fetch(session, requestTo(server.url("/status/200?body=abc"))).summary();
  };
  // So that handlers have their threads already.
  EXPECT_EQ(load(*URLSession::make(URLSessionConfiguration::ephemeral())), "200 abc");
  const auto session = URLSession::make(URLSessionConfiguration::ephemeral());
  auto running = testing::prepare(*session, requestTo(server.url("/status/200?body=abc")));
  {
    const ThreadShortage shortage;
    running.task->resume();
  }
  EXPECT_EQ(load(*session), "200 abc");
  EXPECT_EQ(running.outcome().summary(), summaryOf(Code::cannotLoadFromNetwork));
}

// Catches tasks of a forked process, which has no network threads, that never answer.
TEST(URLSessionFaultTests, AForkedProcessIsToldThatItHasNoSessions) {
  TestServer server(TestServer::Wire::plain);
  server.route("GET", "/held", [](const auto&) {
    return testing::held("gate", devserver::Response::text("at last"));
  });
  for (const bool hasBegun : {false, true}) {
    const auto session = URLSession::make(URLSessionConfiguration::ephemeral());
    auto running = testing::prepare(*session, requestTo(server.url("/held")));
    if (hasBegun) {
      running.task->resume();
      ASSERT_TRUE(server.waitUntilHeld(1));
    }
    const pid_t child = ::fork();
    if (child == 0) {
      ::alarm(60);
      hasBegun ? running.task->cancel() : running.task->resume();
      ::_exit(running.future.wait_for(0s) == std::future_status::ready &&
                      running.outcome().code() ==
                          (hasBegun ? Code::cancelled : Code::cannotLoadFromNetwork)
                  ? 0
                  : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << hasBegun;
    running.task->resume();
    server.openGate("gate");
    EXPECT_EQ(running.outcome().summary(), "200 at last") << "its parent's goes on";
    server.shutGate("gate");
  }
}

// Catches bytes sent over a path that is to be spared, and refusals without their reason.
TEST(URLSessionFaultTests, ConstrainedPathsAreSparedWhereAsked) {
  TestServer server(TestServer::Wire::plain);
  for (const bool isConstrained : {true, false}) {
    const auto paths = std::make_shared<testing::ManualPathMonitorFactory>();
    paths->setPath({.isConstrained = isConstrained});
    const testing::ScopedService scoped(services().pathMonitorFactory, paths);
    for (const bool sessionAllows : {true, false}) {
      for (const bool requestAllows : {true, false}) {
        auto configuration = URLSessionConfiguration::ephemeral();
        configuration.allowsConstrainedNetworkAccess = sessionAllows;
        URLRequest request = requestTo(server.url("/status/200?body=abc"));
        request.allowsConstrainedNetworkAccess = requestAllows;
        const auto before = server.counters().connections;
        const auto outcome = fetch(*URLSession::make(configuration), request);
        if (!isConstrained || (sessionAllows && requestAllows)) {
          EXPECT_EQ(outcome.summary(), "200 abc");
          continue;
        }
        const auto error = std::dynamic_pointer_cast<const URLError>(outcome.error);
        ASSERT_NE(error, nullptr);
        EXPECT_EQ(error->code(), Code::notConnectedToInternet);
        EXPECT_EQ(error->networkUnavailableReason(),
                  URLError::NetworkUnavailableReason::constrained);
        EXPECT_EQ(server.counters().connections, before);
      }
    }
  }
}

class URLSessionTimeoutTests : public ::testing::Test {
 protected:
  URLSessionTimeoutTests() {
    configuration_.timeoutIntervalForRequest = 25s;
    configuration_.timeoutIntervalForResource = 100s;
  }

  const std::shared_ptr<testing::ManualClock> clock_ = std::make_shared<testing::ManualClock>();
  const testing::ScopedService<Clock> scoped_{services().clock, clock_};
  URLSessionConfiguration configuration_ = URLSessionConfiguration::ephemeral();
};

// Catches servers that fall silent and are waited for without end, at any stage.
TEST_F(URLSessionTimeoutTests, SilenceEndsATransferAtTheStricterLimit) {
  const std::vector<std::string> sentBefore{"", "HTTP/1.1 200 OK\r\n",
                                            answer("", "abc").substr(0, 40)};
  for (const std::string& bytes : sentBefore) {
    for (const auto& [requestLimit, limit] : {std::pair{60s, 25s}, std::pair{10s, 10s}}) {
      TestServer server(TestServer::Wire::plain);
      server.scriptConnections({devserver::Send{bytes}, devserver::Hold{"never"}});
      const auto session = URLSession::make(configuration_);
      URLRequest request = requestTo(server.url("/"));
      request.timeoutInterval = requestLimit;
      auto running = testing::start(*session, request);
      ASSERT_TRUE(server.waitUntilHeld(1));
      clock_->advance(limit - 1s);
      EXPECT_EQ(running.future.wait_for(30ms), std::future_status::timeout);
      clock_->advance(2s);
      if (!bytes.empty()) clock_->advance(25s);  // the bytes may have come after the first step
      EXPECT_EQ(running.outcome().summary(), summaryOf(Code::timedOut));
    }
  }
}

// Catches a limit of silence that counts although bytes come, and a total limit that does not.
TEST_F(URLSessionTimeoutTests, ProgressPutsOffTheRequestLimitButNotTheResourceLimit) {
  TestServer server(TestServer::Wire::plain);
  devserver::Script script{devserver::Send{"HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n"}};
  for (int i = 1; i <= 6; ++i) {
    script.push_back(devserver::Hold{std::to_string(i)});
    script.push_back(devserver::Send{"x"});
  }
  server.scriptConnections(script);
  const auto session = URLSession::make(configuration_);
  auto running = testing::start(*session, requestTo(server.url("/")));
  for (int i = 1; i <= 5; ++i) {
    EXPECT_EQ(running.future.wait_for(30ms), std::future_status::timeout);
    server.openGate(std::to_string(i));
    ASSERT_TRUE(eventually([&] { return running.task->countOfBytesReceived() == i; })) << i;
    clock_->advance(20s);
  }
  EXPECT_EQ(running.outcome().summary(), summaryOf(Code::timedOut));
}

// Catches the total limit forgotten while a task waits its turn behind others.
TEST_F(URLSessionTimeoutTests, TheResourceLimitHoldsInTheQueueToo) {
  configuration_.httpMaximumConnectionsPerHost = 1;
  configuration_.timeoutIntervalForRequest = 1000s;
  TestServer server(TestServer::Wire::plain);
  server.scriptConnections({devserver::Hold{"never"}});
  const auto session = URLSession::make(configuration_);
  URLRequest request = requestTo(server.url("/"));
  request.timeoutInterval = 1000s;
  std::vector<testing::RunningTask> tasks;
  for (int i = 0; i < 3; ++i) tasks.push_back(testing::start(*session, request));
  ASSERT_TRUE(server.waitUntilHeld(1));
  clock_->advance(101s);
  for (auto& task : tasks) EXPECT_EQ(task.outcome().summary(), summaryOf(Code::timedOut));
}

// Catches the total limit of a task forgotten since another came before it to the network.
TEST_F(URLSessionTimeoutTests, TheResourceLimitCountsFromTheStart) {
  configuration_.timeoutIntervalForRequest = 1000s;
  const auto paths = std::make_shared<testing::ManualPathMonitorFactory>(true);
  const testing::ScopedService scopedPath(services().pathMonitorFactory, paths);
  TestServer server(TestServer::Wire::plain);
  server.scriptConnections({devserver::Hold{"never"}}, 2);
  const auto session = URLSession::make(configuration_);
  URLRequest request = requestTo(server.url("/"));
  request.timeoutInterval = 1000s;
  request.allowsConstrainedNetworkAccess = false;
  auto first = testing::start(*session, request);
  clock_->advance(1s);
  request.allowsConstrainedNetworkAccess = true;
  auto second = testing::start(*session, request);
  ASSERT_TRUE(server.waitUntilHeld(1));
  paths->setPath({});
  ASSERT_TRUE(server.waitUntilHeld(2));
  clock_->advance(99s + 500ms);
  EXPECT_EQ(first.outcome().summary(), summaryOf(Code::timedOut));
  EXPECT_EQ(second.task->state(), URLSessionTask::State::running);
  session->close();
}

// Catches bytes sent while nobody knows yet whether the path is to be spared, and requests that
// wait for a monitor without end.
TEST_F(URLSessionTimeoutTests, RequestsThatSpareThePathWaitUntilItIsKnown) {
  TestServer server(TestServer::Wire::plain);
  URLRequest request = requestTo(server.url("/status/200?body=abc"));
  request.allowsConstrainedNetworkAccess = false;
  const std::string refused = summaryOf(Code::notConnectedToInternet);
  struct Case {
    std::optional<bool> isConstrained;  // nothing: the monitor never says
    std::string expected;
  };
  for (const auto& [isConstrained, expected] :
       {Case{true, refused}, Case{false, "200 abc"}, Case{std::nullopt, "200 abc"}}) {
    const auto paths = std::make_shared<testing::ManualPathMonitorFactory>(true);
    const testing::ScopedService scopedPath(services().pathMonitorFactory, paths);
    const auto session = URLSession::make(configuration_);
    const auto before = server.counters().connections;
    auto running = testing::start(*session, request);
    auto cancelled = testing::start(*session, request);
    cancelled.task->cancel();
    EXPECT_EQ(cancelled.outcome().summary(), summaryOf(Code::cancelled));
    EXPECT_EQ(running.future.wait_for(30ms), std::future_status::timeout);
    EXPECT_EQ(server.counters().connections, before);
    if (isConstrained) {
      paths->setPath({.isConstrained = *isConstrained, .isExpensive = true});
    } else {
      clock_->advance(2s);
    }
    EXPECT_EQ(running.outcome().summary(), expected);
    EXPECT_EQ(fetch(*session, request).summary(), expected);
  }
}

// Catches sessions that give up at once although they wait for connectivity, or wait for ever.
TEST_F(URLSessionTimeoutTests, MissingConnectivityIsWaitedForUntilTheResourceLimit) {
  const auto paths = std::make_shared<testing::ManualPathMonitorFactory>();
  const testing::ScopedService scopedPath(services().pathMonitorFactory, paths);
  configuration_.waitsForConnectivity = true;
  const auto session = URLSession::make(configuration_);
  std::vector<testing::RunningTask> tasks;
  // TCP never has a route to a multicast address. More than may be under way at one time.
  for (const char* url : {"http://no-such-host.invalid/", "http://224.0.0.1/"}) {
    for (int i = 0; i < 8; ++i) tasks.push_back(testing::start(*session, requestTo(url)));
  }
  const std::string closedPort = TestServer(TestServer::Wire::plain).baseURL();
  EXPECT_EQ(fetch(*session, requestTo(closedPort)).summary(), summaryOf(Code::cannotConnectToHost));
  tasks[1].task->cancel();
  EXPECT_EQ(tasks[1].outcome().summary(), summaryOf(Code::cancelled));
  // Each attempt says anew how long the task has waited.
  const auto hasWaited = [&](std::chrono::duration<double> span) {
    return eventually([&] { return tasks[8].task->metrics().waiting >= span; });
  };
  paths->setPath({.status = NWPath::Status::unsatisfied});
  clock_->advance(100ms);
  paths->change();
  EXPECT_TRUE(hasWaited(100ms)) << "a link without a way out is an occasion";
  EXPECT_EQ(fetch(*session, requestTo(closedPort)).summary(), summaryOf(Code::cannotConnectToHost));
  clock_->advance(100ms);
  paths->setPath({.status = NWPath::Status::satisfied});
  EXPECT_TRUE(hasWaited(200ms)) << "a change of the path is another";
  clock_->advance(80s);
  EXPECT_TRUE(hasWaited(80s)) << "and so is time";
  tasks.erase(tasks.begin() + 1);
  for (auto& each : tasks) EXPECT_EQ(each.task->state(), URLSessionTask::State::running);
  clock_->advance(30s);
  // Why nothing came about, not that it took too long.
  for (std::size_t i = 0; i < tasks.size(); ++i) {
    const auto code = tasks[i].outcome().code();
    EXPECT_NE(code, Code::timedOut) << i;
    EXPECT_EQ(code == Code::notConnectedToInternet, i >= 7) << i;
  }
}

}  // namespace
}  // namespace ombrix::platform
