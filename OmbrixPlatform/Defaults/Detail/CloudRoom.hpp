#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string_view>

#include "OmbrixPlatform/Coding/PropertyList.hpp"
#include "OmbrixPlatform/Locks/Mutex.hpp"

namespace ombrix::platform::detail {

/// Keeps a cloud store within its limits without writing all of its values out at every set. Any
/// thread.
class CloudRoom {
 public:
  /// Whether a value fits; then it counts as added. Throws `PropertyListError` for some of what no
  /// property list can hold.
  /// @param all Gives what the store holds; not called while there is plenty of room.
  bool take(const PropertyList& value, std::string_view key,
            const std::function<PropertyList::Dictionary()>& all);

 private:
  static std::optional<std::size_t> mostBytesOf(const PropertyList& value, std::string_view key);

  // What fits without another count: half of the room that was found, since another process may
  // fill the other half.
  Mutex mutex_;
  std::size_t keys_ OMBRIX_GUARDED_BY(mutex_) = 0;
  std::size_t bytes_ OMBRIX_GUARDED_BY(mutex_) = 0;
};

}  // namespace ombrix::platform::detail
