#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "OmbrixPlatform/Coding/JSON.hpp"
#include "OmbrixTesting/ScopedDir.hpp"
#include "OmbrixTesting/TestServer.hpp"
#include "Tests/Tools/DevServer/CurlClient.hpp"

namespace ombrix::devserver {
namespace {

using ombrix::testing::TestServer;
using platform::JSON;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr auto kLogin = R"({"email": "skier@ombrix.test", "password": "powder"})";

void signIn(CurlClient& client) {
  client.token = JSON::parse(client.send("POST", "/login", kLogin).body)["token"].stringValue();
}

TEST(DevServerService, SignsInAndRotatesTokensWhileOldOnesStayValid) {
  TestServer server;
  CurlClient client(server);
  EXPECT_EQ(client.get("/days").status, 401);
  EXPECT_EQ(
      client.send("POST", "/login", R"({"email": "skier@ombrix.test", "password": "?"})").status,
      401);
  EXPECT_EQ(client.send("POST", "/login", "{").status, 400);
  EXPECT_EQ(client.send("POST", "/login", "{}").status, 422);

  const Answer login = client.send("POST", "/login", kLogin);
  client.token = JSON::parse(login.body)["token"].stringValue();
  EXPECT_EQ(login.headers.value("Authorization"), "Bearer " + client.token);
  server.setTokenRotation(2);
  EXPECT_EQ(client.get("/days").headers.find("Authorization"), nullptr);
  const Answer rotated = client.get("/days");
  EXPECT_THAT(std::string(rotated.headers.value("Authorization")), StartsWith("Bearer "));
  EXPECT_NE(rotated.headers.value("Authorization"), "Bearer " + client.token);
  EXPECT_EQ(client.get("/days").status, 200) << "the older token";
  server.revokeTokens();
  EXPECT_EQ(client.get("/days").status, 401);
}

TEST(DevServerService, NamesTheFieldsOfBadInputInOrder) {
  TestServer server(TestServer::Wire::plain);
  CurlClient client(server);
  const Answer account =
      client.send("POST", "/account", R"({"password": "a", "email": "skier@ombrix.test"})");
  EXPECT_EQ(account.status, 422);
  EXPECT_EQ(account.body,
            R"({"message":"The given data was invalid.","errors":{"name":["The name is missing."],)"
            R"("email":["The email is taken."],)"
            R"("password":["The password is too short.","The password needs a digit."]}})");
  EXPECT_THAT(client.get("/invalid?z=one&z=two&a=three").body,
              HasSubstr(R"("errors":{"z":["one","two"],"a":["three"]})"));
  EXPECT_EQ(client
                .send("POST", "/account",
                      R"({"name": "Ada", "email": "ada@ombrix.test", "password": "powder2"})")
                .status,
            201);
}

TEST(DevServerService, KeepsDaysAndDescribesTracks) {
  TestServer server;
  CurlClient client(server);
  signIn(client);
  const Answer stored = client.send("POST", "/days", R"({"id": "d1", "vertical": 4200})");
  EXPECT_EQ(stored.status, 201);
  EXPECT_EQ(stored.headers.value("Location"), "/days/d1");
  EXPECT_EQ(client.get("/days").body, R"([{"id":"d1","vertical":4200}])");
  EXPECT_EQ(client.send("PUT", "/days/d1", R"({"vertical": 1})").status, 200);
  EXPECT_EQ(client.get("/days/d1").body, R"({"vertical":1,"id":"d1"})");
  EXPECT_EQ(client.send("POST", "/days", "[]").status, 422);
  EXPECT_EQ(client.send("DELETE", "/days/d1").status, 204);
  EXPECT_EQ(client.get("/days/d1").status, 404);

  const Answer track = client.send("PUT", "/tracks/t1", "abc", {"Transfer-Encoding: chunked"});
  EXPECT_EQ(track.status, 201);
  EXPECT_THAT(track.body, HasSubstr(R"("size":3,"sha256":"ba7816bf8f01cfea)"));
  EXPECT_EQ(client.send("PATCH", "/tracks/t1").status, 405);
  EXPECT_EQ(JSON::parse(client.get("/resorts").body)[1]["name"].stringValue(), "Großkogel");
}

TEST(DevServerService, CountsAndRecordsWhatItReceives) {
  TestServer::Options options = TestServer::optionsFor(TestServer::Wire::plain);
  options.mostRecordedRequests = 2;
  options.mostRecordedBodyBytes = 4;
  TestServer server(options);
  CurlClient client(server);
  server.route("POST", "/here/*", [](const Request& request) {
    return Response::text(request.rest + ":" + request.body);
  });
  EXPECT_EQ(client.get("/gone").status, 404);
  EXPECT_EQ(client.send("POST", "/here/a%20b?x=1+2", "123456").body, "a b:123456");
  EXPECT_EQ(client.send("POST", "/here/c", "1").body, "c:1");
  ASSERT_TRUE(server.waitUntilIdle());
  const Counters counters = server.counters();
  EXPECT_EQ(counters.requests, 3u);
  EXPECT_EQ(counters.connections, 1u);
  EXPECT_EQ(counters.mostInFlight, 1u);
  EXPECT_EQ(server.requestCount("/here/a b"), 1u);
  const auto requests = server.requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0]->body, "1234");
  EXPECT_EQ(requests[0]->query.value("x"), "1 2");
  EXPECT_EQ(requests[1]->path, "/here/c");
}

TEST(DevServerService, ShowsTheCertificateAskedFor) {
  const struct {
    Certificate certificate;
    CURLcode error;
  } cases[] = {
      {Certificate::selfSigned, CURLE_OK},
      {Certificate::fromAuthority, CURLE_OK},
      {Certificate::wrongHost, CURLE_PEER_FAILED_VERIFICATION},
      {Certificate::expired, CURLE_PEER_FAILED_VERIFICATION},
  };
  for (const auto& [certificate, error] : cases) {
    TestServer::Options options;
    options.certificate = certificate;
    TestServer server(options);
    EXPECT_EQ(CurlClient(server).get("/resorts").error, error) << static_cast<int>(certificate);
  }
}

TEST(DevServerService, EndsWithRequestsInFlight) {
  TestServer server;
  CurlClient client(server);
  Answer answer;
  server.route("GET", "/held", [](const Request&) { return Response::following({Hold{"never"}}); });
  std::thread caller([&] { answer = client.get("/held"); });
  EXPECT_TRUE(server.waitUntilHeld(1));
  server.stop();
  caller.join();
  EXPECT_NE(answer.error, CURLE_OK);
  EXPECT_EQ(server.counters().openConnections, 0u);
}

}  // namespace
}  // namespace ombrix::devserver
