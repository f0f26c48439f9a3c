#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Coding/JSON.hpp"
#include "OmbrixPlatform/Coding/PropertyList.hpp"

namespace ombrix::platform::detail {

/// One key on the server, at the revision of its last change.
struct EtcdKeyValue {
  std::string key;                    // without the prefix
  std::optional<PropertyList> value;  // empty: it was removed
  std::int64_t revision = 0;
};

/// All keys of a prefix.
struct EtcdSnapshot {
  std::vector<EtcdKeyValue> values;
  std::int64_t revision = 0;  // the server's own
};

/// The outcome of an attempt to make a change.
struct EtcdChangeResult {
  /// The revision at which it was made, now or by an earlier attempt; empty: the mark was another
  /// one.
  std::optional<std::int64_t> revision;
  std::int64_t markRevision = 0;  // to be expected in the next attempt
  bool isOvertaken = false;       // the device has made a later change: there is no next time
};

/// Why the server did not fulfil a request.
struct EtcdError {
  enum class Kind : std::uint8_t {
    other,                // it may accept the same request later
    tooLarge,             // it will never take this change
    wantsLogin,           // it requires a login, or the token has lapsed
    authenticationIsOff,  // it was asked for a token but uses none
    compacted             // it has discarded the requested revision
  };
  std::string message;
  Kind kind = Kind::other;
};

/// The contents of one line of a watch.
struct EtcdWatchMessage {
  std::int64_t revision = 0;  // the server's own
  bool isProgress = false;    // no more changes up to that revision
  std::vector<EtcdKeyValue> events;
  /// Why the watch has ended, if it has: the server no longer keeps its first revision, or has
  /// cancelled it.
  std::optional<EtcdError> ended;
};

/// Writes the requests and reads the answers of etcd's JSON gateway for the keys below a prefix:
/// keys and values are in base64, 64-bit integers are texts, and fields with their default value
/// are left out. Values are binary property lists and keys are UTF-8; anything else that was put
/// there is skipped.
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
  /// be right. A field that is missing or of another type counts as its default.
  static EtcdChangeResult changeResult(DataView answer, std::string_view id);
  [[nodiscard]] EtcdSnapshot snapshot(DataView answer) const;
  [[nodiscard]] EtcdWatchMessage watchMessage(std::string_view line) const;

  /// A refusal, by its code and text; the text of one in an unknown form is the whole answer.
  static EtcdError error(DataView answer);

 private:
  [[nodiscard]] std::string coded(std::string_view key) const;
  [[nodiscard]] std::optional<EtcdKeyValue> keyValue(const JSON& json, bool isRemoval) const;

  const std::string prefix_;
  const std::string firstKey_, endKey_;  // base64; the second is the first key beyond the prefix
};

}  // namespace ombrix::platform::detail
