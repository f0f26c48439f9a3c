#pragma once

#include <deque>
#include <memory>
#include <thread>

#include "OmbrixPlatform/Concurrency/Executor.hpp"
#include "OmbrixPlatform/Locks/Condition.hpp"

namespace ombrix::platform {

/// The default main executor: a list of jobs that the host's main thread runs. While the host does
/// not run them, a thread of the library does; that thread ends after it has been idle for a
/// while.
///
/// Running or pumping it inside one of its own jobs would wait for that job and stops the program.
/// So does `DispatchQueue::main().sync` on the thread that pumps it, outside its jobs.
///
/// A host with its own event loop calls `pump` from it, or puts its own executor into the
/// `mainExecutor` service.
class MainLoop final : public Executor, public std::enable_shared_from_this<MainLoop> {
 public:
  /// The loop behind the default `mainExecutor` service.
  static const std::shared_ptr<MainLoop>& shared();

  MainLoop() = default;
  ~MainLoop() override;

  /// Any thread.
  void post(Job job) override;

  /// Makes the calling thread the main thread and runs jobs until `stop` is called; then the
  /// library's own thread takes over. One thread at a time.
  void run();

  /// Ends `run` after the current job; if `run` is not active, the next `run` returns at once. Any
  /// thread.
  void stop();

  /// Makes the calling thread the main thread and runs the jobs that are waiting now.
  ///
  /// From then on only further calls run jobs, so keep calling. Returns true if any job ran.
  bool pump();

  /// Reverts `pump`: the library's own thread runs the jobs again. Any thread.
  void handBack();

  /// Retries, for all loops, to start the library's own threads that jobs wait for and that could
  /// not be started before.
  static void retryOwnThreads();

  /// Whether the calling thread made itself the main thread and still is.
  [[nodiscard]] bool isMainThread();

 private:
  void serve();
  void adopt() OMBRIX_REQUIRES(mutex_);
  void release() OMBRIX_REQUIRES(mutex_);
  void startOwnThread() OMBRIX_REQUIRES(mutex_);
  bool runOne() OMBRIX_REQUIRES(mutex_);

  void list();

  bool isListed_ = false;  // in the list of loops whose thread could not be started
  MainLoop* previous_ = nullptr;
  MainLoop* next_ = nullptr;
  Mutex mutex_;
  Condition changed_;
  std::deque<Job> jobs_ OMBRIX_GUARDED_BY(mutex_);
  bool isAdopted_ OMBRIX_GUARDED_BY(mutex_) = false;
  std::thread::id adopter_ OMBRIX_GUARDED_BY(mutex_);
  unsigned adopters_ OMBRIX_GUARDED_BY(mutex_) = 0;  // threads inside `run` or `pump`
  bool ownThreadServes_ OMBRIX_GUARDED_BY(mutex_) = false;
  bool isStopping_ OMBRIX_GUARDED_BY(mutex_) = false;
};

/// The default of the `mainExecutor` service: the shared `MainLoop`.
std::shared_ptr<Executor> makeMainExecutor();

}  // namespace ombrix::platform
