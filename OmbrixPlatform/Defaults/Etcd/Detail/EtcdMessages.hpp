#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Coding/JSON.hpp"
#include "OmbrixPlatform/Coding/PropertyList.hpp"

namespace ombrix::platform::detail {

/// One key as the server has it, at the revision of its last change.
struct EtcdKeyValue {
  std::string key;                    // without the prefix
  std::optional<PropertyList> value;  // nothing: it was removed
  std::int64_t revision = 0;
};

/// All keys of a prefix.
struct EtcdSnapshot {
  std::vector<EtcdKeyValue> values;
  std::int64_t revision = 0;  // the server's own
};

/// What came of an attempt to make a change.
struct EtcdChangeResult {
  /// The revision it was made at, now or by an earlier attempt; nothing: the mark was another one.
  std::optional<std::int64_t> revision;
  std::int64_t markRevision = 0;  // to expect the next time
  bool isOvertaken = false;       // the device has made a later change: there is no next time
};

/// Why the server did not do what it was asked.
struct EtcdError {
  enum class Kind : std::uint8_t {
    other,                // it may do the same thing later
    tooLarge,             // it will never take this change
    wantsLogin,           // it asks for a login, or the token has lapsed
    authenticationIsOff,  // it was asked for a token and needs none
    compacted             // it has forgotten the revision that was asked for
  };
  std::string message;
  Kind kind = Kind::other;
};

/// What one line of a watch says.
struct EtcdWatchMessage {
  std::int64_t revision = 0;  // the server's own
  bool isProgress = false;    // there is nothing more up to that revision
  std::vector<EtcdKeyValue> events;
  /// Why the watch has ended, if it has: its first revision is no longer kept, or the server gave
  /// it up.
  std::optional<EtcdError> ended;
};

/// Writes the requests and reads the answers of etcd's JSON gateway for the keys below a prefix:
/// keys and values are base64, 64-bit integers texts, and fields that have their default value are
/// left out. Values are binary property lists and keys UTF-8; what others have put there is passed
/// over.
///
/// Beside each value stands a mark for each device that has changed it, under a key that no value
/// can have: the id of the change that the server took last from that device, written together with
/// it. So whoever asks later, and however often, finds what was made, and what came after it.
class EtcdMessages {
 public:
  explicit EtcdMessages(std::string prefix);

  /// Whether a value may have this key.
  static bool isKey(std::string_view key) { return !key.starts_with('\0'); }

  /// A change on the condition that the device's mark of the key has not changed since a revision,
  /// 0 while there is none; else the mark is read. Changes that an earlier release has left go by
  /// its mark: one for all keys.
  /// @param value Nothing removes the key.
  [[nodiscard]] JSON change(std::string_view key, const std::optional<PropertyList>& value,
                            std::string_view id, std::string_view device,
                            std::int64_t markRevision) const;
  /// All values, without the marks, which may be many more.
  [[nodiscard]] JSON range() const;
  /// @param revision The first one of interest.
  [[nodiscard]] JSON watch(std::int64_t revision) const;

  /// Readers throw `JSONError` for bytes that are not a JSON document and for revisions that cannot
  /// be right, and take what is missing or of another kind for its default.
  static EtcdChangeResult changeResult(DataView answer, std::string_view id);
  [[nodiscard]] EtcdSnapshot snapshot(DataView answer) const;
  [[nodiscard]] EtcdWatchMessage watchMessage(std::string_view line) const;

  /// A refusal, by its code and text; one of no known form has the whole answer for its text.
  static EtcdError error(DataView answer);

 private:
  [[nodiscard]] std::string coded(std::string_view key) const;
  [[nodiscard]] std::optional<EtcdKeyValue> keyValue(const JSON& json, bool isRemoval) const;

  const std::string prefix_;
  const std::string firstKey_, endKey_;  // base64; the second is the first key beyond the prefix
};

}  // namespace ombrix::platform::detail
