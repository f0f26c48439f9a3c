#include "Faults/FaultRun.hpp"

#include <fmt/format.h>

#include <charconv>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>

#include "Support/TestHome.hpp"

namespace ombrix::faults {
namespace {

constexpr std::size_t kMostDetails = 5;

}  // namespace

void Outcomes::good(std::string_view outcome, std::size_t times) {
  const std::lock_guard lock(mutex_);
  counts_[std::string(outcome)].times += times;
}

void Outcomes::bad(std::string_view outcome, std::string_view detail) {
  const std::lock_guard lock(mutex_);
  auto& count = counts_[std::string(outcome)];
  ++count.times;
  count.isBad = true;
  if (!detail.empty() && count.details.size() < kMostDetails) count.details.emplace_back(detail);
}

void Outcomes::expect(bool holds, std::string_view outcome, std::string_view detail) {
  if (holds) {
    good(outcome);
  } else {
    bad(fmt::format("not: {}", outcome), detail);
  }
}

void Outcomes::skip(std::string_view reason) {
  const std::lock_guard lock(mutex_);
  skipped_ = reason;
}

int Outcomes::report(std::string_view name, const Plan& plan) const {
  const std::lock_guard lock(mutex_);
  fmt::print("{}: seed {}, {} form\n", name, plan.seed, plan.isLong ? "long" : "short");
  bool isBad = counts_.empty();
  for (const auto& [outcome, count] : counts_) {
    fmt::print("  {:>9}  {}{}\n", count.times, count.isBad ? "BAD  " : "", outcome);
    for (const auto& detail : count.details) fmt::print("             {}\n", detail);
    isBad = isBad || count.isBad;
  }
  if (counts_.empty() && !skipped_.empty()) {
    fmt::print("  skipped: {}\n", skipped_);
    return 77;
  }
  if (counts_.empty()) fmt::print("  BAD  nothing was counted\n");
  return isBad ? 1 : 0;
}

}  // namespace ombrix::faults

int main(int argc, char** argv) {
  ombrix::faults::Plan plan;
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    if (argument == "--long") {
      plan.isLong = true;
    } else if (argument == "--seed" && i + 1 < argc) {
      const char* const end = argv[i + 1] + std::strlen(argv[i + 1]);
      const auto parsed = std::from_chars(argv[++i], end, plan.seed);
      if (parsed.ec != std::errc() || parsed.ptr != end) {
        fmt::print(stderr, "--seed takes a whole number, not '{}'\n", argv[i]);
        return 2;
      }
    } else {
      fmt::print(stderr, "usage: {} [--long] [--seed N]\n", argv[0]);
      return 2;
    }
  }
  const ombrix::testing::TestHome home;
  ombrix::faults::Outcomes outcomes;
  try {
    ombrix::faults::run(plan, outcomes);
  } catch (const std::exception& error) {
    outcomes.bad("the run threw", error.what());
  }
  return outcomes.report(std::filesystem::path(argv[0]).filename().string(), plan);
}
