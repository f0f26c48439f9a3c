#include "OmbrixDay/Filters/TimeSieve.hpp"

#include <algorithm>

namespace ombrix::detail {
namespace {

constexpr double kCloseSeconds = 60;  // Or three times the usual step, if that is longer.

double timeOf(const FedFix& fed) { return platform::timeIntervalSince1970(fed.fix.timestamp); }

}  // namespace

std::span<const FedFix> TimeSieve::passOne(const FedFix& fed) {
  dropWaiting();
  waiting_.front() = fed;
  waitingCount_ = 1;
  return passWaiting();
}

std::span<const FedFix> TimeSieve::passWaiting() {
  const std::span<const FedFix> passed(waiting_.data(), waitingCount_);
  for (const FedFix& fed : passed) {
    step_ = hasPassed_ ? timeOf(fed) - last_ : 0;
    last_ = timeOf(fed);
    hasPassed_ = true;
  }
  waitingCount_ = 0;
  return passed;
}

void TimeSieve::dropWaiting() {
  counts_.outliers += waitingCount_;
  waitingCount_ = 0;
}

bool TimeSieve::isWitnessed() const {
  if (waitingCount_ < kWitnesses) return false;
  const double first = timeOf(waiting_.front());
  if (!hasPassed_ || first - last_ <= kLongestBreak) return true;
  return waitingCount_ == kFarWitnesses ||
         timeOf(waiting_[waitingCount_ - 1]) - first >= kFarSeconds;
}

std::span<const FedFix> TimeSieve::push(const FedFix& fed) {
  const double time = timeOf(fed);
  if (hasPassed_ && time <= last_) {
    ++counts_.repeated;
    return {};
  }
  if (hasPassed_ && time - last_ <= std::max(kCloseSeconds, 3 * step_)) return passOne(fed);
  if (waitingCount_ > 0) {
    const double first = timeOf(waiting_.front()), latest = timeOf(waiting_[waitingCount_ - 1]);
    if (time >= first && time <= latest) {
      ++counts_.repeated;
      return {};
    }
    if (time < first || time - latest > kLongestBreak) dropWaiting();
  }
  waiting_[waitingCount_++] = fed;
  return isWitnessed() ? passWaiting() : std::span<const FedFix>();
}

std::span<const FedFix> TimeSieve::drain() {
  if (waitingCount_ > 0 && hasPassed_ && timeOf(waiting_.front()) - last_ > kLongestBreak) {
    dropWaiting();
  }
  return passWaiting();
}

}  // namespace ombrix::detail
