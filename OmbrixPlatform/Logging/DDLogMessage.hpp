#pragma once

#include <cstdint>
#include <string_view>

#include "OmbrixPlatform/Values/Date.hpp"

namespace ombrix::platform {

/// The severity of a message; one bit each, so that levels can be masks of them.
enum class DDLogFlag : std::uint32_t { error = 1, warning = 2, info = 4, debug = 8, verbose = 16 };

/// A mask of the flags that are logged.
enum class DDLogLevel : std::uint32_t {
  off = 0,
  error = 1,
  warning = 3,
  info = 7,
  debug = 15,
  verbose = 31,
};

constexpr bool passes(DDLogLevel level, DDLogFlag flag) noexcept {
  return (static_cast<std::uint32_t>(level) & static_cast<std::uint32_t>(flag)) != 0;
}

/// The origin of a message: the source file's path without its ending (as in
/// "OmbrixCore/Data/LocationCSVParser") and the name of the logging function ("parse(url:)").
struct LogTag {
  std::string_view file;
  std::string_view function;
};

/// One message for the loggers; the texts are borrowed for the duration of the call.
struct DDLogMessage {
  std::string_view message;
  DDLogFlag flag = DDLogFlag::info;
  std::string_view file;      ///< The tag as it was passed.
  std::string_view fileName;  ///< Its last path component.
  std::string_view function;  ///< Empty when absent.
  std::uint32_t line = 0;
  Date timestamp{};
};

}  // namespace ombrix::platform
