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

/// The user's values in the cloud: a few small ones that all of the user's devices share.
///
/// A store holds at most `kMaxKeys` keys and `kMaxBytes` bytes of keys and values; a value that
/// would exceed this is not stored, and observers are told. All operations may be called from any
/// thread.
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

  /// A change that this process did not make.
  struct ExternalChange {
    ChangeReason reason;
    std::vector<std::string> keys;
  };
  using ExternalChangeHandler = std::move_only_function<void(const ExternalChange& change)>;

  /// The store of the process, from the service in `services().cloudStore`.
  static NSUbiquitousKeyValueStore& defaultStore();

  virtual ~NSUbiquitousKeyValueStore() = default;

  [[nodiscard]] virtual std::optional<PropertyList> objectForKey(std::string_view key) const = 0;

  /// Stores a value. Throws `PropertyListError` for a value that no property list can hold.
  virtual void setObject(PropertyList value, std::string_view key) = 0;
  virtual void removeObjectForKey(std::string_view key) = 0;

  [[nodiscard]] virtual PropertyList::Dictionary dictionaryRepresentation() const = 0;

  /// Synchronizes memory with the place where values are kept, now; false when that failed.
  virtual bool synchronize() = 0;

  /// Whether the values that were set outlive the process, sent or not; false after a `synchronize`
  /// that could not save them on this machine.
  [[nodiscard]] virtual bool isKept() const { return true; }

  /// Calls the handler for every change from elsewhere, on one of the store's threads, until the
  /// token ends.
  virtual ObservationToken observeExternalChanges(ExternalChangeHandler handler) = 0;

  /// Ends a store that the caller has made, for programs that end in order: it sends and reads
  /// nothing more, and no call of an observer begins after this returns. Unsent changes are kept
  /// for the next store. Values can still be read and set, in the copy on this machine. A second
  /// call does nothing. Do not call it from a change handler: that may stop the program. A store
  /// that does nothing in the background need not override this.
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

/// A store in a file of this machine, shared by the processes that name the same one: used where
/// there is no cloud. Its values stay here; "elsewhere" is another process.
///
/// Nothing is made before the first value is set. A value is shown at once and written a moment
/// later, as by `UserDefaults`; one that cannot be written is kept and tried again.
std::shared_ptr<NSUbiquitousKeyValueStore> makeFileUbiquitousKeyValueStore(
    const std::filesystem::path& folder, const std::string& domain);

/// The file store in the user's data folder, in the domain of the main bundle.
std::shared_ptr<NSUbiquitousKeyValueStore> makeDefaultUbiquitousKeyValueStore();

}  // namespace ombrix::platform
