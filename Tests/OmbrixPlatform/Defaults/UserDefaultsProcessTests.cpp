#include <gtest/gtest.h>

#include <memory>

#include "OmbrixPlatform/Defaults/UserDefaults.hpp"
#include "OmbrixTesting/Processes/ChildProcess.hpp"
#include "OmbrixTesting/Sanitizers.hpp"
#include "OmbrixTesting/ScopedDir.hpp"

namespace ombrix::platform {
namespace {

using testing::ChildProcess;

class UserDefaultsProcessTests : public ::testing::Test {
 protected:
  std::unique_ptr<ChildProcess> start(std::vector<std::string> arguments) const {
    std::vector<std::string> command{TEST_AGENT, "defaults", dir.path(), "test"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return std::make_unique<ChildProcess>(std::move(command));
  }

  std::shared_ptr<UserDefaults> open() {
    return UserDefaults::make({.folder = dir.path(), .domain = "test", .onError = [](auto& error) {
                                 ADD_FAILURE() << error;
                               }});
  }

  testing::ScopedDir dir;
};

// Catches a writer that overwrites what another has written since it last looked, and values that a
// process takes with it when it ends, also one that was forked from another.
TEST_F(UserDefaultsProcessTests, FourWritersLoseNothing) {
  const unsigned count = testing::kUnderSanitizer ? 100 : 500, inChild = 50;
  EXPECT_EQ(start({"fork", "d", std::to_string(inChild)})->wait(), 0);
  std::vector<std::unique_ptr<ChildProcess>> writers;
  for (const auto* prefix : {"a", "b", "c"}) {
    writers.push_back(start({"write", prefix, std::to_string(count)}));
  }
  for (const auto& writer : writers) EXPECT_EQ(writer->wait(), 0);
  const auto domain = open()->persistentDomain();
  EXPECT_EQ(domain.size(), 3 * count + inChild + 1);
  for (const auto* prefix : {"a", "b", "c"}) {
    EXPECT_TRUE(domain.contains(prefix + std::to_string(count - 1)));
  }
}

}  // namespace
}  // namespace ombrix::platform
