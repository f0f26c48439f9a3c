#include "OmbrixCore/Networking/Requests/HttpRequestOperation.hpp"

#include <gmock/gmock.h>

#include <future>
#include <string>
#include <vector>

#include "OmbrixCore/Concurrency/Publisher+Async.hpp"
#include "OmbrixCore/Networking/Requests/HTTPRequestOperationPublisher.hpp"
#include "OmbrixPlatform/Concurrency/Task.hpp"
#include "OmbrixTesting/EventLog.hpp"
#include "OmbrixTesting/Eventually.hpp"
#include "OmbrixTesting/FakeURLSession.hpp"
#include "OmbrixTesting/RecordingLog.hpp"

namespace ombrix {
namespace {

using platform::URLError;
using platform::URLRequest;
using ::testing::ElementsAre;
using testing::FakeURLSession;
using ::testing::IsEmpty;
using Answer = FakeURLSession::Answer;
using Method = HttpRequestOperation::HTTPMethod;
using Operation = std::shared_ptr<HttpRequestOperation>;

const platform::URL kURL = *platform::URL::parse("https://api.ombrix.example/resorts");

Operation makeOperation(const std::shared_ptr<FakeURLSession>& session,
                        HttpRequestOperation::Callback callback = nullptr,
                        Method method = Method::GET, platform::HTTPHeaders headers = {}) {
  return std::make_shared<HttpRequestOperation>(kURL, method, std::move(headers),
                                                std::move(callback), session);
}

// Writes outcomes as one line: success, code, JSON, body.
HttpRequestOperation::Callback recorder(testing::EventLog& events) {
  return [&events](bool success, int code, const platform::JSON* json, const platform::Data* data) {
    events.add(std::string(success ? "+" : "-") + std::to_string(code) + " " +
               (json ? std::string(platform::textOf(json->rawData())) : "nil") + " " +
               (data ? std::string(platform::textOf(*data)) : "nil"));
  };
}

void run(const Operation& operation) {
  operation->start();
  operation->waitUntilFinished();
}

struct Name {
  std::string name;
  static constexpr auto kCodingFields =
      platform::codingFields(platform::field("name", &Name::name));
};
struct Uncodable {
  double value = std::numeric_limits<double>::infinity();
  static constexpr auto kCodingFields =
      platform::codingFields(platform::field("value", &Uncodable::value));
};

// Catches a body of the wrong kind, a missing content type, and fields that do not reach the
// request.
TEST(HttpRequestOperationTests, TheRequestSaysWhatTheOperationSays) {
  const auto session = FakeURLSession::make();
  using Payload = std::optional<HTTPPayload>;
  using Json = std::optional<platform::JSON>;
  const HTTPPayload bytes(platform::dataFrom("raw")), value(Name{"Zermatt"});
  const platform::JSON json(platform::JSON::Array{1, "a"});
  const struct {
    Method method;
    Payload payload;
    Json json;
    std::optional<std::string> body;
  } cases[] = {
      {Method::GET, {}, {}, {}},
      {Method::DELETE, {}, {}, {}},
      {Method::POST, bytes, {}, "raw"},
      {Method::PUT, value, {}, R"({"name":"Zermatt"})"},
      {Method::PATCH, {}, json, R"([1,"a"])"},
      {Method::POST, value, json, R"([1,"a"])"},
  };  // clang-format: keeps columns
  for (const auto& test : cases) {
    const auto operation =
        makeOperation(session, nullptr, test.method, {{"X-A", "1"}, {"Content-Type", "text/x"}});
    operation->setPayload(test.payload);
    operation->setJsonPayload(test.json);
    const auto request = operation->buildRequest();
    ASSERT_TRUE(request);
    EXPECT_EQ(request->url, kURL);
    EXPECT_EQ(request->httpMethod, platform::rawValue(test.method));
    EXPECT_EQ(request->headers.value("X-A"), "1");
    EXPECT_EQ(request->headers.value("Content-Type"), test.body ? "application/json" : "text/x");
    EXPECT_EQ(request->httpBody ? std::optional(std::string(platform::textOf(*request->httpBody)))
                                : std::nullopt,
              test.body);
    EXPECT_EQ(request->timeoutInterval, std::chrono::seconds(60));
    EXPECT_EQ(request->cachePolicy, URLRequest::CachePolicy::useProtocolCachePolicy);
    EXPECT_TRUE(request->allowsConstrainedNetworkAccess);
    operation->setSafeForLowData(false);
    EXPECT_FALSE(operation->buildRequest()->allowsConstrainedNetworkAccess);
  }
}

// Catches a payload without an encoding that reaches the network or is not reported.
TEST(HttpRequestOperationTests, APayloadThatCannotBeEncodedEndsWith400) {
  testing::RecordingLog log;
  const auto session = FakeURLSession::make();
  testing::EventLog events;
  const auto operation = makeOperation(session, recorder(events), Method::POST);
  operation->setPayload(HTTPPayload(Uncodable{}));
  run(operation);
  EXPECT_THAT(events.take(), ElementsAre("-400 nil nil"));
  EXPECT_EQ(session->madeCount(), 0u);
  EXPECT_THAT(log.takeErrors(), ElementsAre("Web: Could not encode HTTP body for call to "
                                            "https://api.ombrix.example/resorts"));
}

// Catches an outcome in the wrong class, JSON of the wrong type, and missing log lines.
TEST(HttpRequestOperationTests, OutcomesOfATask) {
  using enum URLError::Code;
  const platform::HTTPHeaders json = {{"content-type", "application/json"}};
  const platform::HTTPHeaders charset = {{"Content-Type", "application/json; charset=utf-8"}};
  const auto constrained = URLError::NetworkUnavailableReason::constrained;
  const std::string nonOK = "Web: Non-OK response from server ";
  const struct {
    Answer answer;
    std::string outcome;
    std::string log;
  } cases[] = {
      {{200, json, "[1]"}, "+200 [1] [1]", ""},
      {{200, charset, "[1]"}, "+200 nil [1]", ""},
      {{200, {}, "[1]"}, "+200 nil [1]", ""},
      {{204, json}, "+204 nil nil", ""},
      {{304, {}}, "+304 nil nil", ""},
      {{199, {}}, "-199 nil nil", nonOK + "199"},
      {{305, {}}, "-305 nil nil", nonOK + "305"},
      {{404, json, "{}"}, "-404 {} {}", nonOK + "404"},
      {{200, json, "[1"}, "+200 nil [1", "Web: Error decoding JSON: "},
      {{.isHTTP = false}, "--1 nil nil", "Web: Server response was not HTTP, likely offline: nil"},
      {Answer::failure(URLError(timedOut, "too slow")), "--1 nil nil",
       "Web: Server response was not HTTP, likely offline: too slow"},
      {Answer::failure(URLError(notConnectedToInternet, "x", constrained)), "--2 nil nil",
       "Web: HTTP request failed, low data prevented it"},
      {Answer::failure(URLError(cancelled)), "--3 nil nil", "Web: HTTP request canceled locally"},
  };
  for (const auto& test : cases) {
    testing::RecordingLog log;
    testing::EventLog events;
    run(makeOperation(FakeURLSession::make([&](const URLRequest&) { return test.answer; }),
                      recorder(events)));
    EXPECT_THAT(events.take(), ElementsAre(test.outcome));
    const auto lines = log.lines();
    EXPECT_EQ(lines.size(), test.log.empty() ? 0u : 1u) << test.outcome;
    if (!lines.empty()) {
      EXPECT_THAT(lines[0].message, ::testing::StartsWith(test.log));
      EXPECT_EQ(lines[0].file, "OmbrixCore/Networking/HttpRequestOperation");
    }
    log.takeErrors();
  }
}

// Catches callbacks of a cancelled operation, a task that runs on, and an operation that stays.
TEST(HttpRequestOperationTests, ACancelledOperationIsSilent) {
  const auto session = FakeURLSession::make();
  testing::EventLog events;
  const auto early = makeOperation(session, recorder(events));
  early->cancel();
  run(early);
  EXPECT_EQ(session->madeCount(), 0u);

  const auto running = makeOperation(session, recorder(events));
  running->setCombineCallback([&](auto...) { events.add("combine"); });
  running->start();
  session->request(0);
  const auto task = running->task();
  ASSERT_NE(task, nullptr);
  running->cancel();
  running->waitUntilFinished();
  EXPECT_EQ(task->state(), platform::URLSessionTask::State::completed);
  EXPECT_EQ(running->task(), nullptr);
  running->setCombineCallback([&](auto...) { events.add("late"); });
  running->endTaskAndCallbackWithSuccess(true, 200);
  EXPECT_THAT(events.take(), IsEmpty());
}

// Catches an operation or what its callbacks hold that outlives its end, and callbacks in the wrong
// order.
TEST(HttpRequestOperationTests, AFinishedOperationHoldsNothing) {
  for (const bool isCancelled : {false, true}) {
    const auto session = FakeURLSession::make();
    testing::EventLog events;
    auto held = std::make_shared<int>(0);
    auto operation = makeOperation(session);
    operation = std::make_shared<HttpRequestOperation>(
        kURL, Method::GET, platform::HTTPHeaders(),
        [&, held, operation](auto...) { events.add("main"); }, session);
    operation->setCombineCallback([&, held, operation](bool success, int code, auto data) {
      events.add("combine " + std::to_string(success) + std::to_string(code) +
                 std::to_string(data ? data->size() : 0));
    });
    const std::weak_ptr weakHeld = std::exchange(held, nullptr);
    operation->start();
    session->request(0);
    if (isCancelled) {
      operation->cancel();
    } else {
      session->complete(0, {.body = "four"});
    }
    operation->waitUntilFinished();
    EXPECT_EQ(events.take(), isCancelled ? std::vector<std::string>{}
                                         : std::vector<std::string>({"main", "combine 12004"}));
    EXPECT_TRUE(testing::eventually([&] { return weakHeld.expired(); }));
    const std::weak_ptr weak = operation;
    const auto id = operation->taskID();
    EXPECT_EQ(HttpRequestOperation::withTaskID(id), operation);
    operation = nullptr;
    EXPECT_TRUE(testing::eventually([&] { return weak.expired(); }));
    EXPECT_EQ(HttpRequestOperation::withTaskID(id), nullptr);
  }
}

// A subscriber that writes down what it gets and asks when the test says so.
class Recorder final : public platform::Subscriber<HTTPAnswer, HTTPError> {
 public:
  void receiveSubscription(std::shared_ptr<platform::Subscription> given) override {
    subscription = std::move(given);
  }
  platform::Demand receiveValue(const HTTPAnswer& answer) override {
    events.add(std::to_string(answer.code) + " " + std::string(platform::textOf(answer.data)));
    return platform::Demand::none();
  }
  void receiveCompletion(const platform::Completion<HTTPError>& completion) override {
    events.add(completion.isFinished() ? "finished" : completion.failure()->what());
  }

