#include "OmbrixPlatform/Logging/DDFileLogger.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "OmbrixPlatform/Concurrency/Process.hpp"
#include "OmbrixPlatform/Concurrency/QuietThread.hpp"
#include "OmbrixPlatform/Detail/Descriptor.hpp"
#include "OmbrixPlatform/Locks/Condition.hpp"
#include "OmbrixPlatform/Locks/TryLock.hpp"
#include "OmbrixPlatform/Logging/DDLog.hpp"
#include "OmbrixPlatform/Logging/Detail/LogLine.hpp"

namespace ombrix::platform {
namespace {

using std::chrono::milliseconds;
using SteadyTime = std::chrono::steady_clock::time_point;

constexpr std::size_t kBlockBytes = 64 * 1024;          // Written at once when reached.
constexpr std::size_t kMaximumHeldBytes = 1024 * 1024;  // While no file can be written.
constexpr milliseconds kLongestDelay{10};               // Until a line is in the file.
constexpr std::chrono::seconds kRetryInterval{1};       // After a failure.
constexpr int kMaximumPasses = 4;                       // Per write; the second mends torn lines.

void flushAtExit() {
  static constinit std::atomic_flag isRegistered{};
  if (!isRegistered.test_and_set()) atExit(DDLog::flushLog);
}

}  // namespace

/// The state behind the logger's one lock: the buffered lines and the file they go to.
class DDFileLogger::Writer {
 public:
  explicit Writer(std::shared_ptr<DDLogFileManager> fileManager)
      : manager(std::move(fileManager)) {}

  ~Writer() {
    {
      const LockGuard lock(mutex);
      isStopping_ = true;
    }
    somethingToDo_.notify_one();
    if (thread_.joinable()) thread_.join();
    writeNow();
    closeFile();
  }

  /// Adds the line that `append` appends to a text, and writes it now or soon.
  template <class Append>
  void add(const DDLogMessage& message, Append append) OMBRIX_REQUIRES(mutex) {
    lastDate_ = message.timestamp;
    if (rollDate_ && lastDate_ >= *rollDate_) endOldFile();
    if (lines_.size() >= kMaximumHeldBytes) {
      write();
      if (lines_.size() >= kMaximumHeldBytes) return;
    }
    if (lines_.capacity() < kBlockBytes) lines_.reserve(kBlockBytes + kBlockBytes / 8);
    const std::size_t held = lines_.size();
    append(lines_);
    detail::finishLogLine(lines_, held);
    const bool isUrgent = message.flag == DDLogFlag::error || descriptor_ < 0 ||
                          lines_.size() >= kBlockBytes || isProcessExiting();
    if (isUrgent) {
      write();
    } else if (held == 0) {
      writeSoon();
    }
  }

  /// Writes all buffered lines, unless that failed a moment ago; lines that cannot be written stay.
  void write() OMBRIX_REQUIRES(mutex) {
    if (lines_.empty()) return;
    if (nextAttempt_ && std::chrono::steady_clock::now() < *nextAttempt_) return;
    writeNow();
  }

  /// The same, even if it failed a moment ago.
  void writeNow() OMBRIX_REQUIRES(mutex) {
    if (lines_.empty() || !openFile()) return;
    int error = 0;
    for (int pass = 0; pass < kMaximumPasses && error == 0 && !lines_.empty(); ++pass) {
      error = appendToFile();
    }
    if (error != 0) return waitAfterFailure("write to", error);
    nextAttempt_.reset();
    if (maximumFileSize != 0 && size_ >= maximumFileSize) closeFile();
  }

  /// The next write goes to a new file, not to one that another process created.
  void startNewFile() OMBRIX_REQUIRES(mutex) {
    closeFile();
    needsNewFile_ = true;
    nextAttempt_.reset();
  }

  /// Sets the time at which the open file ends.
  void scheduleRolling() OMBRIX_REQUIRES(mutex) {
    rollDate_.reset();
    if (descriptor_ >= 0 && rollingFrequency.count() > 0) {
      // A file from the future (the clock was set back) ends one interval from now at the latest.
      rollDate_ = std::min(creationDate_, lastDate_) + rollingFrequency;
    }
  }

