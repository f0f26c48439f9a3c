#include <gmock/gmock.h>

#include <atomic>
#include <future>
#include <latch>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "OmbrixPlatform/Concurrency/Task.hpp"
#include "OmbrixTesting/EventLog.hpp"
#include "OmbrixTesting/ManualClock.hpp"
#include "Tests/OmbrixCore/Networking/ServerAPIFixture.hpp"

namespace ombrix {
namespace {

using platform::Async;
using platform::URLError;
using platform::URLRequest;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

/// Retries as soon as the server lets it.
RetryPolicy hasty() {
  RetryPolicy policy;
  policy.random = [] { return 0.0; };
  return policy;
}

HTTPError failureOf(int status, platform::HTTPHeaders headers = {}) {
  const auto response = std::make_shared<const platform::HTTPURLResponse>(
      *platform::URL::parse("https://api.ombrix.example/a"), status, std::move(headers));
  return HTTPError::withStatusCode(status).causedBy({.code = status, .response = response});
}

class RequestPoliciesTests : public ServerAPITest {
 protected:
  /// Answers attempt after attempt; those after the last one as that.
  void answerInTurn(std::vector<Answer> answers) {
    answer([answers, next = std::make_shared<std::atomic<std::size_t>>(0)](const auto&) {
      return std::optional(answers[std::min((*next)++, answers.size() - 1)]);
    });
  }
  /// Tells of each attempt's end.
  auto listener() {
    return [events = events](const AttemptReport& report) {
      events->add(report.request + " " + std::to_string(report.code) + " " +
                  std::to_string(report.metrics.attempt) + " " +
                  (report.next ? std::to_string(static_cast<int>(report.next->count())) : "-"));
    };
  }
  OmbrixServerAPI::Result<HTTPAnswer> send(Method method, RequestOptions options) {
    return resultOf(client().publisher("a?secret=1", method, std::move(options)));
  }

  std::shared_ptr<testing::EventLog> events = std::make_shared<testing::EventLog>();
  std::shared_ptr<testing::ManualClock> clock = std::make_shared<testing::ManualClock>();

