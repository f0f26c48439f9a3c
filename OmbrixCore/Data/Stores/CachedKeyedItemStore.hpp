#pragma once

#include <algorithm>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "OmbrixCore/Data/Stores/InMemoryKeyedStore.hpp"
#include "OmbrixCore/Data/Stores/PlistKeyedItemStore.hpp"
#include "OmbrixCore/Data/Stores/String+FileName.hpp"

namespace ombrix {

/// A memory store in front of a store on disk, filled by reads. See `KeyedItemStore`.
///
/// It has no state of its own: each operation takes its turn in one store and then in the other,
/// and other operations may come in between. A change is announced to the memory store, made on
/// disk, and made in memory last. Until then memory refuses the key's item if a reader has found it
/// on disk; writes to other keys do not matter. When two operations change the same key in both
/// stores at the same time, memory drops the key, and the next reader takes the item from disk.
///
///     CachedKeyedItemStore<Lift> lifts{InMemoryKeyedStore<Lift>(100),
///                                      PlistKeyedItemStore<Lift>(folder)};
///     co_await lifts.store(lift, key);
///     const auto kept = co_await lifts.value(key);
template <class T>
class CachedKeyedItemStore final : public IdentifiedItemOperations<CachedKeyedItemStore<T>, T> {
  using Identified = IdentifiedItemOperations<CachedKeyedItemStore<T>, T>;

 public:
  using StoredItem = T;
  using Identified::purge;
  using Identified::store;

  enum class StoreType : std::uint8_t { memory, disk, both };

  CachedKeyedItemStore(InMemoryKeyedStore<T> inMemory, PlistKeyedItemStore<T> disk)
      : inner_{std::move(inMemory), std::move(disk)} {}

  /// The item in memory, otherwise the one on disk, which is then kept in memory as if stored now.
  [[nodiscard]] platform::Async<std::optional<T>> value(std::string key) const {
    return valueIn(inner_, std::move(key));
  }

  [[nodiscard]] platform::Async<void> store(std::optional<T> value, std::string key) const {
    return store(std::move(value), std::move(key), StoreType::both);
  }

  /// Keeps the item in memory, on disk, or in both.
  [[nodiscard]] platform::Async<void> store(std::optional<T> value, std::string key,
                                            StoreType type) const {
    return storeIn(inner_, std::move(value), std::move(key), type);
  }

  /// Whether either has the key.
  [[nodiscard]] platform::Async<bool> exists(std::string key) const {
    return existsIn(inner_, std::move(key));
  }

  /// The age on disk, which reading does not renew; the age in memory for an item that is only
  /// there.
  [[nodiscard]] platform::Async<std::optional<double>> age(std::string key) const {
    return ageIn(inner_, std::move(key));
  }

  /// The keys in memory, and the file names on disk that belong to none of them.
  [[nodiscard]] platform::Async<std::vector<std::string>> keys() const { return keysOf(inner_); }

  /// Both sizes together.
  [[nodiscard]] platform::Async<std::uint64_t> size() const { return sizeOf(inner_); }

  [[nodiscard]] platform::Async<void> purge(std::string key) const {
    return storeIn(inner_, std::nullopt, std::move(key), StoreType::both);
  }
  [[nodiscard]] platform::Async<void> purge() const { return purgeAll(inner_); }

  /// Applies to each of the two stores separately.
  [[nodiscard]] platform::Async<void> purgeOldest(std::int64_t keeping) const {
    return purgeOldestIn(inner_, keeping);
  }

 private:
  using Here = typename InMemoryKeyedStore<T>::Here;

  // It has a constructor, since coroutines take it by value.
  struct Inner {
    Inner(InMemoryKeyedStore<T> inMemory, PlistKeyedItemStore<T> disk)
        : inMemoryStore(std::move(inMemory)), diskStore(std::move(disk)) {}

    InMemoryKeyedStore<T> inMemoryStore;
    PlistKeyedItemStore<T> diskStore;
  };

  static platform::Async<std::optional<T>> valueIn(Inner inner, std::string key) {
    auto cached = co_await inner.inMemoryStore.find(key);
    if (cached.first) co_return cached.first;
    auto stored = co_await inner.diskStore.value(key);
    const auto revision = cached.second;
    if (stored) co_await inner.inMemoryStore.fill(stored, key, revision);
    co_return stored;
  }

  static platform::Async<void> storeIn(Inner inner, std::optional<T> value, std::string key,
                                       StoreType type) {
    if (type == StoreType::memory) {
      co_await inner.inMemoryStore.store(value, key);
      co_return;
    }
    const auto here = type == StoreType::disk ? Here::stays : Here::changes;
    co_await inner.inMemoryStore.beginChange(key, here);
    std::exception_ptr failure;
    try {
      co_await inner.diskStore.store(value, key);
    } catch (...) {
      failure = std::current_exception();
    }
    co_await inner.inMemoryStore.endChange(value, key, here);
    if (failure) std::rethrow_exception(failure);
  }

  static platform::Async<bool> existsIn(Inner inner, std::string key) {
    const bool isCached = co_await inner.inMemoryStore.exists(key);
    if (isCached) co_return true;
    const bool isStored = co_await inner.diskStore.exists(key);
    co_return isStored;
  }

  static platform::Async<std::optional<double>> ageIn(Inner inner, std::string key) {
    const auto onDisk = co_await inner.diskStore.age(key);
    if (onDisk) co_return onDisk;
    const auto inMemory = co_await inner.inMemoryStore.age(key);
    co_return inMemory;
  }

  static platform::Async<std::vector<std::string>> keysOf(Inner inner) {
    auto keys = co_await inner.inMemoryStore.keys();
    auto names = co_await inner.diskStore.keys();
    std::vector<std::string> known;
    known.reserve(keys.size());
    for (const auto& key : keys) known.push_back(sanitizedFileName(key));
    std::ranges::sort(known);
    for (auto& name : names) {
      if (!std::ranges::binary_search(known, name)) keys.push_back(std::move(name));
    }
    co_return keys;
  }

  static platform::Async<std::uint64_t> sizeOf(Inner inner) {
    const auto inMemory = co_await inner.inMemoryStore.size();
    const auto onDisk = co_await inner.diskStore.size();
    co_return inMemory + onDisk;
  }

  static platform::Async<void> purgeAll(Inner inner) {
    co_await inner.inMemoryStore.beginPurge();
    std::exception_ptr failure;
    try {
      co_await inner.diskStore.purge();
    } catch (...) {
      failure = std::current_exception();
    }
    co_await inner.inMemoryStore.endPurge();
    if (failure) std::rethrow_exception(failure);
  }

  static platform::Async<void> purgeOldestIn(Inner inner, std::int64_t keeping) {
    co_await inner.diskStore.purgeOldest(keeping);
    co_await inner.inMemoryStore.purgeOldest(keeping);
  }

  Inner inner_;
};

static_assert(KeyedItemStore<CachedKeyedItemStore<int>>);

}  // namespace ombrix