  Mutex mutex;
  const std::shared_ptr<DDLogFileManager> manager;
  TimeInterval rollingFrequency OMBRIX_GUARDED_BY(mutex) = kDefaultRollingFrequency;
  std::uint64_t maximumFileSize OMBRIX_GUARDED_BY(mutex) = kDefaultMaximumFileSizeBytes;

 private:
  /// Appends the buffered lines with one write and removes those that are complete in the file.
  /// Returns 0, or the errno of a write that took nothing.
  ///
  /// A full disk takes a part, and another process's line may follow it at once. So a torn line
  /// stays alone on its line and is written again completely; the same holds for a line of ours
  /// that follows a line that another process tore.
  int appendToFile() OMBRIX_REQUIRES(mutex) {
    const bool startsAnew = !endsWithLineBreak(::lseek(descriptor_, 0, SEEK_END));
    if (startsAnew) lines_.insert(0, 1, '\n');
    const auto count = detail::retrying([file = descriptor_, bytes = std::string_view(lines_)] {
      return ::write(file, bytes.data(), bytes.size());
    });
    if (count <= 0) {
      const int error = errno;
      if (startsAnew) lines_.erase(0, 1);
      return error;
    }
    size_ += static_cast<std::uint64_t>(count);
    const std::size_t whole = lines_.rfind('\n', static_cast<std::size_t>(count) - 1) + 1;
    std::string again;
    if (!startsAnew && whole > 0 && !endsWithLineBreak(::lseek(descriptor_, 0, SEEK_CUR) - count)) {
      again = lines_.substr(0, lines_.find('\n') + 1);
    }
    lines_.erase(0, std::max<std::size_t>(whole, startsAnew ? 1 : 0));
    lines_.insert(0, again);
    return 0;
  }

  /// Whether the file's first `size` bytes end with a line break; true when they cannot be read.
  bool endsWithLineBreak(off_t size) const OMBRIX_REQUIRES(mutex) {
    char last = '\n';
    return size <= 0 || ::pread(descriptor_, &last, 1, size - 1) != 1 || last == '\n';
  }

  /// Makes sure that a file is open and has not been unlinked.
  bool openFile() OMBRIX_REQUIRES(mutex) {
    if (descriptor_ >= 0) {
      struct stat status{};
      if (::fstat(descriptor_, &status) == 0 && status.st_nlink != 0) {
        size_ = static_cast<std::uint64_t>(status.st_size);
        return true;
      }
      closeFile();
    }
    DDLogFileManager::OpenFile file;
    if (!needsNewFile_) file = manager->openNewestLogFile();
    if (file.descriptor >= 0 && !isWorthContinuing(file)) {
      ::close(std::exchange(file.descriptor, -1));
    }
    if (file.descriptor < 0) file = manager->createNewLogFile(lastDate_);
    if (file.descriptor < 0) {
      waitAfterFailure("open", file.error);
      return false;
    }
    nextAttempt_.reset();
    needsNewFile_ = false;
    descriptor_ = file.descriptor;
    creationDate_ = file.creationDate;
    size_ = sizeOf(descriptor_);
    scheduleRolling();
    return true;
  }

  bool isWorthContinuing(const DDLogFileManager::OpenFile& file) const OMBRIX_REQUIRES(mutex) {
    const bool isYoung =
        rollingFrequency.count() <= 0 || lastDate_ - file.creationDate < rollingFrequency;
    return isYoung && (maximumFileSize == 0 || sizeOf(file.descriptor) < maximumFileSize);
  }

