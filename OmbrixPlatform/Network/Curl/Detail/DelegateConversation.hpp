#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "OmbrixPlatform/Locks/FutexLock.hpp"
#include "OmbrixPlatform/Network/URLError.hpp"
#include "OmbrixPlatform/Network/URLResponse.hpp"
#include "OmbrixPlatform/Values/Data.hpp"
#include "OmbrixPlatform/Values/Error.hpp"

namespace ombrix::platform::detail {

/// How a task ends.
struct TaskOutcome {
  std::optional<Data> data;
  std::shared_ptr<const HTTPURLResponse> response;
  std::shared_ptr<const Error> error;
};

/// The state between one task and its delegate: whether the delegate was asked about the answer and
/// has allowed it, the part of a streamed body that it has not taken yet, and how many sent bytes
/// it was told of. It keeps count and says what is due, and makes no calls. Any thread.
class DelegateConversation {
 public:
  /// How many bytes of a body are kept before its answer is allowed, and of a streamed body.
  static constexpr std::size_t kBytesBeforePermission = std::size_t{64} << 10;
  static constexpr std::size_t kStreamedBytesKept = std::size_t{256} << 10;

  DelegateConversation(bool hasDelegate, bool isStreaming) noexcept;

  // The question whether the answer is allowed.

  /// A header has come. When the delegate is not asked about it, since another answer may take its
  /// place (a redirect, a 304), nothing waits for the delegate.
  void headerCame(bool isAskedAbout);

  /// Whether to ask while the body is still coming; true once.
  [[nodiscard]] bool mustAskEarly();

  /// Whether to ask now; true once for each task.
  [[nodiscard]] bool mustAsk();

  /// What waited for the delegate's permission and goes on now.
  struct Permitted {
    bool mustHandOver = false;           ///< a streamed body is ready
    bool mustResume = false;             ///< the transfer had to wait
    std::optional<TaskOutcome> outcome;  ///< the task is over
  };
  [[nodiscard]] Permitted permit();

  /// Whether a failure has to wait for the delegate's permission, as an answer would: a streamed
  /// body has begun, and the delegate gets the part that came. A failure at the deadline does not
  /// wait.
  [[nodiscard]] bool isOwedBefore(const URLError& failure);

  /// The outcome if it may be delivered; otherwise empty, and `permit` gives it later.
  [[nodiscard]] std::optional<TaskOutcome> conclude(TaskOutcome outcome);

  // The body.

  /// Whether more of it may come; if not, `permit` or `taken` says when to go on.
  [[nodiscard]] bool takesMore(std::size_t gatheredBytes);

  /// Keeps a piece of a streamed body; true when a job has to hand over what is kept.
  [[nodiscard]] bool keep(DataView piece);

  /// The bytes for a job to hand over; empty while the answer is not allowed.
  [[nodiscard]] Data take();

  /// The delegate has taken the bytes, and wants more or holds the rest back until `release`. True
  /// when the transfer had to wait and goes on now.
  [[nodiscard]] bool taken(bool wantsMore);

  /// The delegate wants more again.
  struct Released {
    bool mustHandOver = false;
    bool mustResume = false;
  };
  [[nodiscard]] Released release();

  /// The task has a delegate of its own; before it is resumed.
  void addDelegate() noexcept { hasDelegate_ = true; }

  // What was sent.

  /// Whether a job has to tell of it.
  [[nodiscard]] bool mustReport();

  /// How many of `totalBytes` the delegate was not told of yet; this ends the job.
  [[nodiscard]] std::int64_t report(std::int64_t totalBytes);

  /// Releases everything: the delegate gets no further call.
  void end();

 private:
  enum class Permission : std::uint8_t { notAsked, asked, given };

  bool hasDelegate_;
  const bool isStreaming_;
  FutexLock lock_;
  Permission permission_ OMBRIX_GUARDED_BY(lock_);
  bool isAskedAbout_ OMBRIX_GUARDED_BY(lock_) = false;
  bool isEarlyQuestionPosted_ OMBRIX_GUARDED_BY(lock_) = false;
  bool isStreamPosted_ OMBRIX_GUARDED_BY(lock_) = false;
  bool isReportPosted_ OMBRIX_GUARDED_BY(lock_) = false;
  bool isWaiting_ OMBRIX_GUARDED_BY(lock_) = false;    // the transfer
  bool isHeld_ OMBRIX_GUARDED_BY(lock_) = false;       // by the delegate
  bool wasReleased_ OMBRIX_GUARDED_BY(lock_) = false;  // since something was taken
  std::int64_t reportedBytes_ OMBRIX_GUARDED_BY(lock_) = 0;
  Data stream_ OMBRIX_GUARDED_BY(lock_);
  std::optional<TaskOutcome> outcome_ OMBRIX_GUARDED_BY(lock_);
};

}  // namespace ombrix::platform::detail
