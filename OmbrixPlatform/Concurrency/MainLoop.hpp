#pragma once

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

#include "OmbrixPlatform/Concurrency/Executor.hpp"

namespace ombrix::platform {

/// The default main executor: a list of jobs that the host's main thread runs, or, as long as the
/// host does not, a thread of the library's own, which ends when it has had nothing to do for a
/// while.
///
/// Running or pumping it inside one of its jobs would wait for that job: it stops the program. So
/// does `DispatchQueue::main().sync` on the thread that pumps it, outside its jobs.
///
/// A host with a loop of its own calls `pump` from it, or puts an executor of its own into the
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
  /// library's own thread serves what comes. A thread at a time.
  void run();

  /// Ends `run` after the job under way; when nothing runs, the next `run` returns at once. Any
  /// thread.
  void stop();

  /// Makes the calling thread the main thread and runs the jobs that wait now.
  ///
  /// From then on only further calls run jobs, so keep calling. True when it ran any.
  bool pump();

  /// Ends what `pump` began: the library's own thread serves again. Any thread.
  void handBack();

  /// Makes the library's own threads for which jobs wait and which could not be made before, of all
  /// loops.
  static void retryOwnThreads();

  /// Whether the calling thread has made itself the main thread, and is it still.
  [[nodiscard]] bool isMainThread();

 private:
  void serve();
  void adopt(std::unique_lock<std::mutex>& lock);
  void release();
  void startOwnThread();
  bool runOne(std::unique_lock<std::mutex>& lock);

  void list();

  bool isListed_ = false;  // among those whose thread could not be made before
  MainLoop* previous_ = nullptr;
  MainLoop* next_ = nullptr;
  std::mutex mutex_;  // guards what follows
  std::condition_variable changed_;
  std::deque<Job> jobs_;
  bool isAdopted_ = false;
  std::thread::id adopter_;
  unsigned adopters_ = 0;  // threads inside `run` or `pump`
  bool ownThreadServes_ = false;
  bool isStopping_ = false;
};

/// The default of the `mainExecutor` service: the shared `MainLoop`.
std::shared_ptr<Executor> makeMainExecutor();

}  // namespace ombrix::platform
