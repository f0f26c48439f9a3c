#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Coding/PropertyList.hpp"
#include "OmbrixPlatform/Observation/ObservationToken.hpp"

namespace ombrix::platform {

/// The user's values in the cloud: few and small ones that all devices of the user share.
///
/// A store holds at most `kMaxKeys` keys and `kMaxBytes` bytes of keys and values; what would go
/// beyond is not stored, and observers are told. All operations may be called from any thread.
class NSUbiquitousKeyValueStore {
 public:
  static constexpr std::size_t kMaxKeys = 1'024;
  static constexpr std::size_t kMaxBytes = 1'048'576;

  enum class ChangeReason : std::uint8_t {
    serverChange,
    initialSync,
    quotaViolation,
    accountChange
  };

  /// What changed without this process setting it.
  struct ExternalChange {
    ChangeReason reason;
    std::vector<std::string> keys;
  };
  using ExternalChangeHandler = std::move_only_function<void(const ExternalChange& change)>;

  /// The store of the process, from the service in `services().cloudStore`.
  static NSUbiquitousKeyValueStore& defaultStore();

  virtual ~NSUbiquitousKeyValueStore() = default;

  [[nodiscard]] virtual std::optional<PropertyList> objectForKey(std::string_view key) const = 0;

  /// Stores a value. Throws `PropertyListError` for what no property list can hold.
  virtual void setObject(PropertyList value, std::string_view key) = 0;
  virtual void removeObjectForKey(std::string_view key) = 0;

  [[nodiscard]] virtual PropertyList::Dictionary dictionaryRepresentation() const = 0;

  /// Brings memory and the place where values are kept in step now; false when that failed.
  virtual bool synchronize() = 0;

  /// Whether what was set outlives the process, sent or not; false after a `synchronize` that could
  /// not leave it on this machine.
  [[nodiscard]] virtual bool isKept() const { return true; }

  /// Calls the handler for every change from elsewhere, on a thread of the store's, until the
  /// token ends.
  virtual ObservationToken observeExternalChanges(ExternalChangeHandler handler) = 0;

  /// Ends a store that the caller has made, for programs that end in order: nothing is sent or read
  /// any more, and no call of an observer begins after it has returned. What was not sent is kept
  /// for the next one. Values can still be read and set, in the copy on this machine. Again:
  /// nothing. Not from a change handler, which may stop the program. Stores that do nothing by
  /// themselves need not do anything here either.
  virtual void close() {}

  /// @name Typed reading, as `UserDefaults` does it.
  /// @{
  [[nodiscard]] bool boolForKey(std::string_view key) const;
  [[nodiscard]] std::int64_t longLongForKey(std::string_view key) const;
  [[nodiscard]] double doubleForKey(std::string_view key) const;
  [[nodiscard]] std::optional<std::string> stringForKey(std::string_view key) const;
  [[nodiscard]] std::optional<Data> dataForKey(std::string_view key) const;
  [[nodiscard]] std::optional<PropertyList::Array> arrayForKey(std::string_view key) const;
  [[nodiscard]] std::optional<PropertyList::Dictionary> dictionaryForKey(
      std::string_view key) const;
  /// @}
};

/// A store in a file of this machine, shared by the processes that name the same one: the
/// stand-in where there is no cloud. Its values stay here; "elsewhere" is another process.
///
/// Nothing is made before the first value is set. A value is shown at once and brought to the disk
/// a moment later, as by `UserDefaults`; what cannot be written stays, and is tried again.
std::shared_ptr<NSUbiquitousKeyValueStore> makeFileUbiquitousKeyValueStore(
    const std::filesystem::path& folder, const std::string& domain);

/// The file store in the user's data folder, in the domain of the main bundle.
std::shared_ptr<NSUbiquitousKeyValueStore> makeDefaultUbiquitousKeyValueStore();

}  // namespace ombrix::platform
