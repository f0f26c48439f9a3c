#include <algorithm>
#include <string>
#include <utility>

#include "OmbrixPlatform/Coding/PropertyListSerialization.hpp"
#include "OmbrixPlatform/Defaults/Detail/CloudRoom.hpp"
#include "OmbrixPlatform/Defaults/NSUbiquitousKeyValueStore.hpp"

namespace ombrix::platform::detail {

bool CloudRoom::take(const PropertyList& value, std::string_view key,
                     const std::function<PropertyList::Dictionary()>& all) {
  constexpr std::size_t kMaxKeys = NSUbiquitousKeyValueStore::kMaxKeys;
  constexpr std::size_t kMaxBytes = NSUbiquitousKeyValueStore::kMaxBytes;
  // With more objects all references are wider.
  constexpr std::size_t kReserveBytes = 16 * 1024;
  const auto most = mostBytesOf(value, key);
  {
    const LockGuard lock(mutex_);
    if (most && keys_ > 0 && bytes_ >= *most) {
      --keys_;
      bytes_ -= *most;
      return true;
    }
  }
  auto values = all();
  values.set(std::string(key), value);
  const std::size_t keys = values.size();
  const std::size_t bytes = PropertyListSerialization::write(std::move(values)).size();
  if (keys > kMaxKeys || bytes > kMaxBytes) return false;
  const LockGuard lock(mutex_);
  keys_ = (kMaxKeys - keys) / 2;
  bytes_ = (kMaxBytes - std::min(kMaxBytes, bytes + kReserveBytes)) / 2;
  return true;
}

/// The most bytes that an entry takes in a property list; empty for a value that contains others.
std::optional<std::size_t> CloudRoom::mostBytesOf(const PropertyList& value, std::string_view key) {
  constexpr std::size_t kBytesBeside = 64;  // markers, references and offsets of two objects
  std::size_t bytes = 0;
  if (const auto* text = value.text()) {
    bytes = 2 * text->size();  // in UTF-16
  } else if (const auto* data = value.data()) {
    bytes = data->size();
  } else if (!value.boolean() && !value.integer() && !value.real()) {
    return std::nullopt;
  }
  return bytes + 2 * key.size() + kBytesBeside;
}

}  // namespace ombrix::platform::detail
