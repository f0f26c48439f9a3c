#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "OmbrixPlatform/Files/FileError.hpp"
#include "OmbrixPlatform/Files/Stream.hpp"
#include "OmbrixPlatform/Files/URL.hpp"
#include "OmbrixPlatform/Values/Data.hpp"

namespace ombrix::platform {

/// What opening an output file does with an existing file; a missing file is made in both cases.
enum class OutputFileMode : std::uint8_t {
  append,   ///< Writes go to the end of the file, also when another process writes meanwhile.
  replace,  ///< The file is emptied first.
};

/// A sink of bytes that is opened, written in blocks and closed. One thread at a time.
///
/// A stream does not buffer: hand over large blocks. Derive from it to write elsewhere.
class OutputStream {
 public:
  /// A stream that makes or opens a file; nothing is touched before `open`.
  static std::unique_ptr<OutputStream> withURL(const URL& url, OutputFileMode mode);
  static std::unique_ptr<OutputStream> withPath(std::string path, OutputFileMode mode);

  /// A stream that collects its bytes, see `data`.
  static std::unique_ptr<OutputStream> toMemory();

  /// A stream on an open descriptor. A write to a pipe that nobody reads raises SIGPIPE as usual.
  static std::unique_ptr<OutputStream> withDescriptor(int descriptor,
                                                      DescriptorOwnership ownership);

  OutputStream() = default;
  OutputStream(const OutputStream&) = delete;
  OutputStream& operator=(const OutputStream&) = delete;
  virtual ~OutputStream() = default;

  /// Makes the stream ready to write; opening it again, or after `close`, has no effect.
  /// @return Why it could not be opened; kept in `streamError`.
  virtual FileResult<void> open() = 0;

  /// Gives the file back. Safe to repeat; the destructor does it too. A late write error that the
  /// system reports only now puts the stream into status `error`.
  virtual void close() noexcept = 0;

  /// Writes all bytes: a short write is continued, an interruption retried.
  /// @return Why not all were written (some may have been); kept in `streamError`. EBADF before
  ///   `open` and after `close`.
  virtual FileResult<void> write(DataView bytes) = 0;

  [[nodiscard]] StreamStatus streamStatus() const noexcept { return status_; }

  /// The error that put the stream into status `error`.
  [[nodiscard]] const std::optional<FileError>& streamError() const noexcept { return error_; }

  /// The bytes that a memory stream has collected so far; empty for other streams. Valid until the
  /// next write, and after `close`.
  [[nodiscard]] virtual std::optional<DataView> data() const noexcept { return std::nullopt; }

  /// How many bytes of the last `write` were taken before it failed; 0 when it did not fail, and
  /// for streams that do not tell.
  [[nodiscard]] std::size_t bytesOfFailedWrite() const noexcept { return bytesOfFailedWrite_; }

  /// Opens the stream again after a failed write, and takes back the last `bytes` bytes of those
  /// that it had taken, so that the file ends where it should.
  ///
  /// @param bytes  0 to `bytesOfFailedWrite()`
  /// @return whether they are gone. They stay in what is not a regular file, and where others have
  ///         appended something behind them. A stream of another kind, or one that has been closed,
  ///         stays as it is.
  virtual bool resume(std::size_t bytes) noexcept;

  /// Waits until the written bytes, and the name of a new file, would survive a loss of power.
  /// @return Why that cannot be promised: EINVAL where there is no disk behind the stream.
  virtual FileResult<void> sync();

  /// The open descriptor behind the stream, -1 where there is none.
  [[nodiscard]] virtual int fileDescriptor() const noexcept { return -1; }

 protected:
  void setStatus(StreamStatus status) noexcept { status_ = status; }

  /// Notes the error and how many bytes a write had handed over; returns the error.
  std::unexpected<FileError> fail(FileError error, std::size_t bytesTaken = 0);

  /// Forgets the error.
  void reopen() noexcept;

 private:
  StreamStatus status_ = StreamStatus::notOpen;
  std::optional<FileError> error_;
  std::size_t bytesOfFailedWrite_ = 0;
};

}  // namespace ombrix::platform
