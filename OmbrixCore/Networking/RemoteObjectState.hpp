#pragma once

#include <concepts>
#include <cstddef>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>

#include "OmbrixPlatform/Values/Hasher.hpp"

namespace ombrix {

/// A type with an identity that can be hashed: a member or an operation `id`.
template <class T>
concept Identifiable = requires(const T& value) {
  std::hash<std::remove_cvref_t<decltype(std::invoke(&T::id, value))>>{};
};

/// The state of a remotely loaded object; while it is not fresh, with the last copy, if any.
///
/// A value: any thread may read it. Equality and hash go by the case and the identity only.
template <Identifiable Value>
class RemoteObjectState {
 public:
  using ID = std::remove_cvref_t<decltype(std::invoke(&Value::id, std::declval<const Value&>()))>;

  /// The cases, in the order of their tags.
  enum class Case { loading, offline, failed, loaded };

  static RemoteObjectState loading(ID id, std::optional<Value> cached = std::nullopt) {
    return Unloaded{Case::loading, std::move(id), std::move(cached), nullptr};
  }
  static RemoteObjectState offline(ID id, std::optional<Value> cached = std::nullopt) {
    return Unloaded{Case::offline, std::move(id), std::move(cached), nullptr};
  }
  static RemoteObjectState failed(ID id, std::optional<Value> cached, std::exception_ptr error) {
    return Unloaded{Case::failed, std::move(id), std::move(cached), std::move(error)};
  }
  static RemoteObjectState loaded(Value value) {
    return State(std::in_place_type<Value>, std::move(value));
  }

  [[nodiscard]] Case kind() const noexcept {
    const auto* unloaded = std::get_if<Unloaded>(&state_);
    return unloaded ? unloaded->kind : Case::loaded;
  }

  /// The loaded object, or otherwise its cached copy; null when there is none. Valid as long as the
  /// state.
  [[nodiscard]] const Value* value() const noexcept {
    if (const auto* loaded = std::get_if<Value>(&state_)) return loaded;
    const auto& cached = std::get<Unloaded>(state_).cached;
    return cached ? &*cached : nullptr;
  }

  [[nodiscard]] ID id() const {
    if (const auto* loaded = std::get_if<Value>(&state_)) return std::invoke(&Value::id, *loaded);
    return std::get<Unloaded>(state_).id;
  }

  /// Why it failed; null in every other case.
  [[nodiscard]] std::exception_ptr error() const noexcept {
    const auto* unloaded = std::get_if<Unloaded>(&state_);
    return unloaded ? unloaded->error : nullptr;
  }

  friend bool operator==(const RemoteObjectState& a, const RemoteObjectState& b) {
    return a.kind() == b.kind() && a.id() == b.id();
  }

  // Kept: the text of an error is hashed but not compared, so equal failed states may have unequal
  // hashes: a set may hold both, and screens that go by the hash show the new error.
  void hashInto(platform::Hasher& hasher) const {
    hasher.combine(static_cast<int>(kind()));
    hasher.combine(id());
    if (kind() == Case::failed) hasher.combine(descriptionOf(error()));
  }

 private:
  struct Unloaded {
    Case kind;
    ID id;
    std::optional<Value> cached;
    std::exception_ptr error;
  };
  using State = std::variant<Unloaded, Value>;

  RemoteObjectState(State state) : state_(std::move(state)) {}
  RemoteObjectState(Unloaded unloaded) : state_(std::move(unloaded)) {}

  static std::string descriptionOf(const std::exception_ptr& error) {
    if (!error) return {};
    try {
      std::rethrow_exception(error);
    } catch (const std::exception& known) {
      return known.what();
    } catch (...) {
      return {};
    }
  }

  State state_;
};

}  // namespace ombrix

template <ombrix::Identifiable Value>
struct std::hash<ombrix::RemoteObjectState<Value>> {
  std::size_t operator()(const ombrix::RemoteObjectState<Value>& state) const {
    ombrix::platform::Hasher hasher;
    state.hashInto(hasher);
    return hasher.finalize();
  }
};
