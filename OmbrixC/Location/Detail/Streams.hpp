#pragma once

#include <cerrno>

#include "OmbrixC/Detail/Copies.hpp"
#include "OmbrixC/Location/OmbrixStreams.h"
#include "OmbrixPlatform/Files/InputStream.hpp"
#include "OmbrixPlatform/Files/OutputStream.hpp"
#include "OmbrixPlatform/Files/URL.hpp"

namespace ombrix::c {

/// A text that is not a URL counts as one that names no file.
inline platform::URL urlFrom(const char* url) {
  return platform::URL::parse(textFrom(url)).value_or(*platform::URL::parse("none:"));
}

/// Reads through the function of a C caller.
class FunctionInputStream final : public platform::InputStream {
 public:
  explicit FunctionInputStream(const OmbrixInputStream& functions) : functions_(functions) {}

  platform::FileResult<void> open() override {
    setStatus(platform::StreamStatus::open);
    return {};
  }
  void close() noexcept override { setStatus(platform::StreamStatus::closed); }
  platform::FileResult<std::size_t> read(std::span<std::byte> buffer) override {
    const auto count = functions_.read(
        functions_.context, reinterpret_cast<std::uint8_t*>(buffer.data()), buffer.size());
    // A function that reports more bytes than there was room for is not to be trusted.
    if (count < 0 || static_cast<std::size_t>(count) > buffer.size()) {
      return fail(platform::FileError(EIO, "read"));
    }
    return static_cast<std::size_t>(count);
  }

 private:
  const OmbrixInputStream functions_;
};

/// Writes through the function of a C caller.
class FunctionOutputStream final : public platform::OutputStream {
 public:
  explicit FunctionOutputStream(const OmbrixOutputStream& functions) : functions_(functions) {}

  platform::FileResult<void> open() override {
    setStatus(platform::StreamStatus::open);
    return {};
  }
  void close() noexcept override { setStatus(platform::StreamStatus::closed); }
  platform::FileResult<void> write(platform::DataView bytes) override {
    const auto* const first = reinterpret_cast<const std::uint8_t*>(bytes.data());
    if (functions_.write(functions_.context, first, bytes.size())) return {};
    return fail(platform::FileError(EIO, "write"));
  }

 private:
  const OmbrixOutputStream functions_;
};

}  // namespace ombrix::c
