#pragma once

#include <algorithm>
#include <cerrno>
#include <string>

#include "OmbrixPlatform/Files/OutputStream.hpp"

namespace ombrix::testing {

/// A stream that collects what is written until its room is used up; from then on writes fail as on
/// a full disk, having taken what fits. One thread at a time.
class SmallDisk final : public platform::OutputStream {
 public:
  explicit SmallDisk(std::size_t bytes) : room(bytes) {}

  platform::FileResult<void> open() override {
    setStatus(platform::StreamStatus::open);
    return {};
  }
  void close() noexcept override { setStatus(platform::StreamStatus::closed); }
  platform::FileResult<void> write(platform::DataView bytes) override {
    ++writes;
    const auto taken = bytes.first(std::min(bytes.size(), room));
    text += platform::textOf(taken);
    room -= taken.size();
    if (taken.size() < bytes.size()) return std::unexpected(platform::FileError(ENOSPC, "write"));
    return {};
  }

  std::string text;  ///< What was taken so far.
  std::size_t room;  ///< Bytes that can still be taken; a test may add to it.
  int writes = 0;    ///< How often `write` was called.
};

}  // namespace ombrix::testing