 private:
  testing::ScopedService<platform::Clock> scopedClock_{platform::services().clock, clock};
};

// Catches requests that are made again though their effect might double, or though it cannot help;
// and those that are not made again, or for ever.
TEST_F(RequestPoliciesTests, WhatIsMadeAgain) {
  const auto timedOut = Answer::failure(URLError(URLError::Code::timedOut));
  const auto cancelled = Answer::failure(URLError(URLError::Code::cancelled));
  const struct {
    Method method;
    bool isMarked;
    std::vector<Answer> answers;
    std::size_t attempts;
    int code;  // of the answer; 0 for a failure
  } rows[] = {
      {Method::GET, false, {{.status = 200}}, 1, 200},
      {Method::GET, false, {{.status = 503}, {.status = 429}, {.status = 201}}, 3, 201},
      {Method::GET, false, {{.status = 503}}, 3, 0},
      {Method::PUT, false, {timedOut, {.status = 200}}, 2, 200},
      {Method::DELETE, false, {{.isHTTP = false}}, 1, 0},
      {Method::POST, false, {{.status = 503}}, 1, 0},
      {Method::PATCH, false, {timedOut}, 1, 0},
      {Method::POST, true, {{.status = 503}, {.status = 200}}, 2, 200},
      {Method::GET, false, {{.status = 404}}, 1, 0},
      {Method::GET, false, {{.status = 400}}, 1, 0},
      {Method::GET, false, {cancelled}, 1, 0},
  };
  for (const auto& row : rows) {
    answerInTurn(row.answers);
    const auto before = session()->resumedCount();
    EXPECT_EQ(send(row.method, {}).has_value(), row.answers.front().status == 200 &&
                                                    !row.answers.front().error &&
                                                    row.answers.front().isHTTP);
    EXPECT_EQ(session()->resumedCount(), before + 1) << "nothing is made again by itself";
    answerInTurn(row.answers);
    const auto result = send(row.method, {.retry = hasty(), .mayBeRepeated = row.isMarked});
    EXPECT_EQ(result ? result->code : 0, row.code);
    EXPECT_EQ(session()->resumedCount(), before + 1 + row.attempts);
    if (result) {
      EXPECT_EQ(result->metrics.attempt, row.attempts);
    }
  }
}

// Catches a wrong pause: one that is shorter than the server wants, grows beyond its bound, or is
// taken from what is no "Retry-After".
TEST_F(RequestPoliciesTests, Pauses) {
  const std::tuple<int, std::string, std::optional<double>> rows[] = {
      {1, "", 0.25},
      {2, "", 0.5},
      {3, "", 1},
      {7, "", 10},
      {2'000'000, "", 10},
      {1, "0", 0.25},
      {1, " 7 ", 7},
      {1, "60", 60},
      {1, "61", std::nullopt},
      {1, "99999999999999999999999999", std::nullopt},
      {1, "-3", 0.25},
      {1, "soon", 0.25},
      {1, "Tue, 14 Nov 2023 22:13:50 GMT", 30},  // now: 22:13:20
      {1, "Tuesday, 14-Nov-23 22:13:50 GMT", 30},
      {1, "Tue, 14 Nov 2023 22:10:00 GMT", 0.25},
      {1, "Wed, 15 Nov 2023 22:13:20 GMT", std::nullopt},
  };
  RetryPolicy policy;
  policy.random = [] { return 0.5; };
  for (const auto& [retry, field, seconds] : rows) {
    platform::HTTPHeaders headers;
    if (!field.empty()) headers.set("Retry-After", field);
    const auto pause = policy.pauseBefore(retry, failureOf(503, headers));
    ASSERT_EQ(pause.has_value(), seconds.has_value()) << field;
    if (pause) {
      EXPECT_DOUBLE_EQ(pause->count(), *seconds) << retry << field;
    }
  }
  policy.decides = [](const HTTPError& error) { return error.kind() == HTTPError::Case::unknown; };
  EXPECT_EQ(policy.pauseBefore(1, failureOf(503)), std::nullopt);
  EXPECT_TRUE(policy.pauseBefore(1, failureOf(409)));
}

// Catches retries beyond the budget that requests share, and later than they may begin.
TEST_F(RequestPoliciesTests, BudgetAndTimeAreKept) {
  auto policy = hasty();
  policy.budget = std::make_shared<RetryBudget>(1, 0.5);
  const std::pair<int, std::size_t> rows[] = {{503, 2}, {503, 1}, {200, 1}, {503, 1},
                                              {200, 1}, {200, 1}, {503, 2}};
  for (const auto& [status, attempts] : rows) {
    answer(Answer{.status = status});
    const auto before = session()->resumedCount();
    (void)send(Method::GET, {.retry = policy});
    EXPECT_EQ(session()->resumedCount(), before + attempts);
  }

  answer(Answer{.status = 503, .headers = {{"Retry-After", "7"}}});
  policy = hasty();
  policy.totalTime = std::chrono::seconds(10);
  client().setPolicies({.retry = policy, .listeners = {listener()}});
  const auto request = client().get("a").start();
  EXPECT_THAT(events->takeOnce("GET https://api.ombrix.example/a 503 1 7").size(), 1u);
  clock->advance(std::chrono::seconds(7));
  EXPECT_THROW(request.get(), HTTPError);
  EXPECT_THAT(events->take(), ElementsAre("GET https://api.ombrix.example/a 503 2 -"));
}

// Catches a pause that outlives who waits for it, in whatever form, and a wait for all answers that
// does not wait for it.
TEST_F(RequestPoliciesTests, EveryPauseCanBeEnded) {
  answer(Answer{.status = 503, .headers = {{"Retry-After", "30"}}});
  client().setPolicies({.retry = hasty(), .listeners = {listener()}});
  const std::string paused = "GET https://api.ombrix.example/a 503 1 30";
  const auto answers = std::make_shared<std::atomic<int>>(0);
  const auto count = [answers](const auto&) { ++*answers; };

  const auto id = client().completionWrapper(client().publisher("a"), count);
  events->takeOnce(paused);
  client().cancelRequestWithID(id);
  auto subscription = client().publisher("a").sink(count, count);
  events->takeOnce(paused);
  subscription.cancel();
  const auto task = client().get("a").start();
  events->takeOnce(paused);
  task.cancel();
  EXPECT_THROW(task.get(), platform::CancellationError);
  const auto other = client().get("a").start();
  events->takeOnce(paused);
  client().cancelAllOperations();
  EXPECT_THROW(other.get(), HTTPError);
  clock->advance(std::chrono::seconds(60));
  client().waitUntilAllAnswersAreDelivered();
  EXPECT_EQ(*answers, 0);
  EXPECT_EQ(session()->resumedCount(), 4u);

  answerInTurn({{.status = 503, .headers = {{"Retry-After", "30"}}}, {.status = 200}});
  client().completionWrapper(client().publisher("a"), count);
  events->takeOnce(paused);
  const std::jthread waiting([this, answers] {
    client().waitUntilAllAnswersAreDelivered();
    EXPECT_EQ(*answers, 1);
  });
  clock->advance(std::chrono::seconds(30));
}

class TokenRefresherTests : public RequestPoliciesTests {
 protected:
  using Refresh = std::function<Async<std::string>(RequestOptions)>;

