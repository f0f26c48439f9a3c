#pragma once

#include <cstdint>
#include <exception>
#include <new>
#include <optional>
#include <utility>

#include "OmbrixCore/Data/Stores/DataFileStore.hpp"
#include "OmbrixCore/Data/Stores/StoreLog.hpp"
#include "OmbrixPlatform/Coding/Codable.hpp"
#include "OmbrixPlatform/Coding/PropertyListDecoder.hpp"
#include "OmbrixPlatform/Coding/PropertyListEncoder.hpp"

namespace ombrix {

/// A typed value in one file, as a binary property list (XML is read, too). Any thread.
///
/// A file that does not decode as `T` is logged and deleted, and its value is lost. That includes
/// files written before `T` got a new required field: give a new field a default, or make it
/// optional (`platform::codingFields`). Damaged data and null for a required field are such
/// failures, too. A file stays if it cannot be read, if memory is short, or if its value would take
/// memory out of proportion to the file's size.
template <class T>
class PlistFileStore final {
 public:
  using StoredItem = T;

  explicit PlistFileStore(platform::URL url) : backingDiskStore_(std::move(url)) {}

  /// Reads and decodes the file.
  [[nodiscard]] std::optional<T> value() const { return load().value; }

  /// The outcome of a read.
  struct Loaded {
    std::optional<T> value;
    bool hasFailed = false;  ///< The file may hold a value that a later read can get.
  };

  /// The same, and tells a file without a value from one that could not be read.
  // Kept: a file that does not decode is removed, so that a store never stays broken; keeping it
  // would log the same failure on every read.
  [[nodiscard]] Loaded load() const {
    // Repeated when the file was written again meanwhile.
    for (int attempts = 2; attempts > 0; --attempts) {
      const auto contents = backingDiskStore_.contents();
      if (!contents) return {.value = {}, .hasFailed = !contents.error().isNoSuchFile()};
      try {
        return {.value = platform::PropertyListDecoder().decode<T>(contents->bytes)};
      } catch (const std::bad_alloc& error) {
        detail::logIfUnreadable(backingDiskStore_.fileURL(), error);
        return {.value = {}, .hasFailed = true};
      } catch (const std::exception& error) {
        if (detail::logIfUnreadable(backingDiskStore_.fileURL(), error)) return {};
        detail::logItemStore("value", "Data: Error reading plist for store, deleting: ", error);
      }
      if (backingDiskStore_.purge(*contents)) return {};
    }
    return {.value = {}, .hasFailed = true};  // another process is writing it
  }

  /// Writes the value, or without one removes the file. A value that cannot be encoded leaves the
  /// file as it is.
  void setValue(const std::optional<T>& value) const {
    if (!value) {
      backingDiskStore_.setValue(std::nullopt);
      return;
    }
    std::optional<platform::Data> bytes;
    try {
      bytes = platform::PropertyListEncoder().encode(*value);
    } catch (const std::exception& error) {
      // Kept: "for in store"; whoever searches logs for the text would miss a corrected one.
      detail::logItemStore("value", "Data: Error encoding plist for in store: ", error);
      return;
    }
    backingDiskStore_.setValue(bytes);
  }

  [[nodiscard]] bool exists() const { return backingDiskStore_.exists(); }
  [[nodiscard]] std::uint64_t size() const { return backingDiskStore_.size(); }
  void purge() const { backingDiskStore_.purge(); }

  [[nodiscard]] DataFileStore& backingDiskStore() noexcept { return backingDiskStore_; }
  [[nodiscard]] const DataFileStore& backingDiskStore() const noexcept { return backingDiskStore_; }

 private:
  DataFileStore backingDiskStore_;
};

}  // namespace ombrix
