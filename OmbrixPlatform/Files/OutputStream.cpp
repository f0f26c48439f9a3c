#include "OmbrixPlatform/Files/OutputStream.hpp"

#include "OmbrixPlatform/Files/Detail/Descriptor.hpp"

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
      return std::unexpected(streamError().value_or(FileError(EBADF, "write", path_)));
    }
    if (const int error = detail::writeAll(descriptor_.get(), bytes); error != 0) {
      return fail(FileError(error, "write", path_));
    }
    return {};
  }

  int fileDescriptor() const noexcept override { return descriptor_.get(); }

 private:
  int closeDescriptor() noexcept {
    if (isBorrowed_) descriptor_.release();
    return descriptor_.reset();
  }

  std::string path_;
  OutputFileMode mode_ = OutputFileMode::append;
  detail::Descriptor descriptor_;
  bool isBorrowed_ = false;
};

}  // namespace

std::unexpected<FileError> OutputStream::fail(FileError error) {
  status_ = StreamStatus::error;
  error_ = error;
  return std::unexpected(std::move(error));
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
