// Stores whose system calls fail, each call of a save, a read and a purge in turn: no mixture of
// two values, nothing swallowed, nothing lost that a call before any change could have kept.

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "Faults/FaultRun.hpp"
#include "OmbrixCore/Data/Stores/FailingCalls.hpp"
#include "OmbrixCore/Data/Stores/PlistKeyedItemStore.hpp"
#include "OmbrixTesting/RecordingLog.hpp"
#include "OmbrixTesting/ScopedDirectories.hpp"

namespace ombrix::faults {
namespace {

namespace fs = std::filesystem;

enum class Operation { save, make, read, purge };
constexpr std::pair<Operation, std::string_view> kOperations[] = {
    {Operation::save, "a save over a value"},
    {Operation::make, "a first save"},
    {Operation::read, "a read"},
    {Operation::purge, "a purge"}};
constexpr int kFailures[] = {ENOSPC, EIO, EACCES, EDQUOT, EMFILE, ENFILE, ENOMEM, EROFS, EPERM};
constexpr std::size_t kShortFailures = 3;

bool isRequiredText(std::string_view line) {
  constexpr std::string_view kTexts[] = {
      "Error reading the object: ",          "Error saving the object: ",
      "Error purging the object: ",          "Error writing the object: ",
      "Filesystem: Error creating folder: ", "Data: Error saving data to file for in store: "};
  return std::ranges::any_of(kTexts, [&](auto text) { return line.starts_with(text); });
}

auto openDescriptors() {
  return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
}

/// A store in a folder of its own, in the group's container or not.
class Sweep {
 public:
  Sweep(Outcomes& outcomes, bool isCoordinated) : outcomes_(outcomes) {
    if (isCoordinated) directories_.setGroupContainer(true);
    folder_ = directories_.dir().path() / (isCoordinated ? "group" : "other") / "keyed";
    store_.emplace(platform::URL::fileURL(folder_.string(), true));
    store_->store(kOther, "other").get();
  }

  /// Lets each call of an operation fail, alone or with all that follow it.
  void run(Operation operation, std::string_view name, int failure, bool lasts,
           const std::string& old, const std::string& fresh) {
    constexpr int kMostCalls = 100;
    const auto before = openDescriptors();
    bool isReached = true;
    int call = 1;
    for (; isReached && call < kMostCalls; ++call) {
      where_ = fmt::format("{}, {} to {} bytes, call {}{}, errno {}", name, old.size(),
                           fresh.size(), call, lasts ? " and all later ones" : "", failure);
      isReached =
          round(operation, {.countdown = call, .lasts = lasts, .code = failure}, old, fresh);
      if (isReached) outcomes_.good(name);
    }
    expect(!isReached && call > 2, "an operation ends, and its calls come through here");
    expect(openDescriptors() == before, "no descriptor is left open");
    expect(store_->value("other").get() == kOther, "other keys are untouched");
  }

 private:
  void expect(bool holds, std::string_view outcome) { outcomes_.expect(holds, outcome, where_); }

  /// One operation with a failing call; whether that call came.
  bool round(Operation operation, const testing::FailingCalls& failing, const std::string& old,
             const std::string& fresh) {
    const auto earlier = fs::file_time_type::clock::now() - std::chrono::hours(1);
    const bool isSave = operation == Operation::save, isMake = operation == Operation::make;
    store_->store(old, "k").get();
    if (isMake) store_->purge("k").get();
    if (isSave) fs::last_write_time(folder_ / "k.data", earlier);
    std::optional<std::string> seen;
    auto& calls = testing::failingCalls();
    calls = failing;
    if (isSave || isMake) store_->store(fresh, "k").get();
    if (operation == Operation::read) seen = store_->value("k").get();
    if (operation == Operation::purge) store_->purge("k").get();
    const auto ended = std::exchange(calls, {});
    const bool isReached = ended.countdown == 0;

    const auto errors = log_.takeErrors();
    expect(std::ranges::all_of(errors, isRequiredText), "failures have the required texts");
    const bool isThere = store_->exists("k").get();
    const auto value = store_->value("k").get();
    log_.takeErrors();
    expect(!value || value == old || value == fresh, "the old value, the new one or none");
    if (errors.empty()) {
      expect(operation == Operation::read    ? seen == old
             : operation == Operation::purge ? !value
                                             : value == fresh,
             "nothing is swallowed");
    } else if (isSave && isReached && !ended.hasChanged) {
      expect(value == old, "a save that has changed nothing leaves the old value");
    }
    // What fails with all that follows it cannot be cleaned up either.
    if (failing.lasts) return isReached;
    if (isSave && value == old) {
      expect(fs::last_write_time(folder_ / "k.data") == earlier, "an old value keeps its age");
    }
    expect(!isMake || isThere == errors.empty(), "a first save leaves a whole file or none");
    return isReached;
  }

  static constexpr const char* kOther = "untouched";

  Outcomes& outcomes_;
  testing::ScopedDirectories directories_;
  testing::RecordingLog log_;
  fs::path folder_;
  std::optional<PlistKeyedItemStore<std::string>> store_;
  std::string where_;
};

}  // namespace

void run(const Plan& plan, Outcomes& outcomes) {
  std::mt19937_64 random(plan.seed);
  const auto failures =
      std::span(kFailures).first(plan.rounds(kShortFailures, std::size(kFailures)));
  for (const bool isCoordinated : {false, true}) {
    Sweep sweep(outcomes, isCoordinated);
    for (std::size_t i = plan.rounds(1, 20); i > 0; --i) {
      const std::string old(1 + random() % 600, 'o');
      // Longer ones that fit and do not fit into the file's blocks, and a shorter one.
      const std::size_t sizes[] = {old.size() + random() % 1'000, 5'000 + random() % 30'000,
                                   1 + random() % old.size()};
      for (const auto& [operation, name] : kOperations) {
        for (const int failure : failures) {
          for (const std::size_t size : sizes) {
            for (const bool lasts : {false, true}) {
              // So a lock answers as long as another process has it, which is waited for.
              if (lasts && isCoordinated && failure == EACCES) continue;
              sweep.run(operation, name, failure, lasts, old, std::string(size, 'n'));
            }
          }
        }
      }
    }
  }
}

}  // namespace ombrix::faults
