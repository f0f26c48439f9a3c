#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Concurrency/Process.hpp"
#include "OmbrixPlatform/Files/FolderWatcher.hpp"
#include "OmbrixPlatform/Files/NSFilePresenter.hpp"
#include "OmbrixPlatform/Locks/Mutex.hpp"

namespace ombrix::platform::detail {

/// The presenters of this process by the path that they present, and the last writer of each path.
///
/// The coordinator announces this process's own writes; the kernel's folder events announce all
/// writes. To tell them apart, the registry keeps the state in which an own write has left the
/// file, with a modification time set to the nanosecond: an event that finds the file in that state
/// is about our own write. An access that does not change the file's state counts as having written
/// nothing. A forked child, which gets no announcements, begins without presenters. Any thread.
class FilePresenterRegistry {
 public:
  /// The one of the process; never destroyed.
  static FilePresenterRegistry& shared();

  void add(const std::shared_ptr<NSFilePresenter>& presenter);
  void remove(const std::shared_ptr<NSFilePresenter>& presenter);

  /// Both are called while exclusive access to the path is held. The end tells all presenters but
  /// those that the writer's own presenter, which may be null, represents.
  void writeBegins(const std::string& path);
  void writeEnds(const std::string& path, const NSFilePresenter* writer);

 private:
  /// The facts that change when a file is written; all 0 when there is no file.
  struct State {
    dev_t device = 0;
    ino_t file = 0;
    off_t size = 0;
    std::int64_t seconds = 0, nanoseconds = 0;

    friend bool operator==(const State&, const State&) = default;
  };
  struct Item {
    std::vector<std::weak_ptr<NSFilePresenter>> presenters;
    ObservationToken watch;
    State known;
    bool isKnownOwn = false;
    int writers = 0;
  };
  using Items = std::map<std::string, Item, std::less<>>;
  using Told = std::vector<std::shared_ptr<NSFilePresenter>>;

  static State stateOf(const std::string& path) noexcept;
  static State stamp(const std::string& path, State found, std::int64_t seconds,
                     std::int64_t nanoseconds) noexcept;
  static Told presentersOf(const Item& item);
  static void tell(const Told& presenters, const NSFilePresenter* writer = nullptr);
  void removeIfUnused(Items::iterator item, std::vector<Item>& unused) OMBRIX_REQUIRES(mutex_);
  void noticed(const std::string& path, bool isCertain);
  void enterChild() OMBRIX_NO_THREAD_SAFETY_ANALYSIS;

  std::atomic<std::size_t> count_{0};  // of items: writers look here first
  Mutex mutex_;
  Items items_ OMBRIX_GUARDED_BY(mutex_);
  const ForkHandler onFork_{[this] { enterChild(); }};
};

/// A path as the locks and the registry know it: its links resolved, as far as they exist.
std::string coordinatedPath(std::string path);

}  // namespace ombrix::platform::detail
