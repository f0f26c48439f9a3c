#include <gmock/gmock.h>

#include <semaphore>
#include <string>
#include <vector>

#include "OmbrixCore/Networking/OmbrixTaskPooler.hpp"
#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixTesting/EventLog.hpp"
#include "OmbrixTesting/Eventually.hpp"
#include "Tests/OmbrixCore/Networking/ServerAPIFixture.hpp"

namespace ombrix {
namespace {

using platform::textOf;
using platform::URLRequest;
using ::testing::ElementsAre;
using testing::EventLog;
using ::testing::IsEmpty;

class OmbrixServerAPIRequestTests : public ServerAPITest {
 protected:
  std::shared_ptr<OmbrixAPIHttpRequestOperation> makeOperation(
      HttpRequestOperation::Callback callback = nullptr) {
    return std::make_shared<OmbrixAPIHttpRequestOperation>(client().endpoint(), Method::GET,
                                                           platform::HTTPHeaders(),
                                                           std::move(callback), client().session());
  }
};

// Catches weights that are off or printed with rounding errors, and entries too many.
TEST(AcceptLanguageTests, WeightsFallWithTheOrder) {
  const std::vector<std::string> seven = {"en-US", "de", "fr", "it", "es", "ja", "rm"};
  const std::pair<std::size_t, std::string> cases[] = {
      {0, ""},
      {1, "en-US, *;q=0.9"},
      {2, "en-US, de;q=0.9, *;q=0.8"},
      {3, "en-US, de;q=0.9, fr;q=0.8, *;q=0.7"},
      {5, "en-US, de;q=0.9, fr;q=0.8, it;q=0.7, es;q=0.6, *;q=0.5"},
      {7, "en-US, de;q=0.9, fr;q=0.8, it;q=0.7, es;q=0.6, *;q=0.5"},
  };
  for (const auto& [count, field] : cases) {
    EXPECT_EQ(acceptLanguageField(std::span(seven).first(count)), field);
  }
}

// Catches header fields that are missing, and cache policies that the wrong flag sets.
TEST_F(OmbrixServerAPIRequestTests, WhatTheServiceIsSent) {
  const testing::ScopedLocale locale("de_CH", {"de-CH", "en"});
  const auto operation = makeOperation();
  EXPECT_EQ(operation->attempt(), 1);
  EXPECT_FALSE(operation->usesAuth());
  auto request = operation->buildRequest();
  EXPECT_EQ(request->headers.value("Authorization"), std::nullopt);
  EXPECT_EQ(request->headers.value("Accept"), "application/json");
  EXPECT_EQ(request->headers.value("Accept-Language"), "de-CH, en;q=0.9, *;q=0.8");
  client().setJwtToken("abc");
  EXPECT_EQ(operation->buildRequest()->headers.value("Authorization"), "Bearer abc");
  using enum URLRequest::CachePolicy;
  const std::tuple<bool, bool, URLRequest::CachePolicy> policies[] = {
      {false, false, useProtocolCachePolicy},
      {false, true, returnCacheDataDontLoad},
      {true, false, reloadIgnoringLocalCacheData},
      {true, true, reloadIgnoringLocalCacheData},
  };
  for (const auto& [disableCashe, cacheOnly, policy] : policies) {
    operation->setDisableCashe(disableCashe);
    operation->setCacheOnly(cacheOnly);
    EXPECT_EQ(operation->buildRequest()->cachePolicy, policy);
  }
}

// Catches variants that hand over something else than the body, and URLs that end elsewhere.
TEST_F(OmbrixServerAPIRequestTests, PublishersInFourForms) {
  answer(Answer{.body = R"({"name":"Zermatt","id":7})"});
  EXPECT_EQ(resultOf(client().publisher("a"))->code, 200);
  EXPECT_EQ(textOf(*resultOf(client().dataPublisher("a"))), R"({"name":"Zermatt","id":7})");
  EXPECT_EQ(*resultOf(client().stringPublisher("a")), R"({"name":"Zermatt","id":7})");
  using Dictionary = std::map<std::string, platform::JSON>;
  EXPECT_EQ(resultOf(client().publisher<Dictionary>("a"))->at("id"), platform::JSON(7));

  answer(Answer{.body = "\xff"});
  EXPECT_EQ(*resultOf(client().stringPublisher("a")), std::nullopt);
  answer(Answer{.status = 404});
  EXPECT_EQ(resultOf(client().publisher<Dictionary>("a")).error(),
            HTTPError::resourceNotFoundError());
  EXPECT_THAT(log.takeErrors(), IsEmpty());
  answer(Answer{.body = "[]"});
  EXPECT_EQ(resultOf(client().publisher<Dictionary>("a")).error().kind(),
            HTTPError::Case::invalidBody);
  EXPECT_THAT(log.takeErrors(),
              ElementsAre(::testing::StartsWith("Web: Could not decode HTTP body: ")));
}

// Catches a path that is not resolved against the base URL, a payload that is not sent, and a cache
// flag that is raised.
TEST_F(OmbrixServerAPIRequestTests, PublishersBuildTheirRequest) {
  answer(Answer{});
  const std::pair<std::string, std::string> urls[] = {
      {"days/1", "https://api.ombrix.example/days/1"},
      {"/days", "https://api.ombrix.example/days"},
      {"https://other.example/x?y", "https://other.example/x?y"},
  };
  std::size_t count = 0;
  for (const auto& [text, url] : urls) {
    ASSERT_TRUE(
        resultOf(client().publisher(text, Method::PUT, true, HTTPPayload(std::vector<int>{1, 2}))));
    const auto request = session()->request(count++);
    EXPECT_EQ(request.url.absoluteString(), url);
    EXPECT_EQ(request.httpMethod, "PUT");
    EXPECT_EQ(textOf(*request.httpBody), "[1,2]");
    EXPECT_EQ(request.cachePolicy, URLRequest::CachePolicy::useProtocolCachePolicy);
  }
  EXPECT_EQ(resultOf(client().publisher("no blanks")).error(), HTTPError::badRequestError());
  EXPECT_EQ(session()->madeCount(), count);
}

// Catches values and failures that arrive elsewhere than on the client's queue: a completion that
// is called before its caller has the ID to cancel it by.
TEST_F(OmbrixServerAPIRequestTests, PublishersDeliverOnTheAPIQueue) {
  answer(Answer{});
  for (const char* url : {"a", "no blanks"}) {
    std::binary_semaphore ended{0};
    bool isOnQueue = false;
    client().completionWrapper(client().publisher(url), [&](const auto&) {
      isOnQueue = OmbrixServerAPI::dispatchQueue()->isCurrent();
      ended.release();
    });
    ended.acquire();
    EXPECT_TRUE(isOnQueue) << url;
  }
}

// Catches completions that are called twice, not at all, or after cancelling, and entries that
// stay.
TEST_F(OmbrixServerAPIRequestTests, CompletionWrappers) {
  EventLog events;
  const auto completion = [&](const OmbrixServerAPI::Result<HTTPAnswer>& result) {
    events.add(result ? std::to_string(result->code) : result.error().what());
  };
  const auto objc = [&](bool success, const std::optional<HTTPAnswer>& value,
                        const std::optional<HTTPError>& error) {
    events.add(std::to_string(success) + (value ? std::to_string(value->code) : "-") +
               (error ? error->what() : "-"));
  };
  answer(Answer{.status = 201});
  client().completionWrapper<HTTPAnswer>(client().publisher("a"), completion);
  EXPECT_THAT(events.takeOnce("201"), ElementsAre("201"));
  client().objcWrapper<HTTPAnswer>(client().publisher("a"), objc);
  EXPECT_THAT(events.takeOnce("1201-"), ElementsAre("1201-"));
  answer(Answer{.status = 403});
  client().completionWrapper<HTTPAnswer>(client().publisher("a"), completion);
  EXPECT_THAT(events.takeOnce("forbidden"), ElementsAre("forbidden"));
  client().objcWrapper<HTTPAnswer>(client().publisher("a"), objc);
  EXPECT_THAT(events.takeOnce("0-forbidden"), ElementsAre("0-forbidden"));
  // A publisher that ends at once, inside of the call.
  using Publisher = OmbrixServerAPI::APIPublisher<HTTPAnswer>;
  client().completionWrapper<HTTPAnswer>(Publisher::fail(HTTPError::unknown()), completion);
  client().completionWrapper<HTTPAnswer>(Publisher::just({299, {}}), completion);
  EXPECT_THAT(events.take(), ElementsAre("unknown", "299"));

  answer([](const auto&) { return std::nullopt; });
  const auto before = session()->resumedCount();
  auto held = std::make_shared<int>();
  const auto id = client().completionWrapper<HTTPAnswer>(
      client().publisher("a"), [&, held](const auto& result) { completion(result); });
  const std::weak_ptr weak = std::exchange(held, nullptr);
  session()->request(before);
  client().cancelRequestWithID(id);
  session()->complete(before, {});
  client().waitUntilAllOperationsAreFinished();
  EXPECT_THAT(events.take(), IsEmpty());
  EXPECT_TRUE(testing::eventually([&] { return weak.expired(); }));
}

// Catches another operation that is cancelled, one that is not on the queue, and an answer of a
// cancelled one.
TEST_F(OmbrixServerAPIRequestTests, CancellingByID) {
  EventLog events;
  answer([](const auto&) { return std::nullopt; });
  std::vector<std::shared_ptr<OmbrixAPIHttpRequestOperation>> operations;
  for (int i = 0; i < 8; ++i) {
    operations.push_back(makeOperation([&, i](auto...) { events.add(std::to_string(i)); }));
  }
  const auto apart = operations.back();
  operations.pop_back();
  for (const auto& operation : operations) client().addOperation(operation);
  session()->request(5);
  for (const auto& each : {operations[6], operations[1], apart}) {
    client().cancelRequestWithID(each->taskID());
  }
  client().cancelRequestWithID(platform::UUID::random());
  EXPECT_FALSE(apart->isCancelled());
  for (std::size_t i = 0; i < 6; ++i) session()->complete(i, {});
  client().waitUntilAllOperationsAreFinished();
  EXPECT_EQ(session()->resumedCount(), 6u);
  auto lines = events.take();
  std::ranges::sort(lines);
  EXPECT_THAT(lines, ElementsAre("0", "2", "3", "4", "5"));
}

// Catches requests that wait for a place behind less urgent ones.
TEST_F(OmbrixServerAPIRequestTests, UrgentRequestsPassTheOthers) {
  answer([](const auto&) { return std::nullopt; });
  using Priority = RequestOptions::Priority;
  const auto ask = [&](const char* path, Priority priority) {
    client().completionWrapper(
        client().publisher(path, Method::GET, RequestOptions{.priority = priority}),
        [](const auto&) {});
  };
  for (int i = 0; i < 6; ++i) ask("first", Priority::normal);
  session()->request(5);
  ask("low", Priority::low);
  ask("normal", Priority::normal);
  ask("high", Priority::high);
  std::size_t place = 0;
  for (const char* path : {"/high", "/normal", "/low"}) {
    session()->complete(place, {});
    EXPECT_EQ(session()->request(6 + place++).url.path(), path);
  }
}

// Catches a wait that lasts for ever once its operation is cancelled, in any form, and an entry or
// a key that stays.
TEST_F(OmbrixServerAPIRequestTests, WaitsForACancelledRequestEnd) {
  answer([](const auto&) { return std::nullopt; });
  const auto given = asAsync(client().publisher("a")).start();
  session()->request(0);
  given.cancel();
  EXPECT_THROW(given.get(), platform::CancellationError);
  client().waitUntilAllOperationsAreFinished();

  OmbrixTaskPooler<HTTPAnswer> pooler;
  const auto awaited = asAsync(client().publisher("a")).start();
  const auto pooled = pooler.run(client().publisher("b"), "b").start();
  auto held = std::make_shared<int>();
  client().completionWrapper<HTTPAnswer>(client().publisher("c"),
                                         [held](const auto&) { ADD_FAILURE(); });
  for (std::size_t i = 1; i <= 3; ++i) session()->request(i);
  client().cancelAllOperations();
  for (const auto& wait : {awaited, pooled}) {
    try {
      wait.get();
      ADD_FAILURE();
    } catch (const HTTPError& error) {
      EXPECT_EQ(error, HTTPError::canceled());
    }
  }
  EXPECT_TRUE(testing::eventually([&] { return held.use_count() == 1; }));
  answer(Answer{.status = 201});
  EXPECT_EQ(pooler.run(client().publisher("b"), "b").get().code, 201);
}

// Catches a second subscription that sends the request again, or stops without naming it.
TEST_F(OmbrixServerAPIRequestTests, SubscribingTwiceStopsTheProgram) {
  answer(Answer{});
  EXPECT_DEATH(
      {
        const auto publisher = client().publisher("a?token=secret");
        const auto first = publisher.sink(nullptr, nullptr);
        const auto second = publisher.sink(nullptr, nullptr);
      },
      "GET https://api.ombrix.example/a was subscribed to again");
}

// Catches a formatter that cannot be replaced, or reads something else than it writes.
TEST(LocalTimezoneFormatterTests, LocalTimes) {
  const auto standard = OmbrixServerAPI::localTimezoneFormatter();
  const auto date = standard->dateFrom("2024-02-03T04:05:06");
  ASSERT_TRUE(date);
  EXPECT_EQ(standard->stringFrom(*date), "2024-02-03T04:05:06");
  OmbrixServerAPI::setLocalTimezoneFormatter(
      std::make_shared<const platform::DateFormatter>("yyyy"));
  EXPECT_EQ(OmbrixServerAPI::localTimezoneFormatter()->stringFrom(*date), "2024");
  OmbrixServerAPI::setLocalTimezoneFormatter(standard);
}

}  // namespace
}  // namespace ombrix
