#include <gtest/gtest.h>
#include <sys/eventfd.h>

#include <filesystem>
#include <future>

#include "OmbrixPlatform/Memory/Detail/MemoryPressure.hpp"
#include "OmbrixTesting/ScopedDir.hpp"

namespace ombrix::platform {
namespace {

using detail::Descriptor;
using detail::MemoryPressure;
using Kind = MemoryPressure::Kind;

// Catches a source that is passed over, asked for in the wrong place or in words the kernel does
// not take, and one that is made up where the kernel has none.
TEST(MemoryWarningTests, TakesTheFirstSourceThatIsThere) {
  const testing::ScopedDir dir;
  const detail::MemoryPressureFiles files{.pressureStall = dir.path() / "pressure",
                                          .ownControlGroups = dir.path() / "own",
                                          .controlGroupRoot = dir.path() / "groups"};
  EXPECT_FALSE(MemoryPressure::open(files));
  dir.write("own", "4:memory:/a/b\n1:cpu:/other\n0::/c\n");
  EXPECT_FALSE(MemoryPressure::open(files));

  dir.write("groups/memory/a/b/memory.pressure_level", "");
  dir.write("groups/memory/a/b/cgroup.event_control", "");
  const auto level = MemoryPressure::open(files);
  ASSERT_TRUE(level);
  EXPECT_EQ(level->kind(), Kind::groupPressureLevel);
  EXPECT_TRUE(dir.read("groups/memory/a/b/cgroup.event_control").ends_with(" medium"));

  dir.write("groups/c/memory.events", "low 0\nhigh 1\nmax 0\noom 0\n");
  ASSERT_TRUE(MemoryPressure::open(files));
  EXPECT_EQ(MemoryPressure::open(files)->kind(), Kind::groupEvents);

  dir.write("pressure", "");
  EXPECT_EQ(MemoryPressure::open(files)->kind(), Kind::pressureStall);
  EXPECT_EQ(dir.read("pressure"), std::string_view("some 100000 2000000\0", 20));
}

// Catches a kernel that refuses the request, and a wait that its end does not wake.
TEST(MemoryWarningTests, WaitsOnThisMachineUntilStopped) {
  for (const bool hasStall : {true, false}) {
    auto source = MemoryPressure::open(
        {.pressureStall = hasStall ? "/proc/pressure/memory" : "/proc/nothing"});
    if (!source) continue;
    EXPECT_EQ(source->kind() == Kind::pressureStall,
              hasStall && std::filesystem::exists("/proc/pressure/memory"));
    const Descriptor stop(::eventfd(0, EFD_CLOEXEC));
    auto ended = std::async(std::launch::async, [&] {
      while (source->wait(stop.get())) {
      }
    });
    constexpr std::uint64_t kOne = 1;
    ASSERT_EQ(::write(stop.get(), &kOne, sizeof kOne), ssize_t{sizeof kOne});
    ended.get();
  }
}

}  // namespace
}  // namespace ombrix::platform
