#include "OmbrixPlatform/Network/Curl/Detail/DelegateConversation.hpp"

#include <algorithm>
#include <utility>

namespace ombrix::platform::detail {

DelegateConversation::DelegateConversation(bool hasDelegate, bool isStreaming) noexcept
    : hasDelegate_(hasDelegate),
      isStreaming_(isStreaming),
      permission_(hasDelegate ? Permission::notAsked : Permission::given) {}

void DelegateConversation::headerCame(bool isAskedAbout) {
  if (!hasDelegate_) return;
  const LockGuard lock(lock_);
  isAskedAbout_ = isAskedAbout;
}

bool DelegateConversation::mustAskEarly() {
  const LockGuard lock(lock_);
  return permission_ == Permission::notAsked && isAskedAbout_ &&
         !std::exchange(isEarlyQuestionPosted_, true);
}

bool DelegateConversation::mustAsk() {
  const LockGuard lock(lock_);
  if (permission_ != Permission::notAsked) return false;
  permission_ = Permission::asked;
  return true;
}

DelegateConversation::Permitted DelegateConversation::permit() {
  const LockGuard lock(lock_);
  permission_ = Permission::given;
  return {.mustHandOver = !stream_.empty() && !std::exchange(isStreamPosted_, true),
          .mustResume = !isStreaming_ && std::exchange(isWaiting_, false),
          .outcome = std::exchange(outcome_, std::nullopt)};
}

bool DelegateConversation::isOwedBefore(const URLError& failure) {
  const LockGuard lock(lock_);
  const bool hasHadTime =
      permission_ == Permission::asked && failure.code() == URLError::Code::timedOut;
  return permission_ != Permission::given && isAskedAbout_ && !stream_.empty() && !hasHadTime;
}

std::optional<TaskOutcome> DelegateConversation::conclude(TaskOutcome outcome) {
  const LockGuard lock(lock_);
  if (permission_ == Permission::given) return outcome;
  outcome_ = std::move(outcome);
  return std::nullopt;
}

bool DelegateConversation::takesMore(std::size_t gatheredBytes) {
  if (!hasDelegate_ || (!isStreaming_ && gatheredBytes < kBytesBeforePermission)) return true;
  const LockGuard lock(lock_);
  isWaiting_ = isStreaming_ ? stream_.size() >= kStreamedBytesKept
                            : permission_ != Permission::given && isAskedAbout_;
  return !isWaiting_;
}

bool DelegateConversation::keep(DataView piece) {
  if (!hasDelegate_) return false;
  const LockGuard lock(lock_);
  stream_.insert(stream_.end(), piece.begin(), piece.end());
  return permission_ == Permission::given && !isHeld_ && !std::exchange(isStreamPosted_, true);
}

Data DelegateConversation::take() {
  const LockGuard lock(lock_);
  isStreamPosted_ = false;
  wasReleased_ = false;
  return permission_ == Permission::given ? std::exchange(stream_, {}) : Data();
}

bool DelegateConversation::taken(bool wantsMore) {
  const LockGuard lock(lock_);
  // A delegate that held it back may want more by now.
  isHeld_ = !wantsMore && !wasReleased_;
  return !isHeld_ && std::exchange(isWaiting_, false);
}

DelegateConversation::Released DelegateConversation::release() {
  const LockGuard lock(lock_);
  wasReleased_ = true;
  if (!std::exchange(isHeld_, false)) return {};
  if (stream_.empty()) return {.mustResume = std::exchange(isWaiting_, false)};
  return {.mustHandOver = !std::exchange(isStreamPosted_, true)};
}

bool DelegateConversation::mustReport() {
  if (!hasDelegate_) return false;
  const LockGuard lock(lock_);
  return !std::exchange(isReportPosted_, true);
}

std::int64_t DelegateConversation::report(std::int64_t totalBytes) {
  if (!hasDelegate_) return 0;
  const LockGuard lock(lock_);
  isReportPosted_ = false;
  return std::max<std::int64_t>(totalBytes - std::exchange(reportedBytes_, totalBytes), 0);
}

void DelegateConversation::end() {
  const LockGuard lock(lock_);
  outcome_.reset();
  stream_ = {};
}

}  // namespace ombrix::platform::detail