  static std::uint64_t sizeOf(int descriptor) {
    struct stat status{};
    return ::fstat(descriptor, &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
  }

  void endOldFile() OMBRIX_REQUIRES(mutex) {
    write();
    // Another process may have created the next file already; but a file from the future would be
    // reopened again and again.
    needsNewFile_ = creationDate_ > lastDate_;
    closeFile();
  }

  void closeFile() OMBRIX_REQUIRES(mutex) {
    if (descriptor_ >= 0) ::close(std::exchange(descriptor_, -1));
    rollDate_.reset();
  }

  void writeSoon() OMBRIX_REQUIRES(mutex) {
    if (!thread_.joinable())
      thread_ = startQuietThread("ombrix-log", [this] { writeInBackground(); });
    if (thread_.joinable()) {
      somethingToDo_.notify_one();
    } else {
      write();
    }
  }

  void writeInBackground() {
    const LockGuard lock(mutex);
    const auto hasWork = [this]() OMBRIX_REQUIRES(mutex) { return isStopping_ || !lines_.empty(); };
    const auto isStopping = [this]() OMBRIX_REQUIRES(mutex) { return isStopping_; };
    while (!isStopping_) {
      somethingToDo_.wait(mutex, hasWork);
      const auto delay = nextAttempt_ ? milliseconds(kRetryInterval) : kLongestDelay;
      somethingToDo_.wait_for(mutex, delay, isStopping);
      if (!isStopping_) write();
    }
  }

  void waitAfterFailure(const char* action, int error) OMBRIX_REQUIRES(mutex) {
    nextAttempt_ = std::chrono::steady_clock::now() + kRetryInterval;
    if (std::exchange(hasComplained_, true)) return;
    std::fprintf(stderr, "Cannot %s a log file in %s: %s\n", action,
                 manager->logsDirectory().c_str(), std::strerror(error));
  }

  std::string lines_ OMBRIX_GUARDED_BY(mutex);
  Date lastDate_ OMBRIX_GUARDED_BY(mutex){};
  int descriptor_ OMBRIX_GUARDED_BY(mutex) = -1;
  Date creationDate_ OMBRIX_GUARDED_BY(mutex){};
  std::uint64_t size_ OMBRIX_GUARDED_BY(mutex) = 0;
  std::optional<Date> rollDate_ OMBRIX_GUARDED_BY(mutex);
  std::optional<SteadyTime> nextAttempt_ OMBRIX_GUARDED_BY(mutex);
  bool needsNewFile_ OMBRIX_GUARDED_BY(mutex) = false;
  bool hasComplained_ OMBRIX_GUARDED_BY(mutex) = false;
  bool isStopping_ OMBRIX_GUARDED_BY(mutex) = false;
  Condition somethingToDo_;
  std::thread thread_ OMBRIX_GUARDED_BY(mutex);
};

DDFileLogger::DDFileLogger(std::shared_ptr<DDLogFileManager> logFileManager)
    : writer_(std::make_unique<Writer>(std::move(logFileManager))) {
  flushAtExit();
}

DDFileLogger::~DDFileLogger() = default;

const std::shared_ptr<DDLogFileManager>& DDFileLogger::logFileManager() const {
  return writer_->manager;
}

TimeInterval DDFileLogger::rollingFrequency() const {
  const LockGuard lock(writer_->mutex);
  return writer_->rollingFrequency;
}

void DDFileLogger::setRollingFrequency(TimeInterval frequency) {
  const LockGuard lock(writer_->mutex);
  writer_->rollingFrequency = frequency;
  writer_->scheduleRolling();
}

std::uint64_t DDFileLogger::maximumFileSize() const {
  const LockGuard lock(writer_->mutex);
  return writer_->maximumFileSize;
}

void DDFileLogger::setMaximumFileSize(std::uint64_t bytes) {
  const LockGuard lock(writer_->mutex);
  writer_->maximumFileSize = bytes;
}

void DDFileLogger::rollLogFile() {
  const LockGuard lock(writer_->mutex);
  writer_->writeNow();
  writer_->startNewFile();
}

void DDFileLogger::log(const DDLogMessage& message) {
  const LockGuard lock(writer_->mutex);
  writer_->add(message, [&](std::string& lines) { appendLine(message, lines); });
}

void DDFileLogger::flush() {
  const LockGuard lock(writer_->mutex);
  writer_->writeNow();
}

void DDFileLogger::flushBeforeAbort() noexcept {
  // The failing thread may hold this lock (it stopped inside a formatter); others release it soon.
  if (!tryLockRepeatedly(writer_->mutex)) return;
  const LockGuard lock(writer_->mutex, std::adopt_lock);
  writer_->writeNow();
}

}  // namespace ombrix::platform
