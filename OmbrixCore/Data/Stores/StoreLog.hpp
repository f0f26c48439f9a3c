#pragma once

#include <exception>
#include <source_location>
#include <string_view>

#include "OmbrixPlatform/Files/URL.hpp"

/// \file
/// How the stores log a failure: what was tried, then the error's own text. Any thread.

namespace ombrix::detail {

/// For the stores of one item.
void logItemStore(std::string_view function, std::string_view what, const std::exception& error,
                  std::source_location where = std::source_location::current());

/// For the keyed stores. `key` and `joint` stand between `what` and the error.
void logKeyedItemStore(std::string_view function, std::string_view what, std::string_view key,
                       std::string_view joint, const std::exception& error,
                       std::source_location where = std::source_location::current());

/// Logs that a file's value does not fit in memory, or would take memory out of proportion to the
/// file's size, although the file may be sound. False, without a line, for all other errors. The
/// line is dropped if there is no memory for it.
bool logIfUnreadable(const platform::URL& file, const std::exception& error,
                     std::source_location where = std::source_location::current());

}  // namespace ombrix::detail