  /// A service that takes one token, and whose path "token" gives it to those who know how to ask.
  TokenRefresherTests() {
    answer([](const URLRequest& request) -> std::optional<Answer> {
      if (request.url.path() == "/token") return std::nullopt;
      return Answer{.status = request.headers.value("Authorization") == "Bearer new" ? 200 : 401};
    });
    client().setJwtToken("old");
    client().setForceLogoutHandler([logouts = logouts] { ++*logouts; });
  }
  void refreshBy(Refresh refresh, std::function<void(const AttemptReport&)> listen = nullptr) {
    RequestPolicies policies{.tokenRefresher = TokenRefresher{.refresh = std::move(refresh)}};
    if (listen) policies.listeners.push_back(std::move(listen));
    client().setPolicies(std::move(policies));
  }
  /// Answers the request for a token once it is there.
  void answerTokenRequest(Answer with) {
    for (std::size_t i = 0;; ++i) {
      if (session()->request(i).url.path() != "/token") continue;
      return session()->complete(i, std::move(with));
    }
  }

  std::shared_ptr<std::atomic<int>> logouts = std::make_shared<std::atomic<int>>(0);
};

// Catches a refresh for each request or for one of them alone, requests that are not made once
// more, a refused token told as the end of the login, and a refresh that waits for itself.
TEST_F(TokenRefresherTests, OneRefreshForManyRefusals) {
  constexpr int kRequests = 8;
  const auto refreshes = std::make_shared<std::atomic<int>>(0);
  const auto refused = std::make_shared<std::latch>(kRequests);
  refreshBy(
      [this, refreshes](RequestOptions own) -> Async<std::string> {
        ++*refreshes;
        auto request = client().get("token", own);
        co_await std::move(request);
        co_return "new";
      },
      [refused](const AttemptReport& report) {
        if (report.code == 401) refused->count_down();
      });
  std::vector<platform::Task<HTTPAnswer>> tasks;
  for (int i = 0; i < kRequests; ++i) {
    tasks.push_back(client().send("a", i % 2 == 0 ? Method::GET : Method::POST, {}).start());
  }
  refused->wait();
  tasks.front().cancel();  // whoever gives up takes the refresh from nobody
  EXPECT_THROW(tasks.front().get(), platform::CancellationError);
  tasks.erase(tasks.begin());
  answerTokenRequest({});
  for (const auto& task : tasks) {
    const auto answer = task.get();
    EXPECT_EQ(answer.code, 200);
    EXPECT_EQ(answer.metrics.attempt, 2);
  }
  EXPECT_EQ(*refreshes, 1);
  EXPECT_EQ(session()->resumedCount(), 2 * kRequests);
  EXPECT_EQ(client().jwtToken(), "new");
  EXPECT_FALSE(client().loginError());
  EXPECT_EQ(resultOf(client().publisher("a"))->metrics.attempt, 1);
}

// Catches a failed refresh after which requests wait on, or that is not told as the end of the
// login, once; and refreshes where none can help.
TEST_F(TokenRefresherTests, WithoutANewTokenAllFail) {
  const auto held = std::make_shared<std::vector<platform::Continuation<void>>>();
  const std::pair<const char*, Refresh> rows[] = {
      {"throws",
       [](RequestOptions) -> Async<std::string> {
         throw std::runtime_error("s3cret");
         co_return "";
       }},
      {"empty", [](RequestOptions) -> Async<std::string> { co_return ""; }},
      {"the same", [](RequestOptions) -> Async<std::string> { co_return "old"; }},
      {"refused as well",
       [this](RequestOptions own) -> Async<std::string> {
         auto request = client().get("a", own);
         co_await std::move(request);
         co_return "new";
       }},
      {"waits for itself",
       [this](RequestOptions) -> Async<std::string> {
         auto request = client().get("a");
         co_await std::move(request);
         co_return "new";
       }},
      {"never ends",
       [held](RequestOptions) -> Async<std::string> {
         const std::function<void(platform::Continuation<void>)> hold =
             [held](platform::Continuation<void> continuation) {
               held->push_back(std::move(continuation));
             };
         auto wait = platform::withContinuation<void>(hold);
         co_await std::move(wait);
         co_return "new";
       }},
  };
  for (const auto& [name, refresh] : rows) {
    SCOPED_TRACE(name);
    client().clearLoginError();
    *logouts = 0;
    refreshBy(refresh);
    const auto first = client().get("a").start();
    const auto second = client().get("a").start();
    // The last two wait for the clock.
    for (const auto& task : {first, second}) {
      while (!task.isFinished()) {
        clock->advance(std::chrono::seconds(31));
        std::this_thread::yield();
      }
      try {
        task.get();
        ADD_FAILURE() << "a token from nowhere";
      } catch (const HTTPError& error) {
        EXPECT_EQ(error, HTTPError::unauthorizedError());
      }
    }
    EXPECT_TRUE(client().loginError());
    EXPECT_EQ(*logouts, 1);
  }
  EXPECT_EQ(client().jwtToken(), "old");
  for (const auto& line : log.lines()) EXPECT_THAT(line.message, Not(HasSubstr("s3cret")));
}

// Catches refreshes where none can help: of a login, of one that declines, and again and again.
TEST_F(TokenRefresherTests, SomeRefusalsAreTheAnswer) {
  const auto refreshes = std::make_shared<std::atomic<int>>(0);
  const struct {
    const char* token;
    bool declines;
    int refreshes;
    std::size_t attempts;
  } rows[] = {{nullptr, false, 0, 1}, {"old", true, 0, 1}, {"old", false, 1, 2}};
  refreshBy([refreshes](RequestOptions /*own*/) -> Async<std::string> {
    ++*refreshes;
    co_return "no better";
  });
  for (const auto& row : rows) {
    client().clearLoginError();
    client().setJwtToken(row.token ? std::optional<std::string>(row.token) : std::nullopt);
    *refreshes = 0;
    const auto before = session()->resumedCount();
    const auto result = send(Method::GET, {.refreshesToken = !row.declines});
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error(), HTTPError::unauthorizedError());
    EXPECT_EQ(*refreshes, row.refreshes);
    EXPECT_EQ(session()->resumedCount(), before + row.attempts);
    EXPECT_TRUE(client().loginError());
  }
}

/// Tells what passes, changes it, and refuses what it is told to.
class Passing final : public RequestInterceptor {
 public:
  Passing(std::string name, std::shared_ptr<testing::EventLog> events)
      : name_(std::move(name)), events_(std::move(events)) {}

