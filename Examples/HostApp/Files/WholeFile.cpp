#include "Examples/HostApp/Files/WholeFile.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <optional>
#include <random>
#include <thread>

#include "Examples/HostApp/Commands/Commands.hpp"
#include "OmbrixPlatform/Files/FileManager.hpp"
#include "OmbrixPlatform/Files/FileOwner.hpp"

namespace ombrix::hostapp {

namespace fs = std::filesystem;

platform::Data readWholeFile(const std::string& path) {
  auto contents =
      platform::FileManager::defaultManager().contents(platform::URL::fileURL(path, false));
  if (!contents) throw CommandFailure(contents.error().what());
  return *std::move(contents);
}

namespace {

using platform::OutputStream;
using Write = std::function<void(const std::shared_ptr<OutputStream>&)>;

[[noreturn]] void fail(const std::string& path, const std::string& why) {
  throw CommandFailure(fmt::format("cannot write {}: {}", path, why));
}

[[noreturn]] void failWithErrno(const std::string& path) { fail(path, std::strerror(errno)); }

/// What a path stands for.
struct Target {
  fs::path path;                  ///< Without links at its end.
  std::optional<int> descriptor;  ///< Of this process, as behind /dev/stdout.
};

/// Follows links one by one, since what the name of a descriptor links to is no path.
Target resolved(const std::string& path) {
  if (path == "-") return {path, STDOUT_FILENO};
  constexpr int kMostLinks = 40;
  Target target{path, std::nullopt};
  for (int links = 0; links < kMostLinks; ++links) {
    std::error_code error;
    const auto parent = target.path.parent_path();
    const auto folder = fs::canonical(parent.empty() ? "." : parent, error);
    if (error) fail(path, error.message());
    const std::string name = target.path.filename().string();
    int number = 0;
    if (folder == fmt::format("/proc/{}/fd", ::getpid()) &&
        std::from_chars(name.data(), name.data() + name.size(), number).ec == std::errc{}) {
      return {target.path, number};
    }
    target.path = folder / name;
    const auto next = fs::read_symlink(target.path, error);
    if (error) return target;
    target.path = folder / next;
  }
  fail(path, std::strerror(ELOOP));
}

/// Runs the closure on a stream, and ends the command when not all went well.
void writeAll(const std::shared_ptr<OutputStream>& stream, const std::string& path,
              const Write& write) {
  try {
    if (const auto opened = stream->open(); !opened) throw platform::FileError(opened.error());
    write(stream);
    stream->close();
    if (const auto& error = stream->streamError()) throw platform::FileError(*error);
  } catch (const platform::Error& error) {
    fail(path, error.what());
  }
}

/// Runs the closure on an open descriptor, and ends the command when not all went well.
void writeTo(int descriptor, platform::DescriptorOwnership ownership, const std::string& path,
             const Write& write) {
  writeAll(OutputStream::withDescriptor(descriptor, ownership), path, write);
}

/// Opens what is no regular file. A pipe's reader, who may be about to start, is waited for a
/// while.
void writeStraight(const fs::path& target, bool isPipe, const std::string& path,
                   const Write& write) {
  constexpr std::chrono::seconds kPatience(5);
  constexpr std::chrono::milliseconds kPause(10);
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  const auto open = [&] {
    return ::open(target.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  };
  int descriptor = open();
  while (descriptor < 0 && errno == ENXIO && isPipe) {
    if (std::chrono::steady_clock::now() >= deadline) fail(path, "nobody reads the pipe");
    std::this_thread::sleep_for(kPause);
    descriptor = open();
  }
  if (descriptor < 0) failWithErrno(path);
  writeTo(descriptor, platform::DescriptorOwnership::owned, path, write);
}

/// Writes over a file that has to stay the one it is. Its old contents stay until all of the new
/// ones are known and there is room for them.
void writeOver(const fs::path& target, const std::string& path, const Write& write) {
  const std::shared_ptr stream = OutputStream::toMemory();
  writeAll(stream, path, write);
  const auto written = platform::FileManager::defaultManager().overwriteFile(
      platform::URL::fileURL(target.string(), false), *stream->data());
  if (!written) fail(path, written.error().what());
}

/// A new file that is not seen under its name yet; gone with its owner unless it is published.
class UnpublishedFile {
 public:
  explicit UnpublishedFile(const fs::path& folder, mode_t mode) {
    std::random_device random;
    do {
      path_ = folder / fmt::format(".ombrix-{:08x}{:08x}", random(), random());
      descriptor_ = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    } while (descriptor_ < 0 && errno == EEXIST);
  }
  ~UnpublishedFile() {
    if (descriptor_ < 0) return;
    ::close(descriptor_);
    if (!isPublished_) ::unlink(path_.c_str());
  }
  UnpublishedFile(const UnpublishedFile&) = delete;
  UnpublishedFile& operator=(const UnpublishedFile&) = delete;

  [[nodiscard]] int descriptor() const noexcept { return descriptor_; }

  /// @param existing Kept: false, with `errno` EEXIST, where there is anything of that name.
  [[nodiscard]] bool publish(const fs::path& target, Existing existing) noexcept {
    if (::fsync(descriptor_) != 0) return false;
    if (existing == Existing::replaced) {
      isPublished_ = ::rename(path_.c_str(), target.c_str()) == 0;
      return isPublished_;
    }
    isPublished_ =
        ::renameat2(AT_FDCWD, path_.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) == 0;
    // Some file systems cannot do that, but know links, which replace nothing either.
    if (!isPublished_ && errno == EINVAL) return ::link(path_.c_str(), target.c_str()) == 0;
    return isPublished_;
  }

 private:
  fs::path path_;
  int descriptor_ = -1;
  bool isPublished_ = false;
};

}  // namespace

void writeFile(const std::string& path, const Write& write, Existing existing) {
  const Target target = resolved(path);
  if (target.descriptor) {
    std::fflush(stdout);
    return writeTo(*target.descriptor, platform::DescriptorOwnership::borrowed, path, write);
  }
  struct stat older{};
  const bool exists = ::stat(target.path.c_str(), &older) == 0;
  if (!exists && errno != ENOENT) failWithErrno(path);
  if (exists && existing == Existing::kept) fail(path, std::strerror(EEXIST));
  if (exists && !S_ISREG(older.st_mode)) {
    return writeStraight(target.path, S_ISFIFO(older.st_mode), path, write);
  }
  // A file that is protected against writing is not to be replaced either.
  if (exists && ::access(target.path.c_str(), W_OK) != 0) failWithErrno(path);
  const auto writeInPlace = [&] { writeOver(target.path, path, write); };
  if (exists && older.st_nlink > 1) return writeInPlace();

  UnpublishedFile fresh(target.path.parent_path(), exists ? 0600 : 0666);
  if (fresh.descriptor() < 0) {
    if (exists && (errno == EACCES || errno == EPERM)) return writeInPlace();
    failWithErrno(path);
  }
  if (exists && (!platform::takeOwnerAndMode(fresh.descriptor(), older) ||
                 !platform::takeAttributes(fresh.descriptor(), target.path.c_str()))) {
    return writeInPlace();
  }
  writeTo(fresh.descriptor(), platform::DescriptorOwnership::borrowed, path, write);
  if (!fresh.publish(target.path, existing)) failWithErrno(path);
}

std::FILE* noticesBeside(const std::string& path) {
  return resolved(path).descriptor == STDOUT_FILENO ? stderr : stdout;
}

}  // namespace ombrix::hostapp
