#pragma once

#include <concepts>
#include <cstdint>
#include <optional>

namespace ombrix {

/// Keeps one value. Nothing throws: what fails is logged, and the store carries on.
///
/// `value()` gives the stored item, or nothing when there is none (a store with a default value
/// gives the default instead); `setValue` takes an item, or nothing to remove it in a store without
/// a default. `exists()` tells whether there is a stored copy, `size()` how many bytes it takes on
/// the disk; `purge()` removes it.
template <class Store>
concept ItemStore = requires(Store& store, const Store& constant, typename Store::StoredItem item) {
  { store.value() } -> std::convertible_to<std::optional<typename Store::StoredItem>>;
  store.setValue(item);
  { constant.exists() } -> std::same_as<bool>;
  { constant.size() } -> std::same_as<std::uint64_t>;
  store.purge();
};

}  // namespace ombrix
