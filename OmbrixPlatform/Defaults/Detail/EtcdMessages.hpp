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

/// What one line of a watch says.
struct EtcdWatchMessage {
  std::vector<EtcdKeyValue> events;
  /// Why the watch has ended, if it has: its first revision is no longer kept, or the server gave
  /// it up.
  std::optional<std::string> ended;
};

/// Writes the requests and reads the answers of etcd's JSON gateway for the keys below a prefix:
/// keys and values are base64, 64-bit integers texts, and fields that have their default value are
/// left out. Values are binary property lists; those of anybody else are passed over.
class EtcdMessages {
 public:
  explicit EtcdMessages(std::string prefix);

  [[nodiscard]] JSON put(std::string_view key, const PropertyList& value) const;
  [[nodiscard]] JSON remove(std::string_view key) const;
  [[nodiscard]] JSON range() const;
  /// @param revision The first one of interest.
  [[nodiscard]] JSON watch(std::int64_t revision) const;

  /// Readers throw `JSONError` for bytes that are no JSON document, and take what is missing or of
  /// another kind for its default.
  static std::int64_t revision(DataView answer);
  [[nodiscard]] EtcdSnapshot snapshot(DataView answer) const;
  [[nodiscard]] EtcdWatchMessage watchMessage(std::string_view line) const;

  /// The text of a refusal, or the whole answer when it is of no known form.
  static std::string errorMessage(DataView answer);

 private:
  [[nodiscard]] std::string coded(std::string_view key) const;
  [[nodiscard]] std::optional<EtcdKeyValue> keyValue(const JSON& json, bool isRemoval) const;

  const std::string prefix_;
  const std::string firstKey_, endKey_;  // base64; the second is the first key beyond the prefix
};

}  // namespace ombrix::platform::detail