  std::shared_ptr<platform::Subscription> subscription;
  testing::EventLog events;
};

// Catches a failure of the wrong case, an answer without demand, and one after cancelling.
TEST(HTTPRequestOperationPublisherTests, AnswersByDemand) {
  using platform::Demand;
  const std::vector<std::string> nothing;
  const struct {
    std::optional<Demand> demand;
    Answer answer;
    std::vector<std::string> events;
  } cases[] = {
      {Demand::max(1), {200, {}, "body"}, {"200 body", "finished"}},
      {Demand::unlimited(), {204, {}}, {"204 ", "finished"}},
      {Demand::unlimited(), {503, {}}, {"serverOfflineError"}},
      {Demand::max(2), Answer::failure(URLError(URLError::Code::timedOut)), {"networkError"}},
      {Demand::max(2),
       {422, {}, R"({"errors":{"b":["2"],"a":["1"]}})"},
       {R"(validationError(message: "2)"
        "\n"
        R"(1", errors: ["a": "1", "b": "2"]))"}},
      {std::nullopt, {200, {}, "body"}, nothing},
  };
  for (const auto& test : cases) {
    const auto operation = makeOperation(FakeURLSession::make([&](auto&) { return test.answer; }));
    const auto subscriber = std::make_shared<Recorder>();
    HTTPRequestOperationPublisher(operation).receive(subscriber);
    if (test.demand) subscriber->subscription->request(*test.demand);
    run(operation);
    EXPECT_EQ(subscriber->events.take(), test.events);
    subscriber->subscription->cancel();
  }
}

// Catches a wait for an operation that nobody runs, nor can any more.
TEST(HTTPRequestOperationPublisherTests, AWaitEndsWithTheOperationThatNobodyRuns) {
  auto operation = makeOperation(FakeURLSession::make());
  auto answer = asAsync(HTTPRequestOperationPublisher(operation)).start();
  EXPECT_FALSE(answer.isFinished());
  operation = nullptr;
  try {
    answer.get();
    FAIL() << "an answer came from nowhere";
  } catch (const HTTPError& error) {
    EXPECT_EQ(error, HTTPError::canceled());
  }
}

// Catches an override that holds up what it has delivered, and whoever waits in line, by going on.
TEST(HTTPRequestOperationPublisherTests, AnOverrideThatGoesOnHoldsNothingUp) {
  class Lingering final : public HttpRequestOperation {
   public:
    using HttpRequestOperation::HttpRequestOperation;
    void handle(const platform::HTTPURLResponse& response, const platform::Error*,
                std::optional<platform::JSON> json, std::optional<platform::Data> data) override {
      endTaskAndCallbackWithSuccess(true, response.statusCode(), std::move(json), std::move(data));
      delivered.set_value(subscriber->events.takeOnce("finished"));
    }
    std::promise<std::vector<std::string>> delivered;
    const std::shared_ptr<Recorder> subscriber = std::make_shared<Recorder>();
  };
  const auto queue = platform::DispatchQueue::concurrent("delivery");
  const auto operation = std::make_shared<Lingering>(
      kURL, Method::GET, platform::HTTPHeaders(), nullptr,
      FakeURLSession::make([](auto&) { return Answer{200, {}, "body"}; }));
  HTTPRequestOperationPublisher(operation, queue).receive(operation->subscriber);
  operation->subscriber->subscription->request(platform::Demand::max(1));
  operation->start();
  EXPECT_THAT(operation->delivered.get_future().get(), ElementsAre("200 body", "finished"));
}

TEST(HTTPRequestOperationPublisherTests, AskingForNothingStopsTheProgram) {
  const auto subscriber = std::make_shared<Recorder>();
  HTTPRequestOperationPublisher(makeOperation(FakeURLSession::make())).receive(subscriber);
  EXPECT_DEATH(subscriber->subscription->request(platform::Demand::none()), "no values");
  subscriber->subscription->cancel();
}

}  // namespace
}  // namespace ombrix
