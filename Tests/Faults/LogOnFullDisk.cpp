// Two loggers share a folder on a small disk that fills and empties while they write, and whose
// folder is removed now and then: no line is glued to another, and what there was room to hold is
// in the log.

#include <sched.h>
#include <sys/mount.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <thread>

#include "Faults/FaultRun.hpp"
#include "OmbrixPlatform/Logging/DDFileLogger.hpp"
#include "OmbrixTesting/ScopedDir.hpp"

namespace {

using namespace ombrix;
namespace fs = std::filesystem;

constexpr int kLoggers = 2;
constexpr const char* kRoom = "size=256k";

/// A disk of 256 KiB for this process alone.
class SmallMount {
 public:
  explicit SmallMount(const fs::path& folder) : folder_(folder) {
    isMounted_ = ::mount("tmpfs", folder.c_str(), "tmpfs", 0, kRoom) == 0;
  }
  ~SmallMount() {
    if (isMounted_) ::umount2(folder_.c_str(), MNT_DETACH);
  }
  SmallMount(const SmallMount&) = delete;
  SmallMount& operator=(const SmallMount&) = delete;
  explicit operator bool() const { return isMounted_; }

 private:
  const fs::path folder_;
  bool isMounted_ = false;
};

std::string line(int logger, int number) {
  return "logger " + std::to_string(logger) + " line " + std::to_string(number) + " " +
         std::string(static_cast<std::size_t>(number * 37 % 900), 'x') + " end";
}

/// Fills the disk to a byte that is chosen at random.
void fill(const fs::path& file, std::mt19937_64& random) {
  std::ofstream out(file, std::ios::binary);
  const std::string block(1 + random() % 5'000, '#');
  while (out.write(block.data(), static_cast<std::streamsize>(block.size())).flush()) {
  }
}

}  // namespace

void ombrix::faults::run(const Plan& plan, Outcomes& outcomes) {
  if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr)) {
    return outcomes.skip("mounting a disk needs root");
  }
  std::mt19937_64 random(plan.seed);
  for (std::size_t round = 0; round < plan.rounds(10, 1'000); ++round) {
    const testing::ScopedDir dir;
    const SmallMount disk(dir.path());
    if (!disk) return outcomes.skip("this machine mounts no tmpfs");
    const auto folder = dir.path() / "Logs";
    const bool isRemoved = round % 4 == 3;
    constexpr int kLines = 150;
    std::vector<std::shared_ptr<platform::DDFileLogger>> loggers;
    for (int i = 0; i < kLoggers; ++i) {
      loggers.push_back(std::make_shared<platform::DDFileLogger>(
          std::make_shared<platform::DDLogFileManager>(folder, "skier")));
    }
    std::atomic<int> finished{0};
    {
      std::vector<std::jthread> threads;
      for (int i = 0; i < kLoggers; ++i) {
        threads.emplace_back([&, i] {
          for (int n = 0; n < kLines; ++n) {
            const std::string text = line(i, n);
            loggers[static_cast<std::size_t>(i)]->log(
                {.message = text, .timestamp = platform::dateSince1970(1'714'559'430)});
            if (n % 7 == 0) loggers[static_cast<std::size_t>(i)]->flush();
          }
          ++finished;
        });
      }
      while (finished < kLoggers) {
        fill(dir.path() / "filler", random);
        std::this_thread::yield();
        fs::remove(dir.path() / "filler");
        std::error_code ignored;
        if (isRemoved) fs::remove_all(folder, ignored);
      }
    }
    for (const auto& logger : loggers) logger->flush();

    std::set<std::string> whole;
    std::size_t torn = 0;
    for (const auto& info : loggers[0]->logFileManager()->sortedLogFileInfos()) {
      std::ifstream in(info.filePath, std::ios::binary);
      for (std::string text; std::getline(in, text);) {
        const auto ends = text.find(" end");
        if (text.ends_with(" end")) whole.insert(text);
        const auto begins = text.rfind("logger ");
        const bool isGlued = begins != std::string::npos && begins != 0;
        outcomes.expect(!isGlued && (ends == std::string::npos || ends == text.size() - 4),
                        "a line stands alone", text.substr(0, 120));
        if (!text.ends_with(" end")) ++torn;
      }
    }
    if (torn > 0) outcomes.good("a torn line was left alone", torn);
    if (isRemoved) continue;
    for (int i = 0; i < kLoggers; ++i) {
      for (int n = 0; n < kLines; ++n) {
        outcomes.expect(whole.contains(line(i, n)), "a line is in the log as a whole",
                        line(i, n).substr(0, 40));
      }
    }
  }
}
