#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Concurrency/Process.hpp"
#include "OmbrixPlatform/Defaults/Detail/DictionaryFile.hpp"
#include "OmbrixPlatform/Defaults/UserDefaults.hpp"
#include "OmbrixPlatform/Files/FolderWatcher.hpp"
#include "OmbrixPlatform/Locks/Condition.hpp"
#include "OmbrixPlatform/Observation/Signal.hpp"

namespace ombrix::platform {

/// The values that readers of user defaults see, the thread that writes new values to the file
/// (UserDefaultsWriter.cpp), and the watch that reads other processes' values
/// (UserDefaultsWatch.cpp).
struct UserDefaults::State : std::enable_shared_from_this<State> {
  /// A change of a value that its observers are told is coming. The thread that tells them makes it
  /// afterwards, unless another one changes the value meanwhile, which makes this change first: so
  /// each change of a value is told once, whoever comes in between, and nobody waits for observers.
  struct Coming {
    const std::optional<PropertyList>& value;
    const std::uint64_t sequence;                         // of the file's change; 0: it is set here
    std::optional<PropertyList> before = {}, after = {};  // as readers see it
    bool isMade = false, hasWriter = true;
    bool isAnnounced = false;  // observers are to be told first
  };

  /// A stored value as readers see it. Values read from the file may arrive late and out of order.
  /// The sequence keeps an older one from undoing a newer one; the edit keeps any of them from
  /// undoing what was set since.
  struct Stored {
    std::optional<PropertyList> value;
    std::uint64_t sequence = 0;  // of the file's change, or of ours that the file has taken
    std::uint64_t edit = 0;      // of this process, until it is in the file
    bool isQueued = false;       // for the writer, until the file has taken it
    Coming* coming = nullptr;
  };

  /// Edits that are being written to the file, with their numbers.
  struct Batch {
    std::vector<DictionaryFile::Edit> edits;
    std::vector<std::uint64_t> numbers;
  };

  /// Revisions are drawn from one counter, so that no two objects ever show the same one.
  static std::uint64_t nextRevision();

  State(UserDefaults& made, Configuration configuration);

  void refresh(DictionaryFile::Look look) { take(file.refresh(look)); }
  void take(const DictionaryFile::Outcome& outcome);
  bool change(std::string_view key, Coming& coming);
  bool begin(std::string_view key, Coming& coming, bool tellsObservers);
  void giveUp(std::string_view key, const Coming& coming);
  void makeNow(std::string_view key, Coming& coming);
  void make(const std::string& key, Stored& entry, Coming& coming) OMBRIX_REQUIRES(mutex);
  void showAll();
  void report(const std::vector<std::string>& errors);
  void set(std::string_view key, const std::optional<PropertyList>& value);
  DictionaryFile::Outcome flush();
  Batch takeBatch();
  void settle(const Batch& batch, const DictionaryFile::Outcome& outcome);
  bool writeNow(bool showsAll);
  void flushLast();
  bool hasWriterHere() OMBRIX_REQUIRES(mutex);
  void enterChild() OMBRIX_NO_THREAD_SAFETY_ANALYSIS;  // on the one thread there is
  void write();
  void stopWriter();
  void load();
  /// Before a read: without a watch the file may have been replaced unnoticed. The watch begins
  /// after the first look.
  void beFresh() {
    if (!isWatched.load(std::memory_order_acquire)) lookAtFile();
  }
  void lookAtFile();
  void makeQueue();
  void watch();
  ObservationToken watchFolderOf(const std::filesystem::path& watched);
  void followLink();
  void noteFolderChange(const std::filesystem::path& watched, const FolderChange& change);
  void lookLater();
  const PropertyList* find(std::string_view key, bool withDefaults) const OMBRIX_REQUIRES(mutex);
  const PropertyList* firstOf(std::string_view key, const PropertyList* storedValue,
                              bool withDefaults) const OMBRIX_REQUIRES(mutex);

  UserDefaults& owner;
  const std::filesystem::path path;
  DictionaryFile file;
  const bool hasOwnErrorHandler;
  std::weak_ptr<UserDefaults> weakOwner;

  std::atomic<bool> hasLoaded{false}, isWatched{false};
  std::atomic<std::uint64_t> revision{nextRevision()};

  Mutex loadMutex;  // held over the first look
  // No call out is made while it is held. A thread that changes the domains is inside the gate of
  // forks, so that a child finds them whole.
  Mutex mutex;
  Dictionary arguments OMBRIX_GUARDED_BY(mutex), defaults OMBRIX_GUARDED_BY(mutex);
  std::map<std::string, Stored, std::less<>> stored OMBRIX_GUARDED_BY(mutex);
  ErrorHandler onError OMBRIX_GUARDED_BY(mutex);
  std::map<std::string, std::chrono::steady_clock::time_point> toldErrors OMBRIX_GUARDED_BY(mutex);
  std::uint64_t lastEdit OMBRIX_GUARDED_BY(mutex) = 0;
  // Edits that the file has not taken yet.
  std::vector<std::string> queuedKeys OMBRIX_GUARDED_BY(mutex);
  Condition somethingToWrite;
  std::thread writer OMBRIX_GUARDED_BY(mutex);
  bool isForked OMBRIX_GUARDED_BY(mutex) = false;  // from a process with a writer
  bool isStopping OMBRIX_GUARDED_BY(mutex) = false;
  bool isFlushedAtExit OMBRIX_GUARDED_BY(mutex) = false;

  Mutex writeMutex;  // held from taking edits until they are in the file, to keep their order

  Mutex watchMutex;
  std::shared_ptr<DispatchQueue> queue;  // made once, before the writer or the watch uses it
  ObservationToken watchToken OMBRIX_GUARDED_BY(watchMutex);
  ObservationToken linkToken OMBRIX_GUARDED_BY(watchMutex);
  std::filesystem::path watchedTarget OMBRIX_GUARDED_BY(watchMutex);
  std::atomic<bool> refreshIsDue{false}, contentsAreSuspect{false};
  Signal<const std::vector<std::string>&> changedExternally;

  const ForkHandler onFork{[this] { enterChild(); }};
};

}  // namespace ombrix::platform
