#include "OmbrixPlatform/Files/FolderWatcher.hpp"

#include <sys/inotify.h>
#include <sys/stat.h>

#include <array>
#include <map>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Concurrency/Events.hpp"
#include "OmbrixPlatform/Detail/Descriptor.hpp"
#include "OmbrixPlatform/Files/FileError.hpp"
#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Observation/Signal.hpp"

namespace ombrix::platform {
namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t kMask = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE |
                                IN_CREATE | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
constexpr std::uint32_t kGone = IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_UNMOUNT;
constexpr int kNoWatch = -1;
constexpr int kMaxAttempts = 8;

struct Folder {
  fs::path path;
  Signal<const FolderChange&> changed;
  std::size_t watchers = 0;
  int watch = kNoWatch;  // on the folder, or on the nearest folder above that exists
  bool exists = false;
  std::string awaited;  // the entry of the watched folder that leads to this one
};

bool isFolder(const fs::path& path) {
  struct stat status{};
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

class FolderWatcher::Impl : public std::enable_shared_from_this<Impl> {
 public:
  ObservationToken watch(const fs::path& path, Handler handler);
  void release(const std::shared_ptr<Folder>& folder);

 private:
  class Watch;
  using Call = std::pair<std::shared_ptr<Folder>, FolderChange>;

  void start() OMBRIX_REQUIRES(mutex_);
  void readEvents();
  void take(const inotify_event& event, std::vector<Call>& calls) OMBRIX_REQUIRES(mutex_);
  int arm(Folder& folder) OMBRIX_REQUIRES(mutex_);
  void disarm(Folder& folder) OMBRIX_REQUIRES(mutex_);
  void rearm(const std::shared_ptr<Folder>& folder, std::vector<Call>& calls)
      OMBRIX_REQUIRES(mutex_);
  std::vector<std::shared_ptr<Folder>> foldersOn(int watch) const OMBRIX_REQUIRES(mutex_);

  Mutex mutex_;
  detail::Descriptor inotify_;  // set once, before its events are read
  EventToken readable_ OMBRIX_GUARDED_BY(mutex_);
  std::map<std::string, std::shared_ptr<Folder>> folders_ OMBRIX_GUARDED_BY(mutex_);
  std::unordered_map<int, std::size_t> uses_ OMBRIX_GUARDED_BY(mutex_);  // of each watch by folders
};

/// Ends one handler, and the folder's watch with its last.
class FolderWatcher::Impl::Watch final : public detail::Observation {
 public:
  Watch(std::shared_ptr<Impl> impl, std::shared_ptr<Folder> folder, ObservationToken token)
      : impl_(std::move(impl)), folder_(std::move(folder)), token_(std::move(token)) {}
  ~Watch() override { token_.detach(); }

  void cancel() noexcept override {
    token_.cancel();
    impl_->release(folder_);
  }

 private:
  std::shared_ptr<Impl> impl_;
  std::shared_ptr<Folder> folder_;
  ObservationToken token_;
};

ObservationToken FolderWatcher::Impl::watch(const fs::path& path, Handler handler) {
  auto absolute = fs::absolute(path).lexically_normal();
  if (!absolute.has_filename() && absolute.has_relative_path()) absolute = absolute.parent_path();
  const LockGuard lock(mutex_);
  start();
  auto& folder = folders_[absolute.string()];
  if (!folder) {
    auto fresh = std::make_shared<Folder>();
    fresh->path = absolute;
    if (const int error = arm(*fresh)) {
      folders_.erase(absolute.string());
      throw FileError(error, "watch", absolute.string());
    }
    folder = std::move(fresh);
  }
  ++folder->watchers;
  auto token = folder->changed.connect(std::move(handler));
  return ObservationToken(std::make_shared<Watch>(shared_from_this(), folder, std::move(token)));
}

void FolderWatcher::Impl::release(const std::shared_ptr<Folder>& folder) {
  const LockGuard lock(mutex_);
  if (--folder->watchers > 0) return;
  disarm(*folder);
  folders_.erase(folder->path.string());
}

/// The first time, makes the descriptor and begins to watch it.
void FolderWatcher::Impl::start() {
  if (inotify_) return;
  detail::Descriptor fresh(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  if (!fresh) throw FileError(errno, "watch", "folders");
  readable_ = whenReadable(fresh.get(), [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->readEvents();
  });
  inotify_ = std::move(fresh);
}

/// Watches the folder, or the nearest one above it that exists; 0 or an errno.
int FolderWatcher::Impl::arm(Folder& folder) {
  fs::path path = folder.path;
  std::string below;
  int attempts = 0;
  while (true) {
    const int watch = ::inotify_add_watch(inotify_.get(), path.c_str(), kMask);
    if (watch == kNoWatch) {
      const bool isAbsent = errno == ENOENT || errno == ENOTDIR || errno == EACCES ||
                            errno == ELOOP || errno == ENAMETOOLONG;
      if (!isAbsent || !path.has_relative_path()) return errno;
      below = path.filename().string();
      path = path.parent_path();
      continue;
    }
    ++uses_[watch];
    folder.watch = watch;
    folder.exists = below.empty();
    folder.awaited = below;
    // The folder was made just before the watch above it began: go down again. A folder that exists
    // but cannot be watched stays out of reach until something above it changes.
    if (folder.exists || !isFolder(path / below) || ++attempts == kMaxAttempts) return 0;
    disarm(folder);
    path = folder.path;
    below.clear();
  }
}

void FolderWatcher::Impl::disarm(Folder& folder) {
  if (folder.watch == kNoWatch) return;
  const auto use = uses_.find(folder.watch);
  if (use != uses_.end() && --use->second == 0) {
    uses_.erase(use);
    ::inotify_rm_watch(inotify_.get(), folder.watch);
  }
  folder.watch = kNoWatch;
  folder.exists = false;
}

/// Looks where the folder is now; its observers are told to look again if it exists or did exist.
void FolderWatcher::Impl::rearm(const std::shared_ptr<Folder>& folder, std::vector<Call>& calls) {
  const bool existed = folder->exists;
  const int before = folder->watch;
  Folder found;
  found.path = folder->path;
  arm(found);  // before the old watch ends, which may be the same one
  disarm(*folder);
  folder->watch = found.watch;
  folder->exists = found.exists;
  folder->awaited = found.awaited;
  if (existed != folder->exists || (existed && before != folder->watch)) {
    calls.emplace_back(folder, FolderChange{FolderChange::Kind::lookAgain, {}});
  }
}

std::vector<std::shared_ptr<Folder>> FolderWatcher::Impl::foldersOn(int watch) const {
  std::vector<std::shared_ptr<Folder>> found;
  for (const auto& [path, folder] : folders_) {
    if (folder->watch == watch) found.push_back(folder);
  }
  return found;
}

void FolderWatcher::Impl::readEvents() {
  alignas(inotify_event) std::array<char, 16 * 1024> buffer;
  while (true) {
    const auto count =
        detail::retrying([&] { return ::read(inotify_.get(), buffer.data(), buffer.size()); });
    if (count <= 0) return;
    for (const char* at = buffer.data(); at < buffer.data() + count;) {
      const auto& event = *reinterpret_cast<const inotify_event*>(at);
      at += sizeof(inotify_event) + event.len;
      std::vector<Call> calls;
      {
        const LockGuard lock(mutex_);
        take(event, calls);
      }
      for (const auto& [folder, change] : calls) folder->changed.send(change);
    }
  }
}

/// Works out whom an event concerns, and adds the calls to make once the lock is released.
void FolderWatcher::Impl::take(const inotify_event& event, std::vector<Call>& calls) {
  if ((event.mask & IN_Q_OVERFLOW) != 0) {
    for (const auto& [path, folder] : folders_) {
      const auto told = calls.size();
      rearm(folder, calls);
      if (calls.size() == told && folder->exists) {
        calls.emplace_back(folder, FolderChange{FolderChange::Kind::lookAgain, {}});
      }
    }
    return;
  }
  const std::string_view name = event.len > 0 ? event.name : "";
  for (const auto& folder : foldersOn(event.wd)) {
    if ((event.mask & kGone) != 0) {
      rearm(folder, calls);
    } else if (!folder->exists) {
      if (name == folder->awaited) rearm(folder, calls);
    } else if ((event.mask & IN_CLOSE_WRITE) != 0) {
      calls.emplace_back(folder, FolderChange{FolderChange::Kind::written, name});
    } else if ((event.mask & (IN_MOVED_TO | IN_CREATE)) != 0) {
      calls.emplace_back(folder, FolderChange{FolderChange::Kind::replaced, name});
    } else {
      calls.emplace_back(folder, FolderChange{FolderChange::Kind::removed, name});
    }
  }
}

FolderWatcher& FolderWatcher::shared() {
  static FolderWatcher& instance = *new FolderWatcher;
  return instance;
}

FolderWatcher::FolderWatcher() : impl_(std::make_shared<Impl>()) {}
FolderWatcher::~FolderWatcher() = default;

ObservationToken FolderWatcher::watch(const fs::path& folder, Handler handler) {
  return impl_->watch(folder, std::move(handler));
}

}  // namespace ombrix::platform
