#include "OmbrixPlatform/Files/OutputStream.hpp"

#include <sys/stat.h>

#include <filesystem>

#include "OmbrixPlatform/Detail/Descriptor.hpp"

namespace ombrix::platform {
namespace {

class MemoryOutputStream final : public OutputStream {
 public:
  FileResult<void> open() override {
    if (streamStatus() == StreamStatus::notOpen) setStatus(StreamStatus::open);
    return {};
  }

  void close() noexcept override { setStatus(StreamStatus::closed); }

  FileResult<void> write(DataView bytes) override {
    if (streamStatus() != StreamStatus::open) return std::unexpected(FileError(EBADF, "write"));
    collected_.insert(collected_.end(), bytes.begin(), bytes.end());
    return {};
  }

  std::optional<DataView> data() const noexcept override { return collected_; }

 private:
  Data collected_;
};

class DescriptorOutputStream final : public OutputStream {
 public:
  DescriptorOutputStream(std::string path, OutputFileMode mode)
      : path_(std::move(path)), mode_(mode) {}
  DescriptorOutputStream(int descriptor, DescriptorOwnership ownership)
      : descriptor_(descriptor), isBorrowed_(ownership == DescriptorOwnership::borrowed) {}
  ~DescriptorOutputStream() override { closeDescriptor(); }

  FileResult<void> open() override {
    if (streamStatus() != StreamStatus::notOpen) return {};
    if (!descriptor_) {
      const int mode = mode_ == OutputFileMode::append ? O_APPEND : O_TRUNC;
      descriptor_ = detail::openFile(path_, O_WRONLY | O_CREAT | mode);
    }
    if (!descriptor_) return fail(FileError(errno, "open", path_));
    setStatus(StreamStatus::open);
    return {};
  }

  void close() noexcept override {
    const int error = closeDescriptor();
    setStatus(StreamStatus::closed);
    if (error != 0) fail(FileError(error, "close", path_));
  }

  FileResult<void> write(DataView bytes) override {
    if (streamStatus() != StreamStatus::open) {
      const FileError error = streamError().value_or(FileError(EBADF, "write", path_));
      // An earlier write took a part of its bytes; this one has taken none.
      if (streamStatus() == StreamStatus::error) return fail(error, 0);
      return std::unexpected(error);
    }
    std::size_t taken = 0;
    if (const int error = writeInPieces(bytes, taken); error != 0) {
      return fail(FileError(error, "write", path_), taken);
    }
    return {};
  }

  bool resume(std::size_t bytes) noexcept override {
    if (streamStatus() != StreamStatus::error || !descriptor_) return false;
    const bool isGone = bytes == 0 || takeBack(static_cast<off_t>(bytes));
    reopen();
    return isGone;
  }

  FileResult<void> sync() override {
    if (streamStatus() != StreamStatus::open) {
      return std::unexpected(streamError().value_or(FileError(EBADF, "sync", path_)));
    }
    const auto waitFor = [](int descriptor) {
      return detail::retrying([descriptor] { return ::fsync(descriptor); }) == 0;
    };
    if (!waitFor(descriptor_.get())) return std::unexpected(FileError(errno, "sync", path_));
    if (path_.empty() || isNameSynced_) return {};
    const std::string parent = std::filesystem::path(path_).parent_path().string();
    const std::string folder = parent.empty() ? "." : parent;
    const auto opened = detail::openFile(folder, O_RDONLY);
    if (!opened || !waitFor(opened.get())) {
      return std::unexpected(FileError(errno, "sync", folder));
    }
    isNameSynced_ = true;
    return {};
  }

  int fileDescriptor() const noexcept override { return descriptor_.get(); }

 private:
  int closeDescriptor() noexcept {
    if (isBorrowed_) descriptor_.release();
    return descriptor_.reset();
  }

  /// Writes all bytes. If the file takes only a part, notes which bytes lie together at its end.
  int writeInPieces(DataView bytes, std::size_t& taken) noexcept {
    const int file = descriptor_.get();
    off_t end = -1;  // of the piece before
    unbroken_ = 0;
    while (taken < bytes.size()) {
      const DataView rest = bytes.subspan(taken);
      const auto count = detail::retrying([&] { return ::write(file, rest.data(), rest.size()); });
      // Only files that are not regular make a writer wait, and those have no end to note.
      if (count < 0) return errno == EAGAIN ? detail::writeAll(file, rest, &taken) : errno;
      taken += static_cast<std::size_t>(count);
      if (taken == bytes.size()) break;
      const off_t now = ::lseek(file, 0, SEEK_CUR);
      if (now - count != end) unbroken_ = 0;  // another process has written in between
      unbroken_ += count;
      end = now;
    }
    return 0;
  }

  /// Cuts off the last bytes that were written here, unless others have written after or among
  /// them. A write between the check and the cut goes unnoticed: processes that append to the same
  /// file on a full disk need a lock of their own.
  [[nodiscard]] bool takeBack(off_t bytes) const noexcept {
    struct stat info{};
    const off_t end = ::lseek(descriptor_.get(), 0, SEEK_CUR);
    if (end < bytes || bytes > unbroken_ || fstat(descriptor_.get(), &info) != 0) return false;
    if (!S_ISREG(info.st_mode) || info.st_size != end) return false;
    const auto cut = [&] { return ::ftruncate(descriptor_.get(), end - bytes); };
    return detail::retrying(cut) == 0 && ::lseek(descriptor_.get(), end - bytes, SEEK_SET) >= 0;
  }

  std::string path_;
  off_t unbroken_ = 0;  ///< How many of the last bytes of a failed write lie together.
  bool isNameSynced_ = false;
  OutputFileMode mode_ = OutputFileMode::append;
  detail::Descriptor descriptor_;
  bool isBorrowed_ = false;
};

}  // namespace

bool OutputStream::resume(std::size_t) noexcept { return false; }

FileResult<void> OutputStream::sync() { return std::unexpected(FileError(EINVAL, "sync")); }

std::unexpected<FileError> OutputStream::fail(FileError error, std::size_t bytesTaken) {
  status_ = StreamStatus::error;
  error_ = error;
  bytesOfFailedWrite_ = bytesTaken;
  return std::unexpected(std::move(error));
}

void OutputStream::reopen() noexcept {
  status_ = StreamStatus::open;
  error_.reset();
  bytesOfFailedWrite_ = 0;
}

std::unique_ptr<OutputStream> OutputStream::withURL(const URL& url, OutputFileMode mode) {
  return withPath(url.path(), mode);
}

std::unique_ptr<OutputStream> OutputStream::withPath(std::string path, OutputFileMode mode) {
  return std::make_unique<DescriptorOutputStream>(std::move(path), mode);
}

std::unique_ptr<OutputStream> OutputStream::toMemory() {
  return std::make_unique<MemoryOutputStream>();
}

std::unique_ptr<OutputStream> OutputStream::withDescriptor(int descriptor,
                                                           DescriptorOwnership ownership) {
  return std::make_unique<DescriptorOutputStream>(descriptor, ownership);
}

}  // namespace ombrix::platform
