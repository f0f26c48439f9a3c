#include "OmbrixPlatform/Files/LockWait.hpp"

#include <algorithm>
#include <atomic>
#include <thread>
#include <utility>

#include "OmbrixPlatform/Concurrency/Process.hpp"
#include "OmbrixPlatform/Concurrency/QuietThread.hpp"
#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"
#include "OmbrixPlatform/Detail/Descriptor.hpp"
#include "OmbrixPlatform/Locks/Mutex.hpp"

namespace ombrix::platform::detail {
namespace {

constexpr int kMostGivenUp = 16;

std::atomic<int> givenUp{0};  // threads whose waits were given up

bool isTaken(int error) noexcept { return error == EAGAIN || error == EACCES; }

}  // namespace

int lockByAsking(int file, const LockCall& call, LockDeadline deadline) {
  using namespace std::chrono_literals;
  const ThreadPool::BlockingScope blocking;
  for (auto pause = 1ms;; pause = std::min(2 * pause, 20ms)) {
    const int error = call(file, LockStep::ask);
    if (!isTaken(error)) return error;
    if (std::chrono::steady_clock::now() >= deadline) return ETIMEDOUT;
    std::this_thread::sleep_for(pause);
  }
}

int lockBefore(int file, const LockCall& call, LockDeadline deadline) {
  const int error = call(file, LockStep::ask);
  if (!isTaken(error)) return error;
  const ThreadPool::BlockingScope blocking;
  const auto wait = LockWait::begin(file, call);
  if (!wait) return lockByAsking(file, call, deadline);
  return wait->finish(deadline) ? 0 : errno;
}

std::shared_ptr<LockWait> LockWait::begin(int file, LockCall call) {
  if (givenUp >= kMostGivenUp) return nullptr;
  Descriptor same(::fcntl(file, F_DUPFD_CLOEXEC, 0));
  if (!same) return nullptr;
  auto wait = std::make_shared<LockWait>(std::move(same), std::move(call));
  auto thread = startQuietThread("ombrix-lock", [wait] { wait->run(); });
  if (!thread.joinable()) return nullptr;
  thread.detach();
  return wait;
}

LockWait::LockWait(Descriptor file, LockCall call)
    : forks_(forkDepth()),
      file_(std::make_unique<Descriptor>(std::move(file))),
      call_(std::move(call)) {}

LockWait::~LockWait() = default;

void LockWait::run() {
  const int error = call_(file_->get(), LockStep::wait);
  const LockGuard lock(mutex_);
  isDone_ = true;
  error_ = error;
  // Closing the file releases nothing while a forked child has it open, too.
  if (!isWanted_ && error == 0) call_(file_->get(), LockStep::letGo);
  if (!isWanted_ || error != 0) file_->reset();
  if (!isWanted_) --givenUp;
  done_.notify_one();
}

Descriptor LockWait::finish(LockDeadline deadline) {
  const LockGuard lock(mutex_);
  if (done_.wait_until(mutex_, deadline, [this]() OMBRIX_REQUIRES(mutex_) { return isDone_; })) {
    errno = error_;
    return std::move(*file_);
  }
  isWanted_ = false;
  ++givenUp;
  errno = ETIMEDOUT;
  return {};
}

bool LockWait::resume() {
  if (forks_ != forkDepth()) return false;
  const LockGuard lock(mutex_);
  if (isDone_) return false;
  if (!std::exchange(isWanted_, true)) --givenUp;
  return true;
}

}  // namespace ombrix::platform::detail
