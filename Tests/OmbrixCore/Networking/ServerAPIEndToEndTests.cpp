#include <gmock/gmock.h>

#include <map>
#include <string>

#include "Tests/OmbrixCore/Networking/LocalServiceFixture.hpp"

namespace ombrix {
namespace {

using ::testing::IsEmpty;
using Dictionary = std::map<std::string, platform::JSON>;

using ServerAPIEndToEndTests = LocalServiceTest;

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
