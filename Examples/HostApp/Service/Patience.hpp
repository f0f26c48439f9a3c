#pragma once

#include <chrono>
#include <cstdint>

namespace ombrix::hostapp {

/// Decides how long to wait for a server that takes no bytes of a request.
class Patience {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  Patience(std::chrono::seconds limit, TimePoint now) : limit_(limit), since_(now) {}

  /// Whether to give up: no byte was taken for longer than the limit, since the beginning or since
  /// the body was restarted (a redirect).
  ///
  /// @param sentBytes Bytes of the body; a body without bytes counts as not taken until its answer.
  bool isOver(std::int64_t sentBytes, TimePoint now) {
    if (sentBytes != sentBytes_) {
      sentBytes_ = sentBytes;
      since_ = now;
    }
    return sentBytes == 0 && now - since_ > limit_;
  }

 private:
  const std::chrono::seconds limit_;
  TimePoint since_;
  std::int64_t sentBytes_ = 0;
};

}  // namespace ombrix::hostapp
