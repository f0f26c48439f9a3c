#pragma once

#include <exception>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "OmbrixCore/Data/Stores/DataKeyedItemStore.hpp"
#include "OmbrixCore/Data/Stores/StoreLog.hpp"
#include "OmbrixPlatform/Coding/Codable.hpp"
#include "OmbrixPlatform/Coding/PropertyListDecoder.hpp"
#include "OmbrixPlatform/Coding/PropertyListEncoder.hpp"

namespace ombrix {

/// Keeps typed values as property lists, one file per key in one folder. See `KeyedItemStore` and
/// `DataKeyedItemStore`, whose rules for keys and purges also hold here. A file that does not
/// decode is deleted, as in `PlistFileStore`.
template <class T>
class PlistKeyedItemStore final : public IdentifiedItemOperations<PlistKeyedItemStore<T>, T> {
  using Identified = IdentifiedItemOperations<PlistKeyedItemStore<T>, T>;

 public:
  using StoredItem = T;
  using Identified::purge;
  using Identified::store;

  /// @param baseDirectory The folder of the files, which end in ".data".
  explicit PlistKeyedItemStore(platform::URL baseDirectory,
                               std::optional<std::int64_t> sizeLimit = std::nullopt)
      : state_(std::make_shared<State>(std::move(baseDirectory), sizeLimit)) {}

  /// Reads and decodes the key's file.
  // Kept: a file that does not decode is removed, so that a key never stays broken; keeping it
  // would log the same failure on every read.
  [[nodiscard]] platform::Async<std::optional<T>> value(std::string key) const {
    return valueOf(state_, std::move(key));
  }

  /// Writes the key's file, or without a value removes it. A value that cannot be encoded leaves it
  /// as it is.
  [[nodiscard]] platform::Async<void> store(std::optional<T> value, std::string key) const {
    return storeIn(state_, std::move(value), std::move(key));
  }

  [[nodiscard]] platform::Async<bool> exists(std::string key) const {
    return state_->backingDiskStore.exists(std::move(key));
  }
  [[nodiscard]] platform::Async<std::optional<double>> age(std::string key) const {
    return state_->backingDiskStore.age(std::move(key));
  }
  [[nodiscard]] platform::Async<std::vector<std::string>> keys() const {
    return state_->backingDiskStore.keys();
  }
  [[nodiscard]] platform::Async<std::uint64_t> size() const {
    return state_->backingDiskStore.size();
  }
  [[nodiscard]] platform::Async<void> purge(std::string key) const {
    return state_->backingDiskStore.purge(std::move(key));
  }
  [[nodiscard]] platform::Async<void> purge() const { return state_->backingDiskStore.purge(); }
  [[nodiscard]] platform::Async<void> purgeOldest(std::int64_t keeping) const {
    return state_->backingDiskStore.purgeOldest(keeping);
  }

  [[nodiscard]] const DataKeyedItemStore& backingDiskStore() const noexcept {
    return state_->backingDiskStore;
  }

 private:
  struct State {
    State(platform::URL baseDirectory, std::optional<std::int64_t> sizeLimit)
        : backingDiskStore(std::move(baseDirectory), "data", sizeLimit) {}

    /// The value; `isBroken` says that the bytes do not decode.
    std::optional<T> decode(const platform::Data& bytes, const std::string& key,
                            bool& isBroken) const {
      try {
        return decoder.decode<T>(bytes);
      } catch (const std::exception& error) {
        if (detail::logIfUnreadable(backingDiskStore.path(key), error)) return std::nullopt;
        isBroken = true;
        detail::logKeyedItemStore("value(for:)", "Data: Error reading plist for ", key,
                                  " in store, deleting: ", error);
      }
      return std::nullopt;
    }
    std::optional<platform::Data> encode(const T& value, const std::string& key) const {
      try {
        return encoder.encode(value);
      } catch (const std::exception& error) {
        detail::logKeyedItemStore("store(value:for:)", "Data: Error encoding plist for ", key,
                                  " in store: ", error);
        return std::nullopt;
      }
    }

    platform::Serial serial{platform::SectionPlace::offMainQueue};
    const platform::PropertyListDecoder decoder;
    const platform::PropertyListEncoder encoder;
    const DataKeyedItemStore backingDiskStore;
  };

  static platform::Async<std::optional<T>> valueOf(std::shared_ptr<State> state, std::string key) {
    // Repeated when the file was written again meanwhile.
    for (int attempts = 2; attempts > 0; --attempts) {
      auto contents = co_await state->backingDiskStore.contents(key);
      if (!contents) co_return std::nullopt;
      bool isBroken = false;
      auto section = [&] { return state->decode(contents->bytes, key, isBroken); };
      auto value = co_await state->serial.run(section);
      if (!isBroken) co_return value;
      auto removal = state->backingDiskStore.purge(key, *std::move(contents));
      const bool isRemoved = co_await std::move(removal);
      if (isRemoved) break;
    }
    co_return std::nullopt;
  }

  static platform::Async<void> storeIn(std::shared_ptr<State> state, std::optional<T> value,
                                       std::string key) {
    if (!value) {
      co_await state->backingDiskStore.purge(key);
      co_return;
    }
    auto section = [&] { return state->encode(*value, key); };
    auto bytes = co_await state->serial.run(section);
    if (!bytes) co_return;
    co_await state->backingDiskStore.store(bytes, key);
  }

  std::shared_ptr<State> state_;
};

static_assert(KeyedItemStore<PlistKeyedItemStore<int>>);

}  // namespace ombrix
