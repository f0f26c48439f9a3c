#pragma once

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <span>
#include <string>
#include <utility>

#include "OmbrixPlatform/Values/Data.hpp"

namespace ombrix::platform::detail {

/// Owns a file descriptor.
class Descriptor {
 public:
  Descriptor() noexcept = default;
  explicit Descriptor(int value) noexcept : value_(value) {}
  Descriptor(Descriptor&& other) noexcept : value_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    reset(other.release());
    return *this;
  }
  ~Descriptor() { reset(); }

  [[nodiscard]] int get() const noexcept { return value_; }
  explicit operator bool() const noexcept { return value_ >= 0; }
  int release() noexcept { return std::exchange(value_, -1); }

  /// Closes the current descriptor and takes another; returns close's errno, 0 on success.
  int reset(int value = -1) noexcept {
    const int old = std::exchange(value_, value);
    // Linux frees the number even when close is interrupted: closing it again would close another
    // thread's file.
    return old >= 0 && ::close(old) != 0 && errno != EINTR ? errno : 0;
  }

 private:
  int value_ = -1;
};

/// Repeats `operation` as long as a signal interrupts it.
template <class Operation>
auto retrying(Operation operation) noexcept {
  while (true) {
    const auto result = operation();
    if (result >= 0 || errno != EINTR) return result;
  }
}

/// open(2), closed on exec; rejects a path that holds a NUL byte.
inline Descriptor openFile(const std::string& path, int flags, mode_t mode = 0666) noexcept {
  if (path.find('\0') != std::string::npos) {
    errno = EINVAL;
    return {};
  }
  return Descriptor(retrying([&] { return ::open(path.c_str(), flags | O_CLOEXEC, mode); }));
}

/// read(2) that also waits on a non-blocking descriptor; -1 with errno on failure.
inline ssize_t readSome(int descriptor, std::span<std::byte> buffer) noexcept {
  while (true) {
    const auto count = retrying([&] { return ::read(descriptor, buffer.data(), buffer.size()); });
    if (count >= 0 || errno != EAGAIN) return count;
    pollfd ready{.fd = descriptor, .events = POLLIN, .revents = 0};
    if (retrying([&] { return ::poll(&ready, 1, -1); }) < 0) return -1;
  }
}

/// Writes everything, waiting where needed; 0, or the errno that stopped it.
/// @param taken  if not null, increased by the number of bytes written
inline int writeAll(int descriptor, DataView bytes, std::size_t* taken = nullptr) noexcept {
  while (!bytes.empty()) {
    const auto count = retrying([&] { return ::write(descriptor, bytes.data(), bytes.size()); });
    if (count >= 0) {
      bytes = bytes.subspan(static_cast<std::size_t>(count));
      if (taken != nullptr) *taken += static_cast<std::size_t>(count);
      continue;
    }
    if (errno != EAGAIN) return errno;
    pollfd ready{.fd = descriptor, .events = POLLOUT, .revents = 0};
    if (retrying([&] { return ::poll(&ready, 1, -1); }) < 0) return errno;
  }
  return 0;
}

}  // namespace ombrix::platform::detail
