#pragma once

#include <chrono>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "OmbrixPlatform/Concurrency/Executor.hpp"
#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"

namespace ombrix::platform {

/// How urgent the work of a queue is; decides the lane of the thread pool it runs in.
enum class QualityOfService : std::uint8_t {
  unspecified,
  background,
  utility,
  userInitiated,
  userInteractive,
};

/// The pool lane of a quality of service.
[[nodiscard]] DispatchPriority dispatchPriority(QualityOfService qualityOfService) noexcept;

/// A queue of jobs: serial (one at a time, in order) or concurrent (as many as the pool runs).
///
/// Work already posted runs even when the last reference to its queue is dropped. All operations
/// may be called from any thread.
///
///     const auto queue = DispatchQueue::serial("parser");
///     queue->async([] { ... });
///     const int rows = queue->sync([] { return 42; });
class DispatchQueue final : public Executor, public std::enable_shared_from_this<DispatchQueue> {
  struct Passkey {};
  enum class Kind : std::uint8_t { serial, concurrent, main };

 public:
  /// A new queue that runs one job at a time, in order.
  static std::shared_ptr<DispatchQueue> serial(
      std::string label, QualityOfService qualityOfService = QualityOfService::unspecified);

  /// A new queue that runs jobs side by side, except for barriers.
  static std::shared_ptr<DispatchQueue> concurrent(
      std::string label, QualityOfService qualityOfService = QualityOfService::unspecified);

  /// The process-wide concurrent queue of a priority; barriers on it are plain jobs.
  static DispatchQueue& global(DispatchPriority priority = DispatchPriority::normal);

  /// The serial queue of the main thread: runs on the `mainExecutor` service.
  static DispatchQueue& main();

  DispatchQueue(Passkey, Kind kind, std::string label, QualityOfService qualityOfService,
                DispatchPriority priority);
  ~DispatchQueue() override;

  [[nodiscard]] const std::string& label() const { return label_; }
  [[nodiscard]] QualityOfService qualityOfService() const { return qualityOfService_; }

  /// Runs the job later on this queue.
  void async(Job job);
  void post(Job job) override { async(std::move(job)); }

  /// Runs the job once all jobs posted before it have finished, and before any job posted after it
  /// starts.
  void asyncBarrier(Job job);

  /// Posts the job once the clock service's steady clock has reached the deadline.
  void asyncAfter(std::chrono::steady_clock::time_point deadline, Job job);

  /// Posts the job after a delay, measured by the clock service from now.
  void asyncAfter(std::chrono::duration<double> delay, Job job);

  /// Runs the closure on this queue and waits for it; returns its result or rethrows its
  /// exception. Runs it on the calling thread if no other job is in the way. Stops the program
  /// where it would wait for itself: on a serial queue that is running on this thread, on a
  /// concurrent queue from a job that a barrier waits for or from a barrier, and on the main queue
  /// from the thread that pumps it. Throws `CancellationError` when the host's main executor drops
  /// it.
  template <class Closure>
  auto sync(Closure&& closure) -> std::invoke_result_t<Closure&>;

  /// Whether the calling code runs on this queue.
  [[nodiscard]] bool isCurrent() const noexcept;

 private:
  friend class NSOperationQueue;
  struct State;

  [[nodiscard]] bool isGlobal() const noexcept;

  /// Like `async`, for the last statement of a pool job: on a global queue with no other work
  /// waiting, the job runs on the calling thread right after that one.
  void asyncNext(Job job);

  /// Blocks until the job has run on this queue.
  void runAndWait(std::function<void()> job);

  const std::string label_;
  const QualityOfService qualityOfService_;
  const std::shared_ptr<State> state_;
};

template <class Closure>
auto DispatchQueue::sync(Closure&& closure) -> std::invoke_result_t<Closure&> {
  using Result = std::invoke_result_t<Closure&>;
  std::exception_ptr error;
  if constexpr (std::is_void_v<Result>) {
    runAndWait([&] {
      try {
        closure();
      } catch (...) {
        error = std::current_exception();
      }
    });
    if (error) std::rethrow_exception(error);
  } else {
    std::optional<Result> result;
    runAndWait([&] {
      try {
        result.emplace(closure());
      } catch (...) {
        error = std::current_exception();
      }
    });
    if (error) std::rethrow_exception(error);
    return std::move(*result);
  }
}

}  // namespace ombrix::platform
