#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Coding/PropertyList.hpp"
#include "OmbrixPlatform/Defaults/Detail/DictionaryFile.hpp"
#include "OmbrixPlatform/Defaults/Etcd/Detail/EtcdMessages.hpp"
#include "OmbrixPlatform/Locks/Mutex.hpp"

namespace ombrix::platform::detail {

/// The copy on this machine of all values of a cloud store, and the local changes that the server
/// has not taken yet, in one file that the processes of the device share.
///
/// The file alone decides: it records the server's revision that its values have reached, so news
/// that comes late is known to be old, whichever process brings it. Every step reads and changes
/// the file under its lock. A change that waits to be sent hides the server's value of its key,
/// which is kept beside it in case the server's order turns out to be the other way round.
///
/// What is set here is shown at once and stands above all of that until `flush` has left it in the
/// file. Where that takes a while, and another process of the device has made a later change of the
/// key by then, that one stays: changes say when they were made (`isLater`). Setting and reading
/// never wait for the file, which a process that was stopped may hold; every other operation waits
/// up to 10 s for it.
///
/// Any thread. Never calls out: what changed is handed back.
class CloudMirror {
 public:
  /// A change that waits to be sent.
  struct Pending {
    std::string key;
    std::optional<PropertyList> value;  // nothing removes the key
    std::string id;
    std::int64_t order = 0;  // grows with each change of the device
  };

  /// The position that the values reach. The epoch counts how often the server was found to have
  /// been set up again, which restarts its revisions.
  struct Position {
    std::int64_t epoch = 0, revision = 0;
  };

  struct Outcome {
    std::vector<std::string> keys;    // whose values were changed from elsewhere
    std::vector<std::string> errors;  // of the file, readable sentences
    bool isSaved = true;              // false: the news is not in the file
  };

  explicit CloudMirror(const std::filesystem::path& file);

  /// Takes in what other processes have written.
  [[nodiscard]] Outcome refresh();

  [[nodiscard]] std::optional<PropertyList> value(std::string_view key, Outcome& outcome);
  [[nodiscard]] PropertyList::Dictionary values(Outcome& outcome);

  /// Changes a value here; `flush` puts the change into the file, and it is sent after all that
  /// wait there already. Throws `PropertyListError`, without changing anything, for a value that no
  /// property list can hold.
  void set(std::string_view key, std::optional<PropertyList> value);

  /// Leaves what was set here in the file, unless it was overtaken by a later change of the device.
  /// Not saved: it waits on in memory, is sent from there, and is to be flushed again.
  [[nodiscard]] Outcome flush();

  /// Whether every change made here is in the file or on the server.
  [[nodiscard]] bool isFlushed() const;

  /// What has waited longest, as far as this process has looked; nothing when everything is sent.
  /// What could not be left in the file comes last.
  [[nodiscard]] std::optional<Pending> nextPending() const;

  /// The order of the last change by any process of the device.
  [[nodiscard]] std::int64_t lastOrder() const;

  /// The device's name on the server, made on first use; empty when it cannot be saved.
  [[nodiscard]] std::string deviceIdentifier(Outcome& outcome);

  /// The server has taken a change, at that revision. Not saved: the change waits on in the file,
  /// for others and after the file has changed, and whoever sends it finds that the server has it.
  Outcome sent(const Pending& pending, std::int64_t revision);

  /// A change is never to be taken: the key has the server's value again. Not saved: as above.
  Outcome withdrawn(const Pending& pending);

  [[nodiscard]] Position position() const;

  /// Takes in a watch's news of that epoch, in the server's order and without a gap. If it is not
  /// saved, it is shown until the file changes, and must be read from the server again.
  Outcome take(const std::vector<EtcdKeyValue>& events, std::int64_t epoch);

  /// Takes in all of the server's values. A server whose revision is lower than it was before the
  /// request has been set up again: what was known of its order is forgotten.
  ///
  /// @param asked The position before the server was asked.
  Outcome take(const EtcdSnapshot& snapshot, Position asked);

 private:
  using IfUnsaved = DictionaryFile::IfUnsaved;
  enum class Source : std::uint8_t { here, server };

  /// A change that is not in the file yet.
  struct Unwritten {
    std::string key;
    std::optional<PropertyList> value;
    std::string id;
  };

  template <class Step>
  Outcome update(IfUnsaved ifUnsaved, Source source, Step step) OMBRIX_REQUIRES(fileMutex_);
  void look(DictionaryFile::Look how, Outcome& outcome) OMBRIX_REQUIRES(fileMutex_);
  void lookIfFree(Outcome& outcome);
  [[nodiscard]] std::vector<Unwritten>::const_iterator findUnwritten(std::string_view key) const
      OMBRIX_REQUIRES(mutex_);
  void apply(const DictionaryFile::Outcome& fileOutcome, Source source, Outcome& outcome)
      OMBRIX_REQUIRES(fileMutex_, mutex_);

  // Held over each step on the file, so that outcomes are taken in in their order; taken before the
  // other lock.
  Mutex fileMutex_;
  DictionaryFile file_ OMBRIX_GUARDED_BY(fileMutex_);

  mutable Mutex mutex_;                                        // never held over a file operation
  PropertyList::Dictionary values_ OMBRIX_GUARDED_BY(mutex_);  // of the file
  // Of the file: key to {id, value, order, server}.
  PropertyList::Dictionary pending_ OMBRIX_GUARDED_BY(mutex_);
  // Of the file: {epoch, revision}; {id, order}.
  PropertyList position_ OMBRIX_GUARDED_BY(mutex_), device_ OMBRIX_GUARDED_BY(mutex_);
  // In their order, at most one for each key.
  std::vector<Unwritten> unwritten_ OMBRIX_GUARDED_BY(mutex_);
  bool isStuck_ OMBRIX_GUARDED_BY(mutex_) = false;  // the last attempt to write them failed
};

}  // namespace ombrix::platform::detail
