#include "OmbrixCore/Networking/OmbrixServerAPI.hpp"

#include <gmock/gmock.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "OmbrixCore/Networking/Requests/URL+Query.hpp"
#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Network/URLCache.hpp"
#include "OmbrixTesting/EventLog.hpp"
#include "Tests/OmbrixCore/Networking/ServerAPIFixture.hpp"

namespace ombrix {
namespace {

using platform::KeyValueObservingOptions;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class OmbrixServerAPITests : public ServerAPITest {
 protected:
  // Writes every change of a flag down as "key old>new".
  platform::ObservationToken observe(std::string_view key) {
    using enum KeyValueObservingOptions;
    return client().observe(key, oldValue | newValue, [this](const auto& change) {
      changes.add(std::string(change.key) + " " + std::to_string(*change.oldValue) + ">" +
                  std::to_string(*change.newValue));
    });
  }

  testing::EventLog changes;
};

// Catches conditions that follow the wrong answers, or none, handlers that fire on other changes
// than from false to true, and tokens that are lost or keep their prefix.
TEST_F(OmbrixServerAPITests, AnswersSetConditionsAndToken) {
  int logouts = 0, maintenances = 0;
  client().setForceLogoutHandler([&] { ++logouts; });
  client().setMaintenanceHandler([&] { ++maintenances; });
  struct Step {
    int status;
    const char* authorization;
    bool isSuccess, loginError, inMaintenance;
    int logouts, maintenances;
    const char* token;
  };
  // clang-format off: columns
  const Step steps[] = {
      {200, nullptr,                   true,  false, false, 0, 0, nullptr},
      {200, "Bearer abc",              true,  false, false, 0, 0, "abc"},
      {503, nullptr,                   false, false, true,  0, 1, "abc"},
      {503, "Bearer x Bearer y",       false, false, true,  0, 1, "x y"},
      {404, "",                        false, false, false, 0, 1, "x y"},
      {503, nullptr,                   false, false, true,  0, 2, "x y"},
      {304, "plain",                   true,  false, false, 0, 2, "plain"},
      {401, nullptr,                   false, true,  false, 1, 2, "plain"},
      {401, nullptr,                   false, true,  false, 1, 2, "plain"},
      {503, nullptr,                   false, true,  true,  1, 3, "plain"},
      {400, "Bearer of a failure",     false, true,  false, 1, 3, "of a failure"},
      {200, nullptr,                   true,  true,  false, 1, 3, "of a failure"},
      {305, nullptr,                   false, true,  false, 1, 3, "of a failure"},
  };
  // clang-format on
  for (const Step& step : steps) {
    Answer given{.status = step.status};
    if (step.authorization) given.headers.set("Authorization", step.authorization);
    EXPECT_EQ(run(given).has_value(), step.isSuccess) << step.status;
    EXPECT_EQ(client().loginError(), step.loginError) << step.status;
    EXPECT_EQ(client().serverIsInMaintenanceMode(), step.inMaintenance) << step.status;
    EXPECT_EQ(logouts, step.logouts) << step.status;
    EXPECT_EQ(maintenances, step.maintenances) << step.status;
    EXPECT_EQ(client().jwtToken(),
              step.token ? std::optional<std::string>(step.token) : std::nullopt);
  }
  // Only what is no login failure and no maintenance is worth a line.
  std::vector<std::string> lines;
  for (const auto& line : log.lines()) lines.push_back(line.file + ": " + line.message);
  const std::string prefix = "OmbrixCore/Networking/OmbrixServerAPI: Web: Non-OK response from ";
  EXPECT_THAT(lines, ElementsAre(prefix + "server 404", prefix + "server 305"));
  client().clearLoginError();
  EXPECT_EQ(run(Answer{.status = 400}).has_value(), false);
  EXPECT_EQ(logouts, 2);
  // What is no answer says nothing.
  client().triggerMaintenanceMode();
  const platform::URLError late(platform::URLError::Code::timedOut);
  EXPECT_EQ(run(Answer::failure(late)).error(), HTTPError::networkError());
  EXPECT_TRUE(client().serverIsInMaintenanceMode());
}

// Catches repeated notifications, a handler that is called under a lock or for each trigger, and
// the end of a condition within its own handler that gets lost.
TEST_F(OmbrixServerAPITests, ConditionsAreObservable) {
  const auto login = observe("loginError");
  const auto maintenance = observe("serverIsInMaintenanceMode");
  client().setForceLogoutHandler([&] {
    changes.add("logout");
    client().clearLoginError();
    EXPECT_FALSE(client().loginError());
  });
  client().triggerLoginError();
  EXPECT_THAT(changes.take(), ElementsAre("loginError 0>1", "logout", "loginError 1>0"));
  client().clearLoginError();
  client().triggerMaintenanceMode();
  client().triggerMaintenanceMode();
  client().clearMaintenanceMode();
  EXPECT_THAT(changes.take(),
              ElementsAre("serverIsInMaintenanceMode 0>1", "serverIsInMaintenanceMode 1>0"));
}

// Catches a flag that announces nothing any more after one exception out of a handler.
TEST_F(OmbrixServerAPITests, AnExceptionOutOfAHandlerStopsTheProgram) {
  client().setForceLogoutHandler([] { throw std::runtime_error("no window"); });
  EXPECT_DEATH(client().triggerLoginError(), "no window");
}

// Catches two threads that announce one change, or lose one.
TEST_F(OmbrixServerAPITests, RacingTriggersAreOneTransition) {
  std::atomic<int> logouts = 0;
  client().setForceLogoutHandler([&] { ++logouts; });
  const auto token = observe("loginError");
  for (int round = 0; round < 200; ++round) {
    {
      std::vector<std::jthread> threads;
      for (int i = 0; i < 3; ++i) threads.emplace_back([&] { client().triggerLoginError(); });
    }
    EXPECT_EQ(logouts, round + 1);
    client().clearLoginError();
    EXPECT_THAT(changes.take(), ElementsAre("loginError 0>1", "loginError 1>0"));
  }
}

// Catches a path that is not taken over, and notifications without a change.
TEST_F(OmbrixServerAPITests, FlagsFollowThePath) {
  using enum platform::NWPath::Status;
  EXPECT_TRUE(client().isReachable());
  std::vector<platform::ObservationToken> tokens;
  for (const char* key : {"isReachable", "isLimited", "isExpensive"})
    tokens.push_back(observe(key));
  const struct {
    platform::NWPath path;
    std::vector<std::string> changes;
  } cases[] = {
      {{unsatisfied, false, false}, {"isReachable 1>0"}},
      {{requiresConnection, false, false}, {"isReachable 0>1"}},
      {{satisfied, true, false}, {"isLimited 0>1"}},
      {{satisfied, true, true}, {"isExpensive 0>1"}},
      {{unsatisfied, false, true}, {"isReachable 1>0", "isLimited 1>0"}},
  };
  for (const auto& test : cases) {
    paths->setPath(test.path);
    EXPECT_EQ(changes.take(), test.changes);
    EXPECT_EQ(client().isReachable(), test.path.status != unsatisfied);
    EXPECT_EQ(client().isLimited(), test.path.isConstrained);
    EXPECT_EQ(client().isExpensive(), test.path.isExpensive);
  }
}

// Catches a count of external requests that goes below none, and a flag that does not follow the
// queue.
TEST_F(OmbrixServerAPITests, HasOperationsFollowsQueueAndExternalRequests) {
  const auto token = observe("hasOperations");
  client().completeExternalHTTPRequest();
  client().trackExternalHTTPRequest();
  client().trackExternalHTTPRequest();
  client().completeExternalHTTPRequest();
  EXPECT_TRUE(client().hasOperations());
  client().completeExternalHTTPRequest();
  EXPECT_THAT(changes.take(), ElementsAre("hasOperations 0>1", "hasOperations 1>0"));

  answer([](const auto&) { return std::nullopt; });
  const auto running = client().publisher("resorts").sink(nullptr, nullptr);
  EXPECT_TRUE(client().hasOperations());
  session()->complete(0, {});
  EXPECT_THAT(changes.takeOnce("hasOperations 1>0"),
              ElementsAre("hasOperations 0>1", "hasOperations 1>0"));
  EXPECT_FALSE(client().hasOperations());
}

// Catches a server that is not the local one and is yet looked for on the loopback address, or
// believed whatever certificate it has.
TEST_F(OmbrixServerAPITests, TheTestServerIsOneOfAReservedName) {
  const std::pair<std::string, std::string> rows[] = {
      {"https://API.Ombrix.Test:8443/", "api.ombrix.test"},
      {"https://127.0.0.1:8443/", ""},
      {"https://localhost/", ""},
      {"https://test/", ""},
      {"https://ombrix.test.example/", ""},
      {"https://ombrix-test/", ""},
  };
  for (const auto& [url, host] : rows) {
    auto configuration = ServerConfiguration::defaults();
    configuration.development = *platform::URL::parse(url);
    EXPECT_EQ(configuration.testHost(), host);
    client().setConfiguration(configuration);
    const auto fake = session();
    EXPECT_EQ(fake->configuration().loopbackHosts,
              host.empty() ? std::vector<std::string>{} : std::vector<std::string>{host});
    const auto asked = configuration.development.host().value();
    fake->delegate()->didReceiveChallenge(
        *fake, {{asked, 443, platform::SecTrust{{platform::dataFrom("certificate")}}}},
        [&](auto, const auto& credential) { EXPECT_EQ(credential.has_value(), !host.empty()); });
  }
}

// Catches a request to the environment before, and a token that goes to another server.
TEST_F(OmbrixServerAPITests, ChangingTheEnvironment) {
  answer(Answer{});
  const std::pair<APIEndpoint, std::string> cases[] = {
      {APIEndpoint::staging, "dev.ombrix.example"},
      {APIEndpoint::development, "api.ombrix.test"},
      {APIEndpoint::production, "api.ombrix.example"},
  };
  std::vector<std::shared_ptr<testing::FakeURLSession>> sessions = {session()};
  EXPECT_EQ(client().baseHost(), "api.ombrix.example");
  for (const auto& [endpoint, host] : cases) {
    client().setJwtToken("token");
    OmbrixServerAPI::change(endpoint);
    EXPECT_EQ(client().endPoint(), endpoint);
    EXPECT_EQ(client().baseHost(), host);
    EXPECT_EQ(client().baseURL(), "https://" + host + "/");
    EXPECT_EQ(client().endpoint().absoluteString(), "https://" + host + "/");
    EXPECT_EQ(client().apiEndpoint().absoluteString(), "https://" + host + "/api/v1/");
    EXPECT_THAT(sessions, ::testing::Not(::testing::Contains(session())));
    sessions.push_back(session());
    EXPECT_TRUE(resultOf(client().publisher("resorts")));
    const auto request = session()->request(0);
    EXPECT_EQ(request.url.absoluteString(), "https://" + host + "/resorts");
    EXPECT_EQ(request.headers.value("Authorization"), std::nullopt);
  }
  auto configuration = ServerConfiguration::defaults();
  configuration.production = *platform::URL::parse("https://other.test:8443/x/");
  client().setConfiguration(configuration);
  EXPECT_EQ(client().baseURL(), "https://other.test:8443/x/");
  EXPECT_EQ(platform::rawValue(APIEndpoint::staging), "Staging");
  EXPECT_EQ(platform::fromRawValue<APIEndpoint>("Development"), APIEndpoint::development);
}

// Catches a request of the environment before that gets the new one's token, or whose answer logs
// the user out of the new one.
TEST_F(OmbrixServerAPITests, RequestsOfTheEnvironmentBeforeAreOfNoConcern) {
  answer(Answer{.status = 401, .headers = {{"Authorization", "Bearer of before"}}});
  const auto before = session();
  const auto publisher = client().publisher("resorts");
  OmbrixServerAPI::change(APIEndpoint::staging);
  client().setJwtToken("of staging");
  EXPECT_EQ(resultOf(publisher).error(), HTTPError::unauthorizedError());
  EXPECT_EQ(before->request(0).headers.value("Authorization"), std::nullopt);
  EXPECT_EQ(client().jwtToken(), "of staging");
  EXPECT_FALSE(client().loginError());
}

// Catches caches that are not counted or not cleared.
TEST_F(OmbrixServerAPITests, CachesAreCountedAndCleared) {
  const auto cache = client().session()->configuration().urlCache;
  const auto before = client().cacheSize() - cache->currentDiskUsage();
  const platform::URLRequest request(client().endpoint());
  const auto body = std::make_shared<const platform::Data>(100'000);
  cache->storeCachedResponse(
      {std::make_shared<const platform::HTTPURLResponse>(
           request.url, 200, platform::HTTPHeaders{{"Cache-Control", "max-age=60"}}),
       body},
      request);
  cache->flush();
  EXPECT_TRUE(cache->cachedResponse(request));
  EXPECT_EQ(client().cacheSize(), before + cache->currentDiskUsage());
  client().clearCaches();
  EXPECT_FALSE(cache->cachedResponse(request));
}

// Catches escapes and separators other than those that are sent today.
TEST(URLQueryTests, PathsAndComponents) {
  const auto base = *platform::URL::parse("https://api.ombrix.example/v1/");
  const std::string root = "https://api.ombrix.example/v1/";
  const struct {
    std::string path;
    std::optional<QueryComponents> components;
    std::optional<std::string> url;
  } cases[] = {
      {"resorts", std::nullopt, root + "resorts"},
      {"resorts", QueryComponents{}, root + "resorts?"},
      {"resorts", {{{"b", "1"}, {"a", "2"}}}, root + "resorts?b=1&a=2"},
      {"resorts?", {{{"q", "a b"}}}, root + "resorts?q=a%20b"},
      {"resorts?x=1", {{{"q", "1"}}}, root + "resorts?x=1?q=1"},
      {"resorts", {{{"k&=", "v&=?/"}}}, root + "resorts?k&==v&=?/"},
      {"resorts", {{{"é", "100%"}}}, root + "resorts?%C3%A9=100%25"},
      {"/top", {{{"q", "?"}, {"r", "1"}}}, "https://api.ombrix.example/top?q=?r=1"},
      {"https://other.example/", {{{"q", "1"}}}, "https://other.example/?q=1"},
      {"no blanks", std::nullopt, std::nullopt},
  };
  for (const auto& test : cases) {
    const auto url = urlWithQueryComponenets(test.path, base, test.components);
    EXPECT_EQ(url ? std::optional(url->absoluteString()) : std::nullopt, test.url) << test.path;
  }
}

// Catches messages that go to the wrong case, and generic errors without a sentence.
TEST(OmbrixServerAPIMessageTests, MessagesForUsers) {
  constexpr auto kGeneric = "An unknown error occurred. Sorry, please try again later.";
  const std::pair<HTTPError, std::string> cases[] = {
      {HTTPError::validationError("as it stands", {}), "as it stands"},
      {HTTPError::invalidBody(platform::DecodingError::dataCorrupted("x", {})),
       "The response was malformed. Please contact support for further assistance."},
      {HTTPError::resourceNotFoundError(), "Sorry it looks like that link isn't valid."},
      {HTTPError::networkError(), "Couldn\u2019t contact the server. Are you offline?"},
      {HTTPError::serverError(),
       "There was an unexpected error on the server. Sorry, please try again later."},
      {HTTPError::badRequestError(),
       "The request was malformed. Please contact support for further assistance."},
      {HTTPError::unauthorizedError(),
       "There was an issue with your username or password. You might try logging out and back in "
       "again."},
      {HTTPError::rateLimitError(),
       "You\u2019ve been trying to do that a lot in the last few minutes. Please wait 15 minutes "
       "to "
       "try again."},
      {HTTPError::forbidden(),
       "You are not authorized to perform that action. The link may be expired."},
      {HTTPError::serverOfflineError(),
       "Sorry! Looks like the Ombrix servers are undergoing maintenance. Please try again in a "
       "bit."},
      {HTTPError::resourceDeletedError(), kGeneric},
      {HTTPError::missingBody(), kGeneric},
      {HTTPError::canceled(), kGeneric},
  };
  for (const auto& [error, message] : cases) {
    EXPECT_EQ(OmbrixServerAPI::errorMessageForError(&error), message) << error.what();
    EXPECT_EQ(OmbrixServerAPI::errorMessageForError(std::make_exception_ptr(error)), message);
  }
  EXPECT_EQ(OmbrixServerAPI::errorMessageForError(nullptr), kGeneric);
  EXPECT_EQ(OmbrixServerAPI::errorMessageForError(std::exception_ptr()), kGeneric);
  const OmbrixServerAPI::Result<int> success = 1,
                                     failure = std::unexpected(HTTPError::validationError("v", {}));
  EXPECT_EQ(OmbrixServerAPI::errorMessageForResult(failure), "v");
  EXPECT_EQ(OmbrixServerAPI::errorMessageForResult(success), kGeneric);
  EXPECT_EQ(OmbrixServerAPI::errorMessageForError(std::make_exception_ptr(std::runtime_error("x"))),
            kGeneric);
}

}  // namespace
}  // namespace ombrix
