#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "OmbrixTesting/Processes/EtcdServer.hpp"
#include "OmbrixTesting/ScopedDir.hpp"
#include "Program.hpp"

namespace ombrix::hostapp {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

/// Two devices of one user, each with a settings folder of its own, and a cloud between them.
class CloudTests : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!testing::EtcdServer::isInstalled()) {
      GTEST_SKIP() << "etcd is not installed (scripts/setup --with-servers)";
    }
    server.emplace(dir.path() / "server");
    ::setenv("OMBRIX_CLOUD", server->url().absoluteString().c_str(), 1);
  }
  void TearDown() override { ::unsetenv("OMBRIX_CLOUD"); }

  std::string on(const std::string& device, const std::string& arguments) const {
    ::setenv("XDG_CONFIG_HOME", (dir.path() / device).c_str(), 1);
    return run(dir, "settings " + arguments).output;
  }

  const testing::ScopedDir dir;
  std::optional<testing::EtcdServer> server;
};

// Catches values that win on the wrong side when sync is turned on.
TEST_F(CloudTests, WhoseValuesWinIsTheUsersChoice) {
  on("phone", "set syncPreferences false");
  on("phone", "set metricType british");
  on("desktop", "set syncPreferences false");
  on("desktop", "set metricType kilometers");
  EXPECT_THAT(on("phone", "sync status"), HasSubstr("in the cloud: nothing"));

  EXPECT_THAT(on("phone", "sync enable --local-wins"), HasSubstr("units = british"));
  EXPECT_THAT(on("desktop", "sync enable --cloud-wins"), HasSubstr("units = british"));
  EXPECT_EQ(on("desktop", "get metricType"), "british\n");
  EXPECT_EQ(on("desktop", "get syncPreferences"), "true\n");

  EXPECT_EQ(on("desktop", "set metricType miles"), "");
  EXPECT_EQ(on("phone", "get metricType"), "british\n");  // nothing comes in by itself
  EXPECT_THAT(on("phone", "sync enable --cloud-wins"), HasSubstr("units = miles"));
  EXPECT_EQ(on("phone", "get metricType"), "miles\n");

  EXPECT_THAT(on("phone", "sync reset"), ::testing::Not(HasSubstr("units")));
  EXPECT_EQ(on("desktop", "get metricType"), "miles\n");
}

// Catches a login that is not made, and a change that is said to be kept and is dropped.
TEST_F(CloudTests, TheServerMayBeSecureAndWantALogin) {
  server.emplace(dir.path() / "secure", testing::EtcdServer::Options{true, {}});
  server->requireLogin("skier", "powder", "ombrix/");
  std::ofstream(dir.path() / "password") << "powder\n";
  std::ofstream(dir.path() / "wrong") << "slush\n";
  ::setenv("OMBRIX_CLOUD", server->url().absoluteString().c_str(), 1);
  on("phone", "set metricType british");
  ::setenv("OMBRIX_CLOUD_CA", server->certificateAuthority().c_str(), 1);
  EXPECT_THAT(on("phone", "sync enable --local-wins"),
              AllOf(HasSubstr("the server asks for a login"), HasSubstr("kept and sent later")));
  EXPECT_THAT(on("phone", "--cloud-user skier --cloud-password-file wrong sync status"),
              HasSubstr("authentication failed"));
  EXPECT_THAT(on("phone", "--cloud-user skier --cloud-password-file password sync status"),
              HasSubstr("in the cloud:"));
  ::setenv("OMBRIX_CLOUD_PASSWORD", "powder", 1);
  EXPECT_THAT(on("desktop", "--cloud-user skier sync enable --cloud-wins"),
              HasSubstr("units = british"));
  ::unsetenv("OMBRIX_CLOUD_PASSWORD");
  ::unsetenv("OMBRIX_CLOUD_CA");
}

}  // namespace
}  // namespace ombrix::hostapp