  void goesOut(URLRequest& request, int attempt) override {
    if (request.url.path() == "/refused") throw std::runtime_error("not this one");
    events_->add(name_ + " out " + std::to_string(attempt));
    request.headers.add("X-Passed", name_);
  }
  void comesIn(Answer& answer) override {
    events_->add(name_ + " in " + (answer ? std::to_string(answer->code) : answer.error().what()));
    if (answer && answer->code == 202) answer = std::unexpected(HTTPError::forbidden());
    if (!answer && answer.error() == HTTPError::rateLimitError()) answer = HTTPAnswer{.code = 207};
  }

 private:
  const std::string name_;
  const std::shared_ptr<testing::EventLog> events_;
};

// Catches interceptors and listeners that are passed by, are called in another order, or see what
// is secret in a listener's report; in each form of a request.
TEST_F(RequestPoliciesTests, WhatPassesInterceptorsAndListeners) {
  client().setPolicies({.retry = hasty(),
                        .interceptors = {std::make_shared<Passing>("first", events),
                                         std::make_shared<Passing>("second", events)},
                        .listeners = {listener()}});
  const std::string line = "GET https://api.ombrix.example/a ";
  const auto outcomeOf = [this](int form) -> std::string {
    const auto publisher = client().publisher("a?secret=1");
    OmbrixServerAPI::Result<HTTPAnswer> result;
    if (form == 0) {
      result = resultOf(publisher);
    } else if (form == 1) {
      const auto told = std::make_shared<std::promise<OmbrixServerAPI::Result<HTTPAnswer>>>();
      client().completionWrapper(publisher, [told](auto answer) { told->set_value(answer); });
      result = told->get_future().get();
    } else {
      try {
        result = client().get("a?secret=1").get();
      } catch (const HTTPError& error) {
        result = std::unexpected(error);
      }
    }
    return result ? std::to_string(result->code) : result.error().what();
  };
  for (int form = 0; form < 3; ++form) {
    answerInTurn({{.status = 503}, {.status = 200}});
    EXPECT_EQ(outcomeOf(form), "200");
    EXPECT_THAT(events->take(),
                ElementsAre("first out 1", "second out 1", "second in serverOfflineError",
                            "first in serverOfflineError", line + "503 1 0", "first out 2",
                            "second out 2", "second in 200", "first in 200", line + "200 2 -"));
    answer(Answer{.status = 202});
    EXPECT_EQ(outcomeOf(form), "forbidden");
    answer(Answer{.status = 429});
    EXPECT_EQ(outcomeOf(form), "207");
    events->take();
  }
  EXPECT_EQ(session()->request(0).headers.value("X-Passed"), "first, second");
  const auto before = session()->madeCount();
  EXPECT_EQ(resultOf(client().publisher("refused")).error(), HTTPError::badRequestError());
  EXPECT_EQ(session()->madeCount(), before);
  EXPECT_THAT(log.takeErrors(), ElementsAre(HasSubstr("not this one")));
}

}  // namespace
}  // namespace ombrix
