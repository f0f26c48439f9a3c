#include "OmbrixPlatform/Defaults/NSUbiquitousKeyValueStore.hpp"

#include "OmbrixPlatform/Defaults/Detail/Coercion.hpp"
#include "OmbrixPlatform/Services.hpp"

namespace ombrix::platform {

NSUbiquitousKeyValueStore& NSUbiquitousKeyValueStore::defaultStore() {
  return services().cloudStore.get();
}

bool NSUbiquitousKeyValueStore::boolForKey(std::string_view key) const {
  const auto value = objectForKey(key);
  return value && detail::boolFrom(*value);
}

std::int64_t NSUbiquitousKeyValueStore::longLongForKey(std::string_view key) const {
  const auto value = objectForKey(key);
  return value ? detail::integerFrom(*value) : 0;
}

double NSUbiquitousKeyValueStore::doubleForKey(std::string_view key) const {
  const auto value = objectForKey(key);
  return value ? detail::doubleFrom(*value) : 0;
}

std::optional<std::string> NSUbiquitousKeyValueStore::stringForKey(std::string_view key) const {
  const auto value = objectForKey(key);
  return value ? detail::stringFrom(*value) : std::nullopt;
}

std::optional<Data> NSUbiquitousKeyValueStore::dataForKey(std::string_view key) const {
  const auto value = objectForKey(key);
  return detail::copyOf(value ? value->data() : nullptr);
}

std::optional<PropertyList::Array> NSUbiquitousKeyValueStore::arrayForKey(
    std::string_view key) const {
  const auto value = objectForKey(key);
  return detail::copyOf(value ? value->array() : nullptr);
}

std::optional<PropertyList::Dictionary> NSUbiquitousKeyValueStore::dictionaryForKey(
    std::string_view key) const {
  const auto value = objectForKey(key);
  return detail::copyOf(value ? value->dictionary() : nullptr);
}

}  // namespace ombrix::platform
