#include "Tests/Mutation/Mutant.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr int kMostMutants = 4096;

struct Settings {
  Settings() {
    if (const char* number = std::getenv("OMBRIX_MUTANT")) running = std::atoi(number);
    const char* folder = std::getenv("OMBRIX_MUTANTS_REACHED");
    if (folder != nullptr) {
      notes = std::snprintf(reached.data(), reached.size(), "%s", folder) <
              static_cast<int>(reached.size());
    }
  }

  int running = 0;
  bool notes = false;
  std::array<char, 1024> reached{};  // copied, since tests change the environment
};

void note(const char* folder, int number) {
  static std::array<std::atomic<bool>, kMostMutants> isNoted{};
  if (number >= kMostMutants || isNoted[static_cast<std::size_t>(number)].exchange(true)) return;
  std::array<char, 1100> path{};
  std::snprintf(path.data(), path.size(), "%s/%d", folder, number);
  const int file = ::open(path.data(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  if (file >= 0) ::close(file);
}

}  // namespace

bool ombrixMutantRuns(int number) noexcept {
  static const Settings settings;
  if (settings.notes) note(settings.reached.data(), number);
  return settings.running == number;
}
