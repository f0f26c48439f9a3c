#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Concurrency/NSOperation.hpp"
#include "OmbrixPlatform/Observation/Signal.hpp"

namespace ombrix::platform {

/// Starts operations by priority, then in the order in which they become ready, a limited number at
/// a time. A waiting operation costs no thread, and the work per operation does not grow with the
/// length of the queue.
///
/// Observable keys: "operations" and "operationCount", both with the count as value, announced
/// without a lock on the thread that adds or finishes an operation. Operations in the queue finish
/// even after the queue object is destroyed; those that a width of 0 holds back are cancelled then.
/// If the dispatch queue below drops the job that would start an operation, the operation is
/// cancelled and finishes on the thread pool; a barrier block that is dropped is not called, and
/// the queue goes on. While nothing else waits for the pool, a thread whose operation returns from
/// `main` takes the next one. Any thread.
///
///     const auto queue = NSOperationQueue::make("uploads");
///     queue->setMaxConcurrentOperationCount(2);
///     queue->addOperation([] { ... });
class NSOperationQueue final : public KeyValueObserving<std::int64_t>,
                               public std::enable_shared_from_this<NSOperationQueue> {
  struct Passkey {};

 public:
  /// Runs as many operations at once as the dispatch queue below allows.
  static constexpr std::ptrdiff_t kDefaultMaxConcurrentOperationCount = -1;

  /// A new queue that starts operations on the default global dispatch queue.
  static std::shared_ptr<NSOperationQueue> make(std::string name = {});

  explicit NSOperationQueue(Passkey, std::string name);
  ~NSOperationQueue() override;

  [[nodiscard]] std::string name() const;
  void setName(std::string name);

  /// The most operations that execute at once; barriers do not count. 0 holds all back.
  [[nodiscard]] std::ptrdiff_t maxConcurrentOperationCount() const;
  void setMaxConcurrentOperationCount(std::ptrdiff_t count);

  /// The dispatch queue on which operations start. Change it only while the queue is empty.
  [[nodiscard]] std::shared_ptr<DispatchQueue> underlyingQueue() const;
  void setUnderlyingQueue(std::shared_ptr<DispatchQueue> queue);

  /// Stops the program if the operation was ever added before, to any queue, or has finished.
  void addOperation(std::shared_ptr<NSOperation> operation);

  /// Adds an operation that runs the block.
  void addOperation(std::function<void()> block);

  /// Runs the block once every operation added before has finished; operations added later start
  /// only after it has returned. It is not listed in `operations`.
  void addBarrierBlock(std::function<void()> block);

  /// The operations that have not finished, in the order they were added.
  [[nodiscard]] std::vector<std::shared_ptr<NSOperation>> operations() const;
  [[nodiscard]] std::size_t operationCount() const;

  /// Whether the operation is in `operations`, or is just being added. Takes constant time.
  [[nodiscard]] bool contains(const NSOperation& operation) const;

  /// Sent when the queue becomes non-empty or empty, without a lock, on the thread that adds or
  /// finishes an operation; costs less than observing the keys. Overlapping changes may be reported
  /// in another order: check the current state.
  Signal<> emptinessDidChange;

  /// Cancels the operations that are in the queue now.
  void cancelAllOperations();

  /// Blocks until the queue is empty, barriers included. Inside one of its operations or barriers
  /// it would wait for itself and stops the program.
  void waitUntilAllOperationsAreFinished();

 protected:
  std::optional<std::int64_t> valueForKey(std::string_view key) const override;
  void willObserve(std::string_view key) override;

 private:
  class State;
  class StartJob;

  std::shared_ptr<State> state_;
};

}  // namespace ombrix::platform
