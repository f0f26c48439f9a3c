#include <gmock/gmock.h>

#include <map>
#include <string>
#include <vector>

#include "OmbrixCore/Networking/OmbrixTaskPooler.hpp"
#include "OmbrixCore/Networking/Requests/UploadTaskPublisher.hpp"
#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixTesting/EventLog.hpp"
#include "OmbrixTesting/Eventually.hpp"
#include "OmbrixTesting/TestServer.hpp"
#include "Tests/OmbrixCore/Networking/ServerAPIFixture.hpp"

namespace ombrix {
namespace {

using platform::textOf;
using platform::URL;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::TestServer;
using Dictionary = std::map<std::string, platform::JSON>;
using Method = OmbrixServerAPI::HTTPMethod;

/// The client in the development environment against the local web service, over TLS; "staging" is
/// the same service without it.
class ServerAPIEndToEndTests : public ::testing::Test {
 protected:
  ServerAPIEndToEndTests() { OmbrixServerAPI::change(APIEndpoint::development); }

  static ServerConfiguration configurationFor(const TestServer& tls, const TestServer& plain) {
    auto configuration = ServerConfiguration::defaults();
    configuration.development = *URL::parse(tls.baseURL());
    configuration.staging = *URL::parse(plain.baseURL());
    return configuration;
  }

  OmbrixServerAPI& client() { return api_.client(); }
  OmbrixServerAPI::Result<HTTPAnswer> get(std::string_view url) {
    return resultOf(client().publisher(url));
  }
  void logIn() {
    const HTTPPayload body(Dictionary{{"email", "skier@ombrix.test"}, {"password", "powder"}});
    ASSERT_TRUE(resultOf(client().publisher("login", Method::POST, false, body)));
  }
  /// What the server was sent last on a path.
  std::string lastHeader(std::string_view path, std::string_view name) const {
    const auto requests = server.requests(path);
    if (requests.empty()) return "(no request)";
    const auto* value = requests.back()->headers.find(name);
    return value ? *value : "(none)";
  }

  testing::RecordingLog log;
  testing::ScopedDirectories directories;
  TestServer server;
  TestServer plainServer{TestServer::Wire::plain};

 private:
  testing::ScopedServerAPI api_{configurationFor(server, plainServer)};
};

// Catches a token that is not sent, not rotated, or lost with a failed answer.
TEST_F(ServerAPIEndToEndTests, TheTokenRotates) {
  EXPECT_EQ(get("private/echo").error(), HTTPError::unauthorizedError());
  EXPECT_EQ(lastHeader("/private/echo", "Authorization"), "(none)");
  logIn();
  auto token = client().jwtToken();
  ASSERT_TRUE(token);
  server.setTokenRotation(1);
  for (const char* path : {"private/echo", "private/status/404", "private/echo"}) {
    (void)get(path);
    EXPECT_EQ(lastHeader("/" + std::string(path), "Authorization"), "Bearer " + *token);
    EXPECT_NE(client().jwtToken(), token) << path;
    token = client().jwtToken();
  }
}

// Catches a login failure that is reported twice, or not for 400, and one that ends by itself.
TEST_F(ServerAPIEndToEndTests, AnInvalidLoginIsReportedOnce) {
  for (const int status : {400, 401}) {
    std::atomic<int> logouts = 0;
    client().setForceLogoutHandler([&] { ++logouts; });
    const auto path = "status/" + std::to_string(status);
    for (int i = 0; i < 3; ++i) EXPECT_FALSE(get(path));
    EXPECT_TRUE(get("status/200"));
    EXPECT_EQ(logouts, 1) << status;
    EXPECT_TRUE(client().loginError());
    client().clearLoginError();
  }
}

// Catches a maintenance that is reported twice, or does not end with the next answer.
TEST_F(ServerAPIEndToEndTests, MaintenanceBeginsAndEnds) {
  std::atomic<int> maintenances = 0;
  client().setMaintenanceHandler([&] { ++maintenances; });
  server.setMaintenance(true);
  EXPECT_EQ(get("resorts").error(), HTTPError::serverOfflineError());
  EXPECT_EQ(get("resorts").error(), HTTPError::serverOfflineError());
  EXPECT_TRUE(client().serverIsInMaintenanceMode());
  server.setMaintenance(false);
  EXPECT_TRUE(get("resorts"));
  EXPECT_FALSE(client().serverIsInMaintenanceMode());
  EXPECT_EQ(maintenances, 1);
}

// Catches statuses on the wrong side, fields out of order, and redirects that are not followed.
TEST_F(ServerAPIEndToEndTests, StatusesAndRedirects) {
  const std::pair<std::string, std::string> cases[] = {
      {"status/200?body=%5B1%5D", "200 [1]"},
      {"status/304", "304 "},
      {"status/305", "unknown"},
      {"status/404", "resourceNotFoundError"},
      {"status/500", "serverError"},
      {"rate-limit?allow=0", "rateLimitError"},
      {"redirect?to=/status/201", R"(201 {"status":201})"},
      {"invalid?b=two&a=one&b=three", R"(validationError(message: "two)"
                                      "\n"
                                      R"(one", errors: ["a": "one", "b": "two"]))"},
  };
  for (const auto& [path, outcome] : cases) {
    const auto result = get(path);
    EXPECT_EQ(result ? std::to_string(result->code) + " " + std::string(textOf(result->data))
                     : result.error().what(),
              outcome)
        << path;
  }
}

