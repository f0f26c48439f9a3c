#pragma once

#include <atomic>
#include <cstdint>
#include <future>
#include <list>
#include <memory>
#include <mutex>
#include <optional>

#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Locks/FutexLock.hpp"
#include "OmbrixPlatform/Network/NWPathMonitor.hpp"
#include "OmbrixPlatform/Network/Path/Detail/PathGate.hpp"
#include "OmbrixPlatform/Network/URLSession.hpp"
#include "OmbrixPlatform/Values/Clock.hpp"

namespace ombrix::platform::detail {

class CurlLoop;
class TransferTask;

/// A session on libcurl. It owns its network thread (`CurlLoop`), so sessions share no connections:
/// a certificate that one session accepted gives another session nothing.
///
/// Tasks that are not over keep their session; the network thread ends with the session.
class CurlURLSession final : public URLSession,
                             public std::enable_shared_from_this<CurlURLSession> {
 public:
  using TaskList = std::list<TransferTask*>;

  CurlURLSession(const URLSessionConfiguration& configuration,
                 std::shared_ptr<URLSessionDelegate> delegate,
                 std::shared_ptr<DispatchQueue> delegateQueue);
  ~CurlURLSession() override;

  [[nodiscard]] const URLSessionConfiguration& configuration() const override {
    return configuration_;
  }
  [[nodiscard]] const std::shared_ptr<DispatchQueue>& delegateQueue() const override {
    return delegateQueue_;
  }
  std::shared_ptr<URLSessionDataTask> dataTask(
      URLRequest request, URLSessionCompletionHandler completionHandler) override;
  std::shared_ptr<URLSessionUploadTask> uploadTask(
      URLRequest request, std::optional<SharedData> body,
      URLSessionCompletionHandler completionHandler) override;
  void finishTasksAndInvalidate() override;
  void invalidateAndCancel() override;
  void close() override;

  // For its tasks and its loop, on any thread.

  [[nodiscard]] const std::shared_ptr<Clock>& clock() const noexcept { return clock_; }
  [[nodiscard]] CurlLoop& loop() const noexcept { return *loop_; }

  /// Null for none, and after the session has ended.
  [[nodiscard]] std::shared_ptr<URLSessionDelegate> delegate() const;

  /// Runs a job on the delegate queue.
  void post(Job job) { delegateQueue_->async(std::move(job)); }

  /// Runs a job once the path is known, at once when it is known already. If a monitor has not
  /// reported within two seconds, the path that it has by then counts.
  void whenPathIsKnown(Job job);

  /// Whether all paths are constrained just now.
  [[nodiscard]] bool isConstrained() { return watchPath().currentPath().isConstrained; }

  /// The monitor of the network path, started on first use; it tells the loop of changes.
  NWPathMonitor& watchPath();

  /// Removes a task from the list of those that are not over.
  void taskIsOver(TaskList::iterator place);

 private:
  std::shared_ptr<TransferTask> makeTask(URLRequest request, URLSessionCompletionHandler handler);
  void endWhenIdle();

  const URLSessionConfiguration configuration_;
  const std::shared_ptr<DispatchQueue> delegateQueue_;
  const std::shared_ptr<Clock> clock_;
  const std::shared_ptr<CurlLoop> loop_;
  std::atomic<std::uint64_t> lastIdentifier_ = 0;
  std::once_flag pathOnce_;
  const std::shared_ptr<PathGate> pathGate_ = std::make_shared<PathGate>();
  std::shared_ptr<NWPathMonitor> pathMonitor_;  // set by `pathOnce_`
  mutable FutexLock lock_;
  std::shared_ptr<URLSessionDelegate> delegate_ OMBRIX_GUARDED_BY(lock_);
  TaskList tasks_ OMBRIX_GUARDED_BY(lock_);  // not over yet, suspended ones included
  bool isInvalid_ OMBRIX_GUARDED_BY(lock_) = false;
  bool hasEnded_ OMBRIX_GUARDED_BY(lock_) = false;
  std::promise<void> endIsTold_;  // fulfilled once, when the delegate was told of the end
  const std::shared_future<void> end_ = endIsTold_.get_future().share();
};

}  // namespace ombrix::platform::detail
