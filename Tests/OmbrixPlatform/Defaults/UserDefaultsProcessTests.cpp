#include <gtest/gtest.h>

#include <memory>

#include "OmbrixPlatform/Defaults/UserDefaults.hpp"
#include "OmbrixTesting/ChildProcess.hpp"
#include "OmbrixTesting/Sanitizers.hpp"
#include "OmbrixTesting/ScopedDir.hpp"

namespace ombrix::platform {
namespace {

using testing::ChildProcess;

class UserDefaultsProcessTests : public ::testing::Test {
 protected:
  std::unique_ptr<ChildProcess> start(std::vector<std::string> arguments) const {
    std::vector<std::string> command{DEFAULTS_AGENT, dir.path(), "test"};
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
// process takes with it when it ends.
TEST_F(UserDefaultsProcessTests, FourWritersLoseNothing) {
  const int count = testing::kUnderSanitizer ? 100 : 500;
  std::vector<std::unique_ptr<ChildProcess>> writers;
  for (const auto* prefix : {"a", "b", "c", "d"}) {
    writers.push_back(start({"write", prefix, std::to_string(count)}));
  }
  for (const auto& writer : writers) EXPECT_EQ(writer->wait(), 0);
  const auto domain = open()->persistentDomain();
  EXPECT_EQ(domain.size(), 4U * static_cast<unsigned>(count));
  for (const auto* prefix : {"a", "b", "c", "d"}) {
    EXPECT_TRUE(domain.contains(prefix + std::to_string(count - 1)));
  }
}

// Catches a file that a killed writer leaves half written, a lock that stays with it, and values
// of other writers that go with it.
TEST_F(UserDefaultsProcessTests, AKilledWriterHarmsNothing) {
  const auto defaults = open();
  defaults->setObject(std::string(100'000, 'k'), "kept");
  defaults->synchronize();
  for (int i = 0; i < 25; ++i) {
    const auto prefix = "p" + std::to_string(i) + "-";
    const auto writer = start({"write", prefix, "1000000"});
    ASSERT_EQ(writer->readLine(), "writing");
    // Somewhere within a write: the more changes this process makes meanwhile, the later.
    for (int n = 0; n < i % 5; ++n) defaults->setObject(n, "mine");
    writer->kill();
    const auto domain = open()->persistentDomain();
    ASSERT_TRUE(domain.contains(prefix + "0"));
    ASSERT_EQ(domain.find("kept")->text()->size(), 100'000U);
  }
}

}  // namespace
}  // namespace ombrix::platform
