// Four processes of eight threads each change one file of user defaults; one of them is killed now
// and then, or stands still while it has the file.

#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "Faults/FaultRun.hpp"
#include "OmbrixPlatform/Defaults/UserDefaults.hpp"
#include "OmbrixTesting/Processes/ChildProcess.hpp"
#include "OmbrixTesting/ScopedDir.hpp"

namespace {

using namespace ombrix;
using testing::ChildProcess;

constexpr int kProcesses = 4, kThreads = 8;

std::string nameOf(int process) { return std::string(1, static_cast<char>('a' + process)); }

/// What is set reaches the file by itself, as somebody else finds it who looks all the time. How
/// soon is judged in the long form alone, and by half of them: the disk is others', too.
void followChanges(const faults::Plan& plan, faults::Outcomes& outcomes) {
  using Clock = std::chrono::steady_clock;
  const testing::ScopedDir dir;
  const auto defaults = platform::UserDefaults::make({.folder = dir.path(), .domain = "test"});
  const auto reader = platform::UserDefaults::make({.folder = dir.path(), .domain = "test"});
  std::vector<Clock::duration> delays;
  const auto count = static_cast<std::int64_t>(plan.rounds(5, 400));
  for (std::int64_t n = 1; n <= count; ++n) {
    const auto set = Clock::now();
    defaults->setObject(n, "n");
    const auto isThere = [&] { return reader->integerForKey("n") == n; };
    while (!isThere() && Clock::now() < set + std::chrono::seconds(30)) {
      std::this_thread::sleep_for(std::chrono::microseconds(500));
    }
    delays.push_back(Clock::now() - set);
    outcomes.expect(isThere(), "what was set came to the file by itself");
  }
  if (!plan.isLong) return;
  constexpr std::chrono::milliseconds kPromised{50};
  for (const auto delay : delays) {
    outcomes.good(delay <= kPromised ? "it was there within 50 ms" : "it was there later");
  }
  std::ranges::sort(delays);
  outcomes.expect(delays[delays.size() / 2] <= kPromised, "half of it within 50 ms at the most");
  outcomes.expect(delays.back() <= std::chrono::seconds(5), "all of it within 5 s");
}

}  // namespace

void ombrix::faults::run(const Plan& plan, Outcomes& outcomes) {
  followChanges(plan, outcomes);
  std::mt19937_64 random(plan.seed);
  const auto changes = static_cast<int>(plan.rounds(100, 1'000));
  const auto pick = [&](int below) { return static_cast<int>(random() % unsigned(below)); };
  for (std::size_t round = 0; round < plan.rounds(6, 400); ++round) {
    const testing::ScopedDir dir;
    std::vector<std::unique_ptr<ChildProcess>> processes;
    for (int i = 0; i < kProcesses; ++i) {
      processes.push_back(std::make_unique<ChildProcess>(
          std::vector<std::string>{TEST_AGENT, "defaults", dir.path(), "test", "contend", nameOf(i),
                                   std::to_string(kThreads), std::to_string(changes)}));
    }
    for (const auto& process : processes) {
      outcomes.expect(process->readLine() == "contending", "a process began");
    }
    std::this_thread::sleep_for(std::chrono::microseconds(pick(30'000)));
    const int harmed = pick(kProcesses);
    const bool isKilled = round % 3 == 1, isStopped = round % 3 == 2;
    if (isKilled) processes[static_cast<std::size_t>(harmed)]->kill();
    if (isStopped) {
      processes[static_cast<std::size_t>(harmed)]->signal(SIGSTOP);
      std::this_thread::sleep_for(std::chrono::milliseconds(pick(200)));
      processes[static_cast<std::size_t>(harmed)]->signal(SIGCONT);
    }
    std::string shared;
    bool areEqual = true;
    for (int step = 0; step < 2; ++step) {
      for (int i = 0; i < kProcesses; ++i) {
        const auto& process = processes[static_cast<std::size_t>(i)];
        if (isKilled && i == harmed) continue;
        if (step == 1) process->send("settle");
        const auto line = process->readLine().value_or("(nothing)");
        if (step == 0) {
          outcomes.expect(line == "done", "a process brought all it had set to the file", line);
        } else {
          if (shared.empty()) shared = line;
          areEqual = areEqual && line == shared;
        }
      }
    }
    const auto defaults = platform::UserDefaults::make({.folder = dir.path(), .domain = "test"});
    outcomes.expect(
        areEqual && "shared " + defaults->stringForKey("shared").value_or("-") == shared,
        "every process ends with the value in the file", shared);
    for (int i = 0; i < kProcesses; ++i) {
      for (int t = 0; t < kThreads; ++t) {
        const auto value = defaults->integerForKey(nameOf(i) + std::to_string(t));
        if (isKilled && i == harmed) {
          outcomes.expect(value >= 0 && value < changes, "a killed process left a value it had set",
                          std::to_string(value));
        } else {
          outcomes.expect(value == changes - 1, "the last value of a thread stays",
                          std::to_string(value));
        }
      }
    }
  }
}
