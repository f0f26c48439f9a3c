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

/// Starts operations when they are ready, by priority and in the order in which they became so, a
/// limited number at a time. A waiting operation costs no thread, and work per operation does not
/// grow with the length of the queue.
///
/// Observable keys: "operations" and "operationCount", both with the count as value, announced on
/// the thread that adds or finishes, with no lock held. Operations that were added are finished
/// also when the queue object is gone; those that a width of 0 holds back then are cancelled. Where
/// the dispatch queue below drops the job that would start an operation, that one is cancelled and
/// finishes on the thread pool; a barrier's block that is dropped is not called, and the queue goes
/// on. While nothing else waits for the pool, the thread of an operation whose `main` returns goes
/// on with the next one. Any thread.
class NSOperationQueue final : public KeyValueObserving<std::int64_t>,
                               public std::enable_shared_from_this<NSOperationQueue> {
  struct Passkey {};

 public:
  /// As many operations at once as the dispatch queue below runs.
  static constexpr std::ptrdiff_t kDefaultMaxConcurrentOperationCount = -1;

  /// A new queue that starts operations on the default global dispatch queue.
  static std::shared_ptr<NSOperationQueue> make(std::string name = {});

  explicit NSOperationQueue(Passkey, std::string name);
  ~NSOperationQueue() override;

  [[nodiscard]] std::string name() const;
  void setName(std::string name);

  /// The most operations that execute at once; barriers are not counted. 0 holds all back.
  [[nodiscard]] std::ptrdiff_t maxConcurrentOperationCount() const;
  void setMaxConcurrentOperationCount(std::ptrdiff_t count);

  /// The dispatch queue that `start` is called on. Change it only while the queue is empty.
  [[nodiscard]] std::shared_ptr<DispatchQueue> underlyingQueue() const;
  void setUnderlyingQueue(std::shared_ptr<DispatchQueue> queue);

  /// Adding an operation a second time, to any queue, or one that has finished, stops the program.
  void addOperation(std::shared_ptr<NSOperation> operation);

  /// Adds an operation that runs the block.
  void addOperation(std::function<void()> block);

  /// Runs the block when every operation added before has finished; operations added after start
  /// only once it has returned. It is not among `operations`.
  void addBarrierBlock(std::function<void()> block);

  /// The operations that have not finished, in the order of adding.
  [[nodiscard]] std::vector<std::shared_ptr<NSOperation>> operations() const;
  [[nodiscard]] std::size_t operationCount() const;

  /// Whether the operation is among `operations`, or just about to be. Takes constant time.
  [[nodiscard]] bool contains(const NSOperation& operation) const;

  /// Sent when the first operation has come and when the last one has gone, on the thread that adds
  /// or finishes, with no lock held; costs less than observing the keys. Changes that overlap may
  /// be told of in another order: look what is so now.
  Signal<> emptinessDidChange;

  /// Cancels what is in the queue now.
  void cancelAllOperations();

  /// Blocks until the queue is empty, barriers included. Inside one of its operations or barriers
  /// it would wait for itself: it stops the program.
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
