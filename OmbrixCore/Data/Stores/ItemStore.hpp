#pragma once

#include <concepts>
#include <cstdint>
#include <optional>

namespace ombrix {

/// Keeps one value. Nothing throws: what fails is logged, and the store carries on.
///
/// `value()` gives the stored item, nothing when there is none (a store with a default value gives
/// that instead); `setValue` takes an item, or nothing to remove it, where the store has no
/// default. `exists()`: whether a stored copy is there; `size()`: the bytes that it takes on the
/// disk; `purge()` removes it.
template <class Store>
concept ItemStore = requires(Store& store, const Store& constant, typename Store::StoredItem item) {
  { store.value() } -> std::convertible_to<std::optional<typename Store::StoredItem>>;
  store.setValue(item);
  { constant.exists() } -> std::same_as<bool>;
  { constant.size() } -> std::same_as<std::uint64_t>;
  store.purge();
};

}  // namespace ombrix
