#pragma once

#include <concepts>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Concurrency/Async.hpp"
#include "OmbrixPlatform/Concurrency/Serial.hpp"

namespace ombrix {

/// Keeps values by key. Every operation is asynchronous; nothing throws: what fails is logged.
///
/// - `value(key)`: the item, nothing when there is none.
/// - `store(value, key)`: keeps an item; nothing removes it.
/// - `exists(key)`; `age(key)`: seconds since it was stored, nothing when it is not there.
/// - `keys()`, in no particular order; `size()` in bytes.
/// - `purge(key)`, `purge()`: removes one, or all.
/// - `purgeOldest(keeping)`: removes the oldest until that many are left. A negative number keeps
///   none; one so low that the excess overflows stops the program.
///
/// The stores are actors: their operations run one at a time each, and a copy of a store is the
/// same store. An operation under way keeps its store alive.
template <class Store>
concept KeyedItemStore =
    requires(const Store& store, std::optional<typename Store::StoredItem> item, std::string key,
             std::int64_t count) {
      { store.value(key) } -> std::same_as<platform::Async<decltype(item)>>;
      { store.store(item, key) } -> std::same_as<platform::Async<void>>;
      { store.exists(key) } -> std::same_as<platform::Async<bool>>;
      { store.age(key) } -> std::same_as<platform::Async<std::optional<double>>>;
      { store.keys() } -> std::same_as<platform::Async<std::vector<std::string>>>;
      { store.size() } -> std::same_as<platform::Async<std::uint64_t>>;
      { store.purge(key) } -> std::same_as<platform::Async<void>>;
      { store.purge() } -> std::same_as<platform::Async<void>>;
      { store.purgeOldest(count) } -> std::same_as<platform::Async<void>>;
    };

/// An item that names its own key: a member `id`, a text or a function that gives one.
template <class Item>
concept IdentifiableItem = requires(const Item& item) {
  { item.id } -> std::convertible_to<std::string>;
} || requires(const Item& item) {
  { item.id() } -> std::convertible_to<std::string>;
};

/// For keyed stores of identifiable items: the operations that take the key from the item.
template <class Store, class Item>
class IdentifiedItemOperations {
 public:
  /// Keeps an item under its own identifier.
  [[nodiscard]] platform::Async<void> store(Item value) const
    requires IdentifiableItem<Item>
  {
    std::string key = identifierOf(value);
    return self().store(std::optional<Item>(std::move(value)), std::move(key));
  }

  /// Removes the item of that identifier.
  [[nodiscard]] platform::Async<void> purge(const Item& item) const
    requires IdentifiableItem<Item>
  {
    return self().purge(identifierOf(item));
  }

 private:
  static std::string identifierOf(const Item& item) {
    if constexpr (requires { item.id(); }) {
      return item.id();
    } else {
      return item.id;
    }
  }
  const Store& self() const { return static_cast<const Store&>(*this); }
};

namespace detail {

/// By how many this number of entries exceeds the number to keep; 0 for none. Overflow stops the
/// program.
std::size_t excessOver(std::size_t count, std::int64_t keeping);

/// Runs a closure on a store's state, as a section of the actor `state->serial`.
template <class State, class Section>
platform::Async<std::invoke_result_t<Section&, State&>> onActor(std::shared_ptr<State> state,
                                                                Section section) {
  auto body = [&] { return section(*state); };
  if constexpr (std::is_void_v<std::invoke_result_t<Section&, State&>>) {
    co_await state->serial.run(body);
  } else {
    auto result = co_await state->serial.run(body);
    co_return result;
  }
}

}  // namespace detail

}  // namespace ombrix
