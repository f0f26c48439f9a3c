#include <gmock/gmock.h>

#include <map>
#include <string>
#include <vector>

#include "OmbrixCore/Networking/Requests/UploadTaskPublisher.hpp"
#include "OmbrixTesting/TestServer.hpp"
#include "Tests/OmbrixCore/Networking/ServerAPIFixture.hpp"

namespace ombrix {
namespace {

using platform::textOf;
using platform::URL;
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

// Catches tokens and maintenance lost with an answer that a stale one stands in for.
TEST_F(ServerAPIEndToEndTests, NoAnswerIsHiddenByAStaleOne) {
  const std::pair<const char*, int> rows[]{{"stale-if-error", 503},
                                           {"stale-while-revalidate", 200}};
  for (const auto& [allowed, status] : rows) {
    const std::string path = "/" + std::string(allowed);
    const auto answer = [&](int code, const char* token) {
      const std::string control = "max-age=0, " + std::string(allowed) + "=600";
      server.route("GET", path, [=](const auto&) {
        return devserver::Response{
            .status = code,
            .headers = {{"Cache-Control", control}, {"Authorization", token}},
            .body = std::to_string(code)};
      });
    };
    answer(200, "Bearer old");
    ASSERT_TRUE(get(path));
    answer(status, "Bearer new");
    EXPECT_EQ(get(path).has_value(), status == 200);
    EXPECT_EQ(client().jwtToken(), "new") << allowed;
    EXPECT_EQ(client().serverIsInMaintenanceMode(), status == 503);
  }
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
