#include "OmbrixCore/Data/Stores/KeyedItemStore.hpp"

#include <algorithm>

#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix::detail {

std::size_t excessOver(std::size_t count, std::int64_t keeping) {
  std::int64_t excess = 0;
  if (__builtin_sub_overflow(static_cast<std::int64_t>(count), keeping, &excess)) {
    platform::fatalError("purgeOldest(keeping:) was asked to keep too few items");
  }
  return excess < 1 ? 0 : std::min(static_cast<std::size_t>(excess), count);
}

}  // namespace ombrix::detail
