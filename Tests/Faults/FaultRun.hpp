#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace ombrix::faults {

/// What a fault run is told: the seed of all its random choices, and which form it takes.
struct Plan {
  std::uint64_t seed = 1;
  bool isLong = false;

  /// How often to do something: `shortForm` times in the ordinary tests, `longForm` times in
  /// `scripts/faults`.
  [[nodiscard]] std::size_t rounds(std::size_t shortForm, std::size_t longForm) const {
    return isLong ? longForm : shortForm;
  }
};

/// Counts how the rounds of a run ended. Any thread may count.
class Outcomes {
 public:
  /// Counts `times` rounds that ended in a way the system promises.
  void good(std::string_view outcome, std::size_t times = 1);

  /// Counts a round that ended in a way the system must never show; the run fails. `detail` says
  /// what was seen; the first five of an outcome are printed.
  void bad(std::string_view outcome, std::string_view detail = {});

  /// Counts `good(outcome)` where `holds`, else `bad("not: " + outcome, detail)`.
  void expect(bool holds, std::string_view outcome, std::string_view detail = {});

  /// Ends the run as skipped, told with its reason, when nothing else was counted.
  void skip(std::string_view reason);

  /// Prints the table. Returns the exit status: 0 when all is good, 1 when something was bad or
  /// nothing was counted, 77 when the run was skipped.
  [[nodiscard]] int report(std::string_view name, const Plan& plan) const;

 private:
  struct Count {
    std::size_t times = 0;
    bool isBad = false;
    std::vector<std::string> details;
  };

  mutable std::mutex mutex_;
  std::map<std::string, Count, std::less<>> counts_;
  std::string skipped_;
};

/// The run itself; each program of `Tests/Faults` defines it once. It may throw: that is a bad
/// outcome.
void run(const Plan& plan, Outcomes& outcomes);

}  // namespace ombrix::faults
