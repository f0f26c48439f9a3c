#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <optional>
#include <utility>
#include <vector>

#include "OmbrixC/Detail/Handle.hpp"
#include "OmbrixCore/Extensions/Logging/Log.hpp"

namespace ombrix::c {

/// Logs that a list is not complete, or is missing. If there is no memory for a line, either,
/// nothing can be reported.
inline void logMissing(LogTag tag) noexcept {
  try {
    logError(tag, "Data: Error parsing CSV");
  } catch (const std::exception&) {
    static_cast<void>(tag);
  }
}

/// A list for a C caller to own: as much of its beginning as fits into memory, with a line in the
/// log if that is not all. NULL for an empty value, and where there is no memory at all.
/// @param toC Makes an item a C one.
template <class CItem, class Item>
std::pair<CItem*, std::size_t> copied(std::optional<std::vector<Item>> items,
                                      CItem (*toC)(const Item&), LogTag tag) {
  if (!items) return {nullptr, 0};
  const std::size_t all = items->size();
  std::size_t count = all;
  const auto allocated = [&count] {
    return static_cast<CItem*>(std::malloc(std::max<std::size_t>(count, 1) * sizeof(CItem)));
  };
  CItem* copies = allocated();
  while (copies == nullptr && count > 0) {
    count -= count / 8 + 1;
    copies = allocated();
  }
  if (copies != nullptr) std::transform(items->data(), items->data() + count, copies, toC);
  items.reset();  // The line may need the memory.
  if (count < all || copies == nullptr) logMissing(tag);
  return {counted(copies), count};
}

/// The result of an operation; if it throws, its result's empty value and a line in the log.
template <class Operation>
auto logging(LogTag tag, Operation operation) noexcept -> decltype(operation()) {
  try {
    return operation();
  } catch (const std::exception&) {
    logMissing(tag);
    return {};
  }
}

/// Begins work that hands its list to a C caller later. If it cannot begin, that is logged, and the
/// caller gets no list here.
template <class List, class Begin>
void completingWith(void (*completion)(List, void*), void* context, LogTag tag,
                    Begin begin) noexcept {
  const bool hasBegun = logging(tag, [&] {
    begin();
    return true;
  });
  if (!hasBegun) completion(List{}, context);
}

}  // namespace ombrix::c
