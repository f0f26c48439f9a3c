#pragma once

#include <map>
#include <string>

#include "OmbrixTesting/TestServer.hpp"
#include "Tests/OmbrixCore/Networking/ServerAPIFixture.hpp"

namespace ombrix {

/// The client in the development environment against the local web service, over TLS; "staging" is
/// the same service without it.
class LocalServiceTest : public ::testing::Test {
 protected:
  using Method = OmbrixServerAPI::HTTPMethod;

  LocalServiceTest() { OmbrixServerAPI::change(APIEndpoint::development); }

  static ServerConfiguration configurationFor(const testing::TestServer& tls,
                                              const testing::TestServer& plain) {
    auto configuration = ServerConfiguration::defaults();
    configuration.development = *platform::URL::parse(tls.baseURL());
    configuration.staging = *platform::URL::parse(plain.baseURL());
    return configuration;
  }

  OmbrixServerAPI& client() { return api_.client(); }
  OmbrixServerAPI::Result<HTTPAnswer> get(std::string_view url) {
    return resultOf(client().publisher(url));
  }
  void logIn() {
    using Dictionary = std::map<std::string, platform::JSON>;
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
  testing::TestServer server;
  testing::TestServer plainServer{testing::TestServer::Wire::plain};

 private:
  testing::ScopedServerAPI api_{configurationFor(server, plainServer)};
};

}  // namespace ombrix
