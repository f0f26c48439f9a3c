#pragma once

#include <array>
#include <cmath>
#include <map>
#include <unordered_map>
#include <vector>

#include "OmbrixCore/Data/Stores/KeyedItemStore.hpp"
#include "OmbrixPlatform/Concurrency/Task.hpp"
#include "OmbrixPlatform/Memory/MemoryWarning.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixPlatform/Values/Clock.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix {

template <class T>
class CachedKeyedItemStore;

/// Keeps items in memory, at most a given number, and evicts the oldest first. See
/// `KeyedItemStore`.
///
/// Storing, reading and evicting one item takes logarithmic time at most.
template <class T>
class InMemoryKeyedStore final : public IdentifiedItemOperations<InMemoryKeyedStore<T>, T> {
  using Identified = IdentifiedItemOperations<InMemoryKeyedStore<T>, T>;

 public:
  using StoredItem = T;
  using Identified::purge;
  using Identified::store;

  /// @param sizeLimit How many items are kept at most; empty for no limit.
  /// @param autoPurge Whether all items are dropped when memory runs short.
  explicit InMemoryKeyedStore(std::optional<std::int64_t> sizeLimit = std::nullopt,
                              bool autoPurge = false)
      : state_(std::make_shared<State>(sizeLimit)) {
    if (autoPurge) purgeOnMemoryWarnings();
  }

  [[nodiscard]] platform::Async<std::optional<T>> value(std::string key) const {
    return detail::onActor(state_, [key = std::move(key)](State& state) -> std::optional<T> {
      const auto found = state.memory.find(key);
      if (found == state.memory.end()) return std::nullopt;
      return found->second.value;
    });
  }

  // Kept: a full store makes room before it looks at the key, so replacing an item in a full store
  // also evicts the oldest one; looking first would keep one item more than callers count on.
  [[nodiscard]] platform::Async<void> store(std::optional<T> value, std::string key) const {
    return detail::onActor(state_,
                           [value = std::move(value), key = std::move(key)](State& state) mutable {
                             ++state.revisionOf(key);
                             if (value) {
                               state.keep(std::move(key), *std::move(value));
                             } else {
                               state.remove(key);
                             }
                           });
  }

  [[nodiscard]] platform::Async<bool> exists(std::string key) const {
    return detail::onActor(
        state_, [key = std::move(key)](State& state) { return state.memory.contains(key); });
  }

  [[nodiscard]] platform::Async<std::optional<double>> age(std::string key) const {
    return detail::onActor(state_, [key = std::move(key)](State& state) -> std::optional<double> {
      const auto found = state.memory.find(key);
      if (found == state.memory.end()) return std::nullopt;
      const platform::Date now = platform::services().clock.get().now();
      return std::abs((now - found->second.stored->first.first).count());
    });
  }

  [[nodiscard]] platform::Async<std::vector<std::string>> keys() const {
    return detail::onActor(state_, [](State& state) {
      std::vector<std::string> keys;
      keys.reserve(state.memory.size());
      for (const auto& [key, entry] : state.memory) keys.push_back(key);
      return keys;
    });
  }

  // Kept: what an item owns outside itself is not counted: the number is that of the items times
  // the size of one, which takes no walk through them.
  [[nodiscard]] platform::Async<std::uint64_t> size() const {
    return detail::onActor(
        state_, [](State& state) -> std::uint64_t { return state.memory.size() * sizeof(T); });
  }

  [[nodiscard]] platform::Async<void> purge(std::string key) const {
    return detail::onActor(state_, [key = std::move(key)](State& state) {
      ++state.revisionOf(key);
      state.remove(key);
    });
  }

  [[nodiscard]] platform::Async<void> purge() const {
    return detail::onActor(state_, [](State& state) {
      state.outdateAll();
      state.removeAll();
    });
  }

  [[nodiscard]] platform::Async<void> purgeOldest(std::int64_t keeping) const {
    return detail::onActor(state_, [keeping](State& state) {
      state.outdateAll();
      state.removeOldest(keeping);
    });
  }

 private:
  friend class CachedKeyedItemStore<T>;

  /// The item, and its key's revision when it was looked up.
  using Revision = std::uint32_t;
  using Found = std::pair<std::optional<T>, Revision>;
  [[nodiscard]] platform::Async<Found> find(std::string key) const {
    return detail::onActor(state_, [key = std::move(key)](State& state) {
      const auto found = state.memory.find(key);
      return Found(found == state.memory.end() ? std::nullopt : std::optional(found->second.value),
                   state.revisionOf(key));
    });
  }

  /// Stores a copy of an item on disk, unless the key was stored or purged since the revision: the
  /// copy may be of the item that was replaced or purged.
  [[nodiscard]] platform::Async<void> fill(std::optional<T> value, std::string key,
                                           Revision revision) const {
    return detail::onActor(
        state_, [value = std::move(value), key = std::move(key), revision](State& state) mutable {
          if (state.revisionOf(key) != revision || state.changes.contains(key)) return;
          state.keep(std::move(key), *std::move(value));
        });
  }

  /// What a change of a key, which begins on disk, will do in memory when it ends.
  enum class Here : std::uint8_t { stays, changes };

