#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Coding/PropertyList.hpp"
#include "OmbrixPlatform/Concurrency/Process.hpp"
#include "OmbrixPlatform/Defaults/Detail/QueuedFileLock.hpp"
#include "OmbrixPlatform/Detail/Descriptor.hpp"
#include "OmbrixPlatform/Locks/Mutex.hpp"

namespace ombrix::platform {

/// A dictionary in a property-list file that several processes change at once without losing
/// anything.
///
/// Each change reads, modifies and writes the file under a lock on a hidden side file; the new file
/// takes the old one's place by renaming, so readers need no lock and a process that is killed at
/// any moment leaves the old file or the new one. Values that cannot be written are kept in memory
/// and tried again with the next change, unless the file holds another value of the key by then:
/// that one was set later, and stays. A file that cannot be decoded is renamed to "<name>.damaged";
/// what this process knew of it is written back. An empty file counts as having no news: another
/// process is about to write it, or could not. One of more than 16 MiB is neither read nor written.
/// A symbolic link stays one: its target is replaced, and the side files lie beside the target. The
/// file keeps its owner and mode; where a process may not set that owner (the file is another
/// user's and writable for all), the file is written in place.
///
/// A forked child goes on with the file's contents; edits that its parent could not write stay with
/// the parent.
///
/// Any thread. Never calls out: changes and errors are handed back.
class DictionaryFile {
 public:
  struct Edit {
    std::string key;
    std::optional<PropertyList> value;  // nothing removes the key
  };

  /// One change of one key; of all threads that look, exactly one gets it.
  struct Change {
    std::string key;
    std::optional<PropertyList> value;
    std::uint64_t sequence;  // grows with each change of this file
    bool isExternal;         // not an edit of this process
  };

  struct Outcome {
    std::vector<Change> changes;
    std::vector<std::string> errors;  // readable sentences
    bool isSaved = true;              // the edits are in the file; for `write` and `update`
    bool isTaken = true;              // no: the edits are to be made again, memory ran short
    bool wasBusy = false;             // there was no look at the file; for `Look::ifFree`
  };

  enum class Look {
    ifFree,      // never waits: does nothing while another thread reads or writes the file
    always,      // reads the file if it was replaced or changed
    inContents,  // reads the file even if it looks the same: it was written in place
  };

  explicit DictionaryFile(std::filesystem::path file);

  /// The path behind all symbolic links, also where no file exists yet.
  static std::filesystem::path target(std::filesystem::path file);

  /// Throws `PropertyListError` for a key or value that would spoil the whole file.
  static void checkEncodable(std::string_view key, const PropertyList& value);

  /// Takes in the values that others have written since the last look.
  Outcome refresh(Look look);

  /// Changes keys; others' changes that it finds come first in the outcome. An edit that changes
  /// nothing does not count. Throws `PropertyListError`, without changing anything, for a value
  /// that no property list can hold. Want of memory is told in the outcome. Blocks until the file
  /// is on the disk.
  Outcome write(const std::vector<Edit>& edits);

  /// What happens to edits that cannot be written: they are kept and tried again, shown until the
  /// file is found changed, or undone.
  enum class IfUnsaved { keep, show, undo };
  using Decide = std::function<std::vector<Edit>(const PropertyList::Dictionary& contents)>;

  /// The same with edits that depend on what the file holds, decided while no other process can
  /// change it; `decide` must not use this object.
  Outcome update(const Decide& decide, IfUnsaved ifUnsaved) {
    Outcome outcome;
    update(decide, ifUnsaved, outcome);
    return outcome;
  }

  struct Contents {
    PropertyList::Dictionary values;
    std::uint64_t sequence;  // of the last change in them
  };

  /// The file's contents as this process knows them, including changes that were handed out but not
  /// dealt with yet.
  [[nodiscard]] Contents contents() const;

  /// Whether everything this process has set is in the file.
  [[nodiscard]] bool isSaved() const;

 private:
  struct Identity {
    std::uint64_t device = 0, inode = 0;
    std::int64_t size = 0, seconds = 0, nanoseconds = 0;
    friend bool operator==(const Identity&, const Identity&) = default;
  };
  enum class Loaded { same, read, empty, damaged, unreadable };

  /// An edit that could not be written, and the value that the file had for its key at the time.
  struct Unsaved {
    Edit edit;
    std::optional<PropertyList> found;
    bool isFoundKnown;
  };

  void update(const Decide& decide, IfUnsaved ifUnsaved, Outcome& outcome);
  static Identity identityOf(int descriptor);
  Loaded load(bool force, Outcome& outcome) OMBRIX_REQUIRES(mutex_);
  Loaded loadLocked(bool force, Outcome& outcome) OMBRIX_REQUIRES(mutex_);
  void takeIn(PropertyList::Dictionary contents, Outcome& outcome) OMBRIX_REQUIRES(mutex_);
  void dropOverruled(const PropertyList::Dictionary& contents) OMBRIX_REQUIRES(mutex_);
  bool setAside(Outcome& outcome) const;
  bool save(Outcome& outcome) OMBRIX_REQUIRES(mutex_);
  bool replaceFile(DataView bytes) OMBRIX_REQUIRES(mutex_);
  bool overwriteFile(const std::filesystem::path& place, DataView bytes) OMBRIX_REQUIRES(mutex_);
  void isNow(detail::Descriptor file) OMBRIX_REQUIRES(mutex_);
  detail::HeldFileLock lock(std::chrono::steady_clock::duration timeout, Outcome& outcome) const;
  void change(const Edit& edit, IfUnsaved ifUnsaved, Outcome& outcome) OMBRIX_REQUIRES(mutex_);
  void undo(PropertyList::Dictionary before, std::size_t met, Outcome& outcome)
      OMBRIX_REQUIRES(mutex_);
  void report(Outcome& outcome, std::string_view action, int error) const;
  void enterChild() OMBRIX_NO_THREAD_SAFETY_ANALYSIS;  // on the one thread there is

  const std::string file_;
  mutable detail::QueuedFileLock queue_;

  mutable Mutex mutex_;  // held over file operations of this process
  // Of the file, with the unsaved edits on top.
  PropertyList::Dictionary contents_ OMBRIX_GUARDED_BY(mutex_);
  std::vector<Unsaved> unsaved_ OMBRIX_GUARDED_BY(mutex_);
  // Contents that are neither in the file nor in `unsaved_`.
  bool isShowingUnsaved_ OMBRIX_GUARDED_BY(mutex_) = false;
  // The file as it was last read or written. It is kept open, so that its inode number is not
  // given to a successor.
  detail::Descriptor open_ OMBRIX_GUARDED_BY(mutex_);
  std::optional<Identity> identity_ OMBRIX_GUARDED_BY(mutex_);
  bool hasLooked_ OMBRIX_GUARDED_BY(mutex_) = false;
  std::uint64_t sequence_ OMBRIX_GUARDED_BY(mutex_) = 0;
  const ForkHandler onFork_{[this] { enterChild(); }};
};

}  // namespace ombrix::platform
