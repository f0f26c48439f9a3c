#pragma once

#include <functional>

namespace ombrix::platform {

/// A piece of work that runs once. It must not let an exception out.
using Job = std::move_only_function<void()>;

/// Something that runs jobs: the thread pool, a dispatch queue, the main queue, an actor.
class Executor {
 public:
  virtual ~Executor() = default;

  /// Takes a job and returns at once; the job runs later, never inside this call. Any thread.
  virtual void post(Job job) = 0;
};

}  // namespace ombrix::platform