  /// Until the change ends nothing is filled in under the key.
  [[nodiscard]] platform::Async<void> beginChange(std::string key, Here here) const {
    return detail::onActor(state_, [key = std::move(key), here](State& state) {
      Change& change = state.changes[key];
      ++change.count;
      if (here == Here::stays) return;
      change.isDisputed |= change.countHere > 0 || state.purges > 0;
      ++change.countHere;
    });
  }

  /// The change ends: the item is kept here. If other changes of the key were in progress
  /// meanwhile, the key is dropped instead, since nobody knows which of them was the last on disk.
  [[nodiscard]] platform::Async<void> endChange(std::optional<T> value, std::string key,
                                                Here here) const {
    return detail::onActor(
        state_, [value = std::move(value), key = std::move(key), here](State& state) mutable {
          ++state.revisionOf(key);
          const auto change = state.changes.find(key);
          const bool isDisputed = change->second.isDisputed;
          if (here == Here::changes) --change->second.countHere;
          if (--change->second.count == 0) state.changes.erase(change);
          if (here == Here::stays) return;
          if (value && !isDisputed) {
            state.keep(std::move(key), *std::move(value));
          } else {
            state.remove(key);
          }
        });
  }

  /// The same for all keys at once.
  [[nodiscard]] platform::Async<void> beginPurge() const {
    return detail::onActor(state_, [](State& state) {
      ++state.purges;
      for (auto& [key, change] : state.changes) change.isDisputed |= change.countHere > 0;
    });
  }
  [[nodiscard]] platform::Async<void> endPurge() const {
    return detail::onActor(state_, [](State& state) {
      --state.purges;
      state.outdateAll();
      state.removeAll();
    });
  }

  struct Entry;
  using Memory = std::unordered_map<std::string, Entry>;
  /// By date and, since the clock stands still or goes back, by the order of storing.
  using Ages = std::map<std::pair<platform::Date, std::uint64_t>, typename Memory::value_type*>;

  struct Entry {
    T value;
    typename Ages::iterator stored;
  };

  /// Changes of one key that are in progress on disk.
  struct Change {
    int count = 0;
    int countHere = 0;        // how many of them change the memory, too
    bool isDisputed = false;  // several of these were in progress at one time
  };

  struct State {
    explicit State(std::optional<std::int64_t> limit) : maxStoredItems(limit) {}

    void keep(std::string key, T value) {
      if (maxStoredItems && static_cast<std::int64_t>(memory.size()) >= *maxStoredItems) {
        std::int64_t keeping = 0;
        if (__builtin_sub_overflow(*maxStoredItems, 1, &keeping)) {
          platform::fatalError("the size limit of a keyed store is too low");
        }
        removeOldest(keeping);
      }
      insert(std::move(key), std::move(value));
    }
    void insert(std::string key, T value) {
      const platform::Date now = platform::services().clock.get().now();
      auto found = memory.find(key);
      if (found == memory.end()) {
        found = memory.emplace(std::move(key), Entry{std::move(value), ages.end()}).first;
      } else {
        found->second.value = std::move(value);
        ages.erase(found->second.stored);
      }
      // Usually the latest of all; then the hint makes it constant time.
      found->second.stored = ages.emplace_hint(ages.end(), std::pair(now, ++sequence), &*found);
    }
    void remove(const std::string& key) {
      const auto found = memory.find(key);
      if (found == memory.end()) return;
      ages.erase(found->second.stored);
      memory.erase(found);
    }
    void removeAll() {
      memory.clear();
      ages.clear();
    }
    void removeOldest(std::int64_t keeping) {
      for (auto excess = detail::excessOver(memory.size(), keeping); excess > 0; --excess) {
        memory.erase(memory.find(ages.begin()->second->first));
        ages.erase(ages.begin());
      }
    }

    /// For a key and the few others that share the slot; those only keep a copy out now and then.
    Revision& revisionOf(const std::string& key) {
      return revisions[std::hash<std::string>{}(key) % revisions.size()];
    }
    void outdateAll() {
      for (Revision& revision : revisions) ++revision;
    }

    platform::Serial serial;
    Memory memory;
    Ages ages;
    std::uint64_t sequence = 0;
    std::array<Revision, 256> revisions{};  // count what was stored and purged, not filled in
    std::unordered_map<std::string, Change> changes;
    int purges = 0;  // of everything, in progress on disk
    const std::optional<std::int64_t> maxStoredItems;
    std::vector<platform::ObservationToken> cancellables;
  };

  /// Subscribes in the background, for the store's life.
  void purgeOnMemoryWarnings() const {
    auto subscribe = [](State& state, const std::weak_ptr<State>& weak) {
      auto purgeLater = [weak] {
        if (auto alive = weak.lock()) {
          auto removeAll = [](State& purged) { purged.removeAll(); };
          detail::onActor(std::move(alive), removeAll).start();
        }
      };
      state.cancellables.push_back(
          platform::UIApplicationDidReceiveMemoryWarningNotification().connect(purgeLater));
    };
    detail::onActor(state_, [subscribe, weak = std::weak_ptr(state_)](State& state) {
      subscribe(state, weak);
    }).start();
  }

  std::shared_ptr<State> state_;
};

static_assert(KeyedItemStore<InMemoryKeyedStore<int>>);

}  // namespace ombrix
