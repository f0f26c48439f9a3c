#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>

#include "OmbrixPlatform/Files/FileError.hpp"
#include "OmbrixPlatform/Network/HTTPBodySource.hpp"

namespace ombrix::platform {
namespace {

URLError::Code codeOf(int systemError) noexcept {
  switch (systemError) {
    case ENOENT:
    case ENOTDIR:
      return URLError::Code::fileDoesNotExist;
    case EISDIR:
      return URLError::Code::fileIsDirectory;
    case EACCES:
    case EPERM:
      return URLError::Code::noPermissionsToReadFile;
    default:
      return URLError::Code::unknown;
  }
}

URLError errorOf(int systemError, const char* action, const std::string& path) {
  return URLError(codeOf(systemError), FileError(systemError, action, path).what());
}

class FileBodySource final : public HTTPBodySource {
 public:
  explicit FileBodySource(std::string path) : path_(std::move(path)) {
    // Opening a pipe would wait for its other end.
    descriptor_ = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    struct stat status{};
    if (descriptor_ < 0 || ::fstat(descriptor_, &status) != 0) {
      failure_ = errorOf(errno, "open", path_);
    } else if (S_ISDIR(status.st_mode)) {
      failure_ = errorOf(EISDIR, "read", path_);
    } else if (!S_ISREG(status.st_mode)) {
      failure_ = URLError(URLError::Code::unknown, path_ + " is no regular file");
    } else {
      length_ = status.st_size;
    }
  }
  ~FileBodySource() override {
    if (descriptor_ >= 0) ::close(descriptor_);
  }

  std::expected<std::optional<std::int64_t>, URLError> length() const override {
    if (failure_) return std::unexpected(*failure_);
    return length_;
  }

  std::expected<std::size_t, URLError> read(std::int64_t offset,
                                            std::span<std::byte> buffer) const override {
    for (;;) {
      const ssize_t count = ::pread(descriptor_, buffer.data(), buffer.size(), offset);
      if (count >= 0) return static_cast<std::size_t>(count);
      if (errno != EINTR) return std::unexpected(errorOf(errno, "read", path_));
    }
  }

 private:
  const std::string path_;
  int descriptor_ = -1;
  std::int64_t length_ = 0;
  std::optional<URLError> failure_;
};

}  // namespace

std::shared_ptr<const HTTPBodySource> HTTPBodySource::file(const std::filesystem::path& path) {
  return std::make_shared<const FileBodySource>(path.string());
}

}  // namespace ombrix::platform
