#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Coding/PropertyList.hpp"
#include "OmbrixPlatform/Defaults/Detail/DictionaryFile.hpp"
#include "OmbrixPlatform/Defaults/Detail/EtcdMessages.hpp"

namespace ombrix::platform::detail {

/// The copy on this machine of all values of a cloud store, and the changes made here that the
/// server has not taken yet, in one file that the processes of the device share.
///
/// A change that waits to be sent stands above what the server says of its key: it will be the
/// later one when it is sent. What the server said meanwhile is kept aside, in case its order turns
/// out to be the other way. Any thread. Never calls out: what changed is handed back.
class CloudMirror {
 public:
  /// A change that waits to be sent.
  struct Pending {
    std::string key;
    std::optional<PropertyList> value;  // nothing removes the key
    std::string id;
  };

  struct Outcome {
    std::vector<std::string> keys;    // whose values were changed from elsewhere
    std::vector<std::string> errors;  // of the file, readable sentences
  };

  explicit CloudMirror(const std::filesystem::path& file);

  [[nodiscard]] std::optional<PropertyList> value(std::string_view key, Outcome& outcome);
  [[nodiscard]] PropertyList::Dictionary values(Outcome& outcome);

  /// Changes a value here, to be sent. Throws `PropertyListError` for what no property list can
  /// hold; nothing is changed then.
  Outcome set(std::string_view key, std::optional<PropertyList> value);

  /// What has waited longest; nothing when everything is sent.
  [[nodiscard]] std::optional<Pending> nextPending();

  /// The server has taken a change, at that revision.
  Outcome sent(const Pending& pending, std::int64_t revision);

  /// The server will never take a change: it waits no longer. The value stays until the server's
  /// are read the next time.
  Outcome refused(const Pending& pending);

  /// Takes in what a watch has told, in the server's order.
  Outcome take(const std::vector<EtcdKeyValue>& events);

  /// Takes in all that the server has. One that counts from below what it had counted to has been
  /// made anew: what was known of its order is forgotten.
  Outcome take(const EtcdSnapshot& snapshot);

 private:
  using Edits = std::vector<DictionaryFile::Edit>;

  void refresh(Outcome& outcome);
  void write(const Edits& edits, bool isFromServer, Outcome& outcome);
  void apply(const DictionaryFile::Outcome& fileOutcome, bool isFromServer, Outcome& outcome);
  void noteEvent(const EtcdKeyValue& event, Edits& edits);
  [[nodiscard]] bool waits(const Pending& pending) const;

  std::mutex mutex_;
  DictionaryFile file_;
  PropertyList::Dictionary values_;
  PropertyList::Dictionary pending_;               // key to {id, value}
  std::int64_t serverRevision_ = 0;                // of the last snapshot
  std::map<std::string, std::int64_t> revisions_;  // of each key's last known change
  std::map<std::string, EtcdKeyValue> heldBack_;   // said of keys that wait to be sent
};

}  // namespace ombrix::platform::detail
