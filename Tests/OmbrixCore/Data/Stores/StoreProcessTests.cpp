#include <gtest/gtest.h>

#include <filesystem>
#include <utility>

#include "OmbrixCore/Data/Stores/Persisted.hpp"
#include "OmbrixCore/Data/Stores/PlistKeyedItemStore.hpp"
#include "OmbrixTesting/Processes/ChildProcess.hpp"
#include "OmbrixTesting/ScopedDir.hpp"

namespace ombrix {
namespace {

namespace fs = std::filesystem;
using platform::Data;
using platform::URL;

struct Kept {
  std::string name;
  platform::Date when{};
  Data bytes;
  std::optional<int> none;
  double number = 0;
  bool flag = false;
  std::vector<std::optional<std::string>> some;
  std::vector<std::string> equal;

  static constexpr auto kCodingFields = platform::codingFields(
      platform::field("name", &Kept::name), platform::field("when", &Kept::when),
      platform::field("bytes", &Kept::bytes), platform::field("none", &Kept::none),
      platform::field("number", &Kept::number), platform::field("flag", &Kept::flag),
      platform::field("some", &Kept::some), platform::field("equal", &Kept::equal));
  friend bool operator==(const Kept&, const Kept&) = default;
};

// Catches a store that an update of the program no longer reads, and so removes. The files were
// written by an earlier build; there are no days of fractions in XML.
TEST(EarlierStoresTests, FilesOfAnEarlierBuildOpen) {
  const testing::ScopedDir dir;
  fs::copy(STORE_FILES, dir.path(), fs::copy_options::recursive);
  const URL folder = URL::fileURL(dir.path().string(), true);
  Kept kept{.name = "Zürich ❄",
            .when = platform::dateSince1970(1'700'000'000.25),
            .bytes = {std::byte{0}, std::byte{255}},
            .none = std::nullopt,
            .number = -0.1,
            .flag = true,
            .some = {"first", std::nullopt, ""},
            .equal = std::vector(3, std::string(150, 'e'))};
  EXPECT_EQ(PlistFileStore<Kept>(folder.appendingPathComponent("item.data", false)).value(), kept);
  kept.when = platform::dateSince1970(1'700'000'000);
  EXPECT_EQ(PlistFileStore<Kept>(folder.appendingPathComponent("item.xml", false)).value(), kept);
  EXPECT_EQ(Persisted<int>(0, folder, "launches").wrappedValue(), 42);
  const PlistKeyedItemStore<std::vector<double>> keyed(
      folder.appendingPathComponent("keyed", true));
  EXPECT_EQ(keyed.value("Zürich/b").get(), (std::vector{1.5, 2.0}));
  EXPECT_EQ(keyed.value("empty").get(), std::vector<double>());
}

// Catches values that a process has set and not written when its main function returns, or that it
// has written wrongly then: in the container too, while the pool computes without end, where no
// thread can be made, and in a child whose parent has used its store or the pool.
TEST(PersistedProcessTests, AnEndingProcessWritesWhatItHasSet) {
  const testing::ScopedDir dir;
  constexpr int kRounds = 2;
  for (const char* name : {"elsewhere", "group"}) {
    const std::string path = dir.path() / name;
    const URL folder = URL::fileURL(path, true);
    int runs = 0;
    // Where there is no thread each of the others takes the pool's patience.
    for (int round = 0; round < kRounds; ++round) {
      for (const auto& [state, others] :
           {std::pair("free", 60), {"busy", 60}, {"forked", 60}, {"pool", 60}, {"threadless", 4}}) {
        testing::ChildProcess agent({TEST_AGENT, "stores", "launch", path, std::to_string(others),
                                     dir.path() / "group", state, std::to_string(++runs)});
        EXPECT_EQ(agent.wait(), 0) << state;
        EXPECT_EQ(Persisted<int>(0, folder, "launches").wrappedValue(), runs) << name << state;
        for (int i = 0; i < others; ++i) {
          ASSERT_EQ(Persisted<int>(-1, folder, "other" + std::to_string(i)).wrappedValue(),
                    i + runs)
              << name << state;
        }
      }
    }
  }
}

}  // namespace
}  // namespace ombrix
