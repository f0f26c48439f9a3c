#pragma once

#include <functional>
#include <utility>

namespace ombrix::platform {

/// A piece of work that runs once. It must not let an exception out.
using Job = std::move_only_function<void()>;

/// Runs jobs: the thread pool, a dispatch queue, the main queue, an actor.
class Executor {
 public:
  virtual ~Executor() = default;

  /// Takes a job and returns at once; the job runs later, never inside this call. Any thread.
  virtual void post(Job job) = 0;
};

/// A job whose end others wait for: when an executor drops it without running it, the target is
/// told, so that no wait lasts for ever.
///
/// @tparam Target A pointer of any kind; exactly one of `run` and `drop` is called, once.
template <class Target>
class OwedJob {
 public:
  explicit OwedJob(Target target) : target_(std::move(target)) {}
  OwedJob(OwedJob&& other) noexcept : target_(std::exchange(other.target_, nullptr)) {}
  OwedJob& operator=(OwedJob&&) = delete;
  ~OwedJob() {
    if (target_) target_->drop();
  }

  void operator()() {
    const Target target = std::exchange(target_, nullptr);
    target->run();
  }

 private:
  Target target_;
};

}  // namespace ombrix::platform
