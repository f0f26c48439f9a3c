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

/// What stands between one task and its delegate: whether the answer was asked about and allowed,
/// what of a streamed body was not taken yet, how much was said of what was sent. It keeps count
/// and says what is due; it calls nobody. Any thread.
class DelegateConversation {
 public:
  /// What is kept of a body, in bytes, before its answer is allowed, and of a streamed one.
  static constexpr std::size_t kBytesBeforePermission = std::size_t{64} << 10;
  static constexpr std::size_t kStreamedBytesKept = std::size_t{256} << 10;

  DelegateConversation(bool hasDelegate, bool isStreaming) noexcept;

  // The question whether the answer is allowed.

  /// A header has come. One that the delegate is not asked about, since another may come in its
  /// place (a redirect, a 304), neither waits for the answer.
  void headerCame(bool isAskedAbout);

  /// Whether to put the question while the body is still coming: true once.
  [[nodiscard]] bool mustAskEarly();

  /// Whether to put the question now: true once for each task.
  [[nodiscard]] bool mustAsk();

  /// What waited for the delegate's permission, and goes on now.
  struct Permitted {
    bool mustHandOver = false;           ///< a streamed body lies there
    bool mustResume = false;             ///< the transfer had to wait
    std::optional<TaskOutcome> outcome;  ///< the task is over
  };
  [[nodiscard]] Permitted permit();

  /// Whether a failure has to wait for the question as an answer would: a streamed body has begun,
  /// and what came of it is the delegate's. Not for one who has had until the deadline to answer.
  [[nodiscard]] bool isOwedBefore(const URLError& failure);

  /// The outcome if it may be delivered, else nothing until `permit`.
  [[nodiscard]] std::optional<TaskOutcome> conclude(TaskOutcome outcome);

  // The body.

  /// Whether more of it may come; when not, `permit` or `taken` says when to go on.
  [[nodiscard]] bool takesMore(std::size_t gatheredBytes);

  /// Keeps a piece of a streamed body; true when a job has to hand over what is kept.
  [[nodiscard]] bool keep(DataView piece);

  /// What a job is to hand over; empty while the answer is not allowed.
  [[nodiscard]] Data take();

  /// The delegate has taken it, and wants more or holds the rest back until `release`; true when
  /// the transfer had to wait, and goes on.
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

  /// How many of `totalBytes` were not told of yet; the job is done.
  [[nodiscard]] std::int64_t report(std::int64_t totalBytes);

  /// Releases everything: nothing more is to be said.
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