// Catches a body with a charset that is parsed by the operation, and one that cannot be decoded.
TEST_F(ServerAPIEndToEndTests, JSONWithACharset) {
  testing::EventLog events;
  for (const char* path : {"json-charset", "echo"}) {
    const auto operation = std::make_shared<OmbrixAPIHttpRequestOperation>(
        *URL::parse(path, client().endpoint()), Method::GET, platform::HTTPHeaders(),
        [&](bool, int, const platform::JSON* json, const platform::Data*) {
          events.add(json ? "parsed" : "not parsed");
        },
        client().session());
    client().addOperation(operation);
    operation->waitUntilFinished();
  }
  EXPECT_THAT(events.take(), ElementsAre("not parsed", "parsed"));
  EXPECT_TRUE(resultOf(client().publisher<Dictionary>("json-charset")));
}

// A user who reads what the test says.
class Reader final : public platform::LocaleService {
 public:
  explicit Reader(std::size_t count) : count_(count) {}
  platform::Locale current() const override { return platform::Locale("en_US"); }
  std::vector<std::string> preferredLanguages() const override {
    const std::vector<std::string> seven = {"en-US", "de", "fr", "it", "es", "ja", "rm"};
    return {seven.begin(), seven.begin() + static_cast<std::ptrdiff_t>(count_)};
  }

 private:
  void reload() override {}
  const std::size_t count_;
};

// Catches a field that is sent without languages, or not as it was built.
TEST_F(ServerAPIEndToEndTests, LanguagesReachTheServer) {
  const std::pair<std::size_t, std::string> cases[] = {
      {0, "(none)"},
      {1, "en-US, *;q=0.9"},
      {3, "en-US, de;q=0.9, fr;q=0.8, *;q=0.7"},
      {7, "en-US, de;q=0.9, fr;q=0.8, it;q=0.7, es;q=0.6, *;q=0.5"},
  };
  for (const auto& [count, field] : cases) {
    const testing::ScopedService scoped(platform::services().locale,
                                        std::make_shared<Reader>(count));
    EXPECT_TRUE(get("echo"));
    EXPECT_EQ(lastHeader("/echo", "Accept-Language"), field);
    EXPECT_EQ(lastHeader("/echo", "Accept"), "application/json");
  }
}

// Catches a cancelled request that is answered, or that goes on.
TEST_F(ServerAPIEndToEndTests, CancelledByID) {
  server.route("GET", "/held", [](const auto&) {
    return testing::held("gate", devserver::Response::text("late"));
  });
  testing::EventLog events;
  const auto id = client().completionWrapper<HTTPAnswer>(
      client().publisher("held"), [&](const auto&) { events.add("answered"); });
  ASSERT_TRUE(server.waitUntilHeld(1));
  EXPECT_TRUE(client().hasOperations());
  client().cancelRequestWithID(id);
  EXPECT_TRUE(server.waitUntilIdle());
  server.openGate("gate");
  client().waitUntilAllOperationsAreFinished();
  EXPECT_TRUE(testing::eventually([&] { return !client().hasOperations(); }));
  EXPECT_TRUE(get("held"));
  EXPECT_THAT(events.take(), IsEmpty());
}

