#include "OmbrixPlatform/Locks/Futex.hpp"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

namespace ombrix::platform {

static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t));

bool futexWait(const std::atomic<std::uint32_t>& word, std::uint32_t value,
               std::optional<std::chrono::seconds> limit) noexcept {
  timespec time{};
  if (limit) time.tv_sec = limit->count();
  const auto outcome =
      ::syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, value, limit ? &time : nullptr, nullptr, 0);
  return outcome == 0 || errno != ETIMEDOUT;
}

void futexWakeOne(const std::atomic<std::uint32_t>* word) noexcept {
  ::syscall(SYS_futex, word, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

}  // namespace ombrix::platform
