#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "OmbrixPlatform/Files/FileError.hpp"
#include "OmbrixPlatform/Files/Stream.hpp"
#include "OmbrixPlatform/Files/URL.hpp"
#include "OmbrixPlatform/Values/Data.hpp"

namespace ombrix::platform {

/// A source of bytes that is opened, read in blocks and closed. One thread at a time.
///
/// A stream does not buffer: ask for large blocks (256 KiB suits files). Derive from it to read
/// from elsewhere.
class InputStream {
 public:
  /// A stream on a file's bytes. Nothing is opened yet, so it can also be made for a missing file.
  static std::unique_ptr<InputStream> withURL(const URL& url);
  static std::unique_ptr<InputStream> withPath(std::string path);

  /// A stream on bytes in memory, owned or borrowed; borrowed bytes must outlive the stream.
  static std::unique_ptr<InputStream> withData(Data data);
  static std::unique_ptr<InputStream> withView(DataView bytes);

  /// A stream on an open descriptor: a file from its current place, a pipe, a socket.
  static std::unique_ptr<InputStream> withDescriptor(int descriptor, DescriptorOwnership ownership);

  InputStream() = default;
  InputStream(const InputStream&) = delete;
  InputStream& operator=(const InputStream&) = delete;
  virtual ~InputStream() = default;

  /// Makes the stream ready to read; opening it again, or after `close`, has no effect.
  /// @return Why it could not be opened (a folder is refused as well); kept in `streamError`.
  virtual FileResult<void> open() = 0;

  /// Gives the file back. Safe to repeat; the destructor does it too.
  virtual void close() noexcept = 0;

  /// Reads at most `buffer.size()` bytes, waiting for the first one; interruptions are retried.
  /// @return How many were read: fewer than asked for does not mean the end, 0 does (or an empty
  ///   buffer). EBADF before `open` and after `close`.
  virtual FileResult<std::size_t> read(std::span<std::byte> buffer) = 0;

  [[nodiscard]] StreamStatus streamStatus() const noexcept { return status_; }

  /// The error that put the stream into status `error`.
  [[nodiscard]] const std::optional<FileError>& streamError() const noexcept { return error_; }

  /// All bytes not read yet, if they are in memory already; empty for other streams. They still
  /// count as not read, and stay valid as long as the stream.
  [[nodiscard]] virtual std::optional<DataView> remainingBytes() const noexcept {
    return std::nullopt;
  }

  /// The open descriptor behind the stream, -1 where there is none: for hints such as
  /// `posix_fadvise`, or to ask for the file's size.
  [[nodiscard]] virtual int fileDescriptor() const noexcept { return -1; }

 protected:
  void setStatus(StreamStatus status) noexcept { status_ = status; }

  /// Notes the error and gives it back to be returned.
  std::unexpected<FileError> fail(FileError error);

 private:
  StreamStatus status_ = StreamStatus::notOpen;
  std::optional<FileError> error_;
};

}  // namespace ombrix::platform
