#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string_view>

#include "OmbrixPlatform/Coding/PropertyList.hpp"
#include "OmbrixPlatform/Locks/Mutex.hpp"

namespace ombrix::platform::detail {

/// Keeps a cloud store within its limits without encoding all of its values at every set. Any
/// thread.
class CloudRoom {
 public:
  /// Whether a value fits; if so, it counts as added. Throws `PropertyListError` for some of the
  /// values that no property list can hold.
  /// @param all Gives the store's contents; not called while there is plenty of room.
  bool take(const PropertyList& value, std::string_view key,
            const std::function<PropertyList::Dictionary()>& all);

 private:
  static std::optional<std::size_t> mostBytesOf(const PropertyList& value, std::string_view key);

  // How many bytes fit before the next count: half of the free room at the last one, since another
  // process may fill the other half.
  Mutex mutex_;
  std::size_t keys_ OMBRIX_GUARDED_BY(mutex_) = 0;
  std::size_t bytes_ OMBRIX_GUARDED_BY(mutex_) = 0;
};

}  // namespace ombrix::platform::detail
