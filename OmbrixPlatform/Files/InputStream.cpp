#include "OmbrixPlatform/Files/InputStream.hpp"

#include <sys/stat.h>

#include <algorithm>

#include "OmbrixPlatform/Detail/Descriptor.hpp"

namespace ombrix::platform {
namespace {

class MemoryInputStream final : public InputStream {
 public:
  explicit MemoryInputStream(Data data) : owned_(std::move(data)), rest_(owned_) {}
  explicit MemoryInputStream(DataView bytes) : rest_(bytes) {}

  FileResult<void> open() override {
    if (streamStatus() == StreamStatus::notOpen) setStatus(StreamStatus::open);
    return {};
  }

  void close() noexcept override { setStatus(StreamStatus::closed); }

  FileResult<std::size_t> read(std::span<std::byte> buffer) override {
    if (streamStatus() == StreamStatus::notOpen || streamStatus() == StreamStatus::closed) {
      return std::unexpected(FileError(EBADF, "read"));
    }
    const auto count = std::min(buffer.size(), rest_.size());
    std::ranges::copy(rest_.first(count), buffer.begin());
    rest_ = rest_.subspan(count);
    if (count == 0 && !buffer.empty()) setStatus(StreamStatus::atEnd);
    return count;
  }

  std::optional<DataView> remainingBytes() const noexcept override { return rest_; }

 private:
  Data owned_;
  DataView rest_;
};

class DescriptorInputStream final : public InputStream {
 public:
  explicit DescriptorInputStream(std::string path) : path_(std::move(path)) {}
  DescriptorInputStream(int descriptor, DescriptorOwnership ownership)
      : descriptor_(descriptor), isBorrowed_(ownership == DescriptorOwnership::borrowed) {}
  ~DescriptorInputStream() override { closeDescriptor(); }

  FileResult<void> open() override {
    if (streamStatus() != StreamStatus::notOpen) return {};
    if (!descriptor_) descriptor_ = detail::openFile(path_, O_RDONLY);
    struct stat info{};
    if (!descriptor_ || fstat(descriptor_.get(), &info) != 0) {
      return fail(FileError(errno, "open", path_));
    }
    if (S_ISDIR(info.st_mode)) return fail(FileError(EISDIR, "open", path_));
    setStatus(StreamStatus::open);
    return {};
  }

  void close() noexcept override {
    closeDescriptor();
    setStatus(StreamStatus::closed);
  }

  FileResult<std::size_t> read(std::span<std::byte> buffer) override {
    if (streamStatus() != StreamStatus::open && streamStatus() != StreamStatus::atEnd) {
      return std::unexpected(streamError().value_or(FileError(EBADF, "read", path_)));
    }
    const auto count = detail::readSome(descriptor_.get(), buffer);
    if (count < 0) return fail(FileError(errno, "read", path_));
    if (!buffer.empty()) setStatus(count == 0 ? StreamStatus::atEnd : StreamStatus::open);
    return static_cast<std::size_t>(count);
  }

  int fileDescriptor() const noexcept override { return descriptor_.get(); }

 private:
  void closeDescriptor() noexcept {
    if (isBorrowed_) descriptor_.release();
    descriptor_.reset();
  }

  std::string path_;
  detail::Descriptor descriptor_;
  bool isBorrowed_ = false;
};

}  // namespace

std::unexpected<FileError> InputStream::fail(FileError error) {
  status_ = StreamStatus::error;
  error_ = error;
  return std::unexpected(std::move(error));
}

std::unique_ptr<InputStream> InputStream::withURL(const URL& url) { return withPath(url.path()); }

std::unique_ptr<InputStream> InputStream::withPath(std::string path) {
  return std::make_unique<DescriptorInputStream>(std::move(path));
}

std::unique_ptr<InputStream> InputStream::withData(Data data) {
  return std::make_unique<MemoryInputStream>(std::move(data));
}

std::unique_ptr<InputStream> InputStream::withView(DataView bytes) {
  return std::make_unique<MemoryInputStream>(bytes);
}

std::unique_ptr<InputStream> InputStream::withDescriptor(int descriptor,
                                                         DescriptorOwnership ownership) {
  return std::make_unique<DescriptorInputStream>(descriptor, ownership);
}

}  // namespace ombrix::platform
