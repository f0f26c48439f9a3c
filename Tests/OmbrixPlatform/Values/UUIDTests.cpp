#include "OmbrixPlatform/Values/UUID.hpp"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <unordered_set>

namespace ombrix::platform {
namespace {

// Catches digits that change places, and text that is nearly right let through.
TEST(UUIDTests, ReadsWhatItWrites) {
  constexpr std::string_view kText = "E621E1F8-C36C-495A-93FC-0C247A3E6E5F";
  EXPECT_EQ(UUID::parse(kText)->uuidString(), kText);
  EXPECT_EQ(UUID::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f"), UUID::parse(kText));
  EXPECT_EQ(UUID::parse(kText)->bytes()[15], 0x5F);
  for (const char* text :
       {"", "E621E1F8C36C495A93FC0C247A3E6E5F", "E621E1F8-C36C-495A-93FC-0C247A3E6E5",
        "G621E1F8-C36C-495A-93FC-0C247A3E6E5F", "E621E1F8-C36C-495A-93FC-0C247A3E6E5F ",
        "{E621E1F8-C36C-495A-93FC-0C247A3E6E5F}", "E621E1F8xC36C-495A-93FC-0C247A3E6E5F"}) {
    EXPECT_FALSE(UUID::parse(text)) << text;
  }
}

// Catches a source that repeats itself, also in a child of a fork, and marks that are missing.
TEST(UUIDTests, RandomOnesDiffer) {
  std::unordered_set<UUID> seen;
  for (int i = 0; i < 1000; ++i) {
    const UUID uuid = UUID::random();
    EXPECT_EQ(uuid.uuidString()[14], '4');
    EXPECT_NE(std::string_view("89AB").find(uuid.uuidString()[19]), std::string_view::npos);
    seen.insert(uuid);
  }
  EXPECT_EQ(seen.size(), 1000U);

  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    const auto own = UUID::random().bytes();
    ::_exit(::write(ends[1], own.data(), own.size()) == ssize_t{16} ? 0 : 1);
  }
  std::array<std::uint8_t, 16> childs{};
  EXPECT_EQ(::read(ends[0], childs.data(), childs.size()), 16);
  EXPECT_EQ(::waitpid(child, nullptr, 0), child);
  for (int i = 0; i < 1000; ++i) seen.insert(UUID::random());
  EXPECT_FALSE(seen.contains(UUID(childs)));
  ::close(ends[0]);
  ::close(ends[1]);
}

}  // namespace
}  // namespace ombrix::platform