// Catches identical requests that are sent twice, and a caller without a result.
TEST_F(ServerAPIEndToEndTests, IdenticalRequestsArePooled) {
  server.route("GET", "/held", [](const auto&) {
    return testing::held("gate", devserver::Response::text("shared"));
  });
  OmbrixTaskPooler<HTTPAnswer> pooler;
  std::vector<platform::Task<HTTPAnswer>> callers;
  callers.push_back(pooler.run(client().publisher("held"), "held").start());
  ASSERT_TRUE(server.waitUntilHeld(1));
  for (int i = 0; i < 4; ++i) {
    callers.push_back(pooler.run(client().publisher("held"), "held").start());
  }
  const auto other = pooler.run(client().publisher("resorts"), "resorts").start();
  EXPECT_EQ(other.get().code, 200);
  server.openGate("gate");
  for (const auto& caller : callers) EXPECT_EQ(textOf(caller.get().data), "shared");
  // A caller that came only after the answer asked for itself.
  EXPECT_LT(server.requestCount("/held"), callers.size());
}

// Catches an upload without demand, a body that does not arrive whole, and a wrong answer.
TEST_F(ServerAPIEndToEndTests, UploadsWithDemand) {
  logIn();
  std::string body(1'000'000, 'x');
  for (std::size_t i = 0; i < body.size(); i += 7) body[i] = static_cast<char>('a' + i % 26);
  platform::URLRequest request(*URL::parse("tracks/7", client().endpoint()));
  request.httpMethod = "PUT";
  request.headers.set("Authorization", "Bearer " + *client().jwtToken());
  const auto publisher = uploadTaskPublisher(client().session(), request, platform::dataFrom(body));
  EXPECT_EQ(server.requestCount("/tracks/7"), 0u);
  const auto answer = asAsync(publisher).get();
  const auto* http = dynamic_cast<const platform::HTTPURLResponse*>(answer.response.get());
  ASSERT_NE(http, nullptr);
  EXPECT_EQ(http->statusCode(), 201);
  EXPECT_EQ(platform::JSON::parse(answer.data)["size"], platform::JSON(1'000'000));
  EXPECT_EQ(server.requests("/tracks/7").at(0)->body, body);
}

// Catches requests that go to the environment before, and what was under way there cut off.
TEST_F(ServerAPIEndToEndTests, ChangingTheEnvironment) {
  server.route("GET", "/held", [](const auto&) {
    return testing::held("gate", devserver::Response::text("from before"));
  });
  const auto before = asAsync(client().publisher("held")).start();
  ASSERT_TRUE(server.waitUntilHeld(1));
  OmbrixServerAPI::change(APIEndpoint::staging);
  EXPECT_TRUE(get("resorts"));
  EXPECT_EQ(plainServer.requestCount("/resorts"), 1u);
  EXPECT_EQ(server.requestCount("/resorts"), 0u);
  server.openGate("gate");
  EXPECT_EQ(textOf(before.get().data), "from before");
}

// Catches another server, to which a redirect led, that logs the user out or in, or ends what it
// knows nothing of; and a token that travels there.
TEST_F(ServerAPIEndToEndTests, OtherServersSayNothingOfTheLogin) {
  client().setJwtToken("ours");
  client().triggerMaintenanceMode();
  for (const int status : {200, 401, 503}) {
    server.route("*", "/away", [&](const auto&) {
      return devserver::Response{.status = 307, .headers = {{"Location", plainServer.url("/x")}}};
    });
    plainServer.route("*", "/x", [&](const auto&) {
      return devserver::Response{.status = status, .headers = {{"Authorization", "Bearer theirs"}}};
    });
    EXPECT_EQ(get("away").has_value(), status == 200);
    EXPECT_EQ(plainServer.requests("/x").back()->headers.find("Authorization"), nullptr);
    EXPECT_EQ(client().jwtToken(), "ours");
    EXPECT_FALSE(client().loginError());
    EXPECT_TRUE(client().serverIsInMaintenanceMode());
  }
  const auto asked = plainServer.requestCount("/x");
  const HTTPPayload body(Dictionary{{"a", "b"}});
  EXPECT_FALSE(resultOf(client().publisher("away", Method::POST, false, body)));
  EXPECT_EQ(plainServer.requestCount("/x"), asked);
}

// Catches a self-signed certificate that is accepted for any host, and failures without a case.
TEST_F(ServerAPIEndToEndTests, OnlyTheTestServerIsTrusted) {
  EXPECT_TRUE(get("resorts"));
  const auto port = std::to_string(server.port());
  EXPECT_EQ(get("https://127.0.0.1:" + port + "/resorts").error(), HTTPError::networkError());
  EXPECT_EQ(get("https://localhost:" + port + "/resorts").error(), HTTPError::networkError());
  server.stop();
  EXPECT_EQ(get("resorts").error(), HTTPError::networkError());
  EXPECT_THAT(log.takeErrors(), IsEmpty());
}

}  // namespace
}  // namespace ombrix
