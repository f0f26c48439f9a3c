#include "OmbrixCore/Extensions/Logging/OmbrixLogFormatter.hpp"

#include <cstdint>
#include <string_view>

#include "OmbrixCore/Extensions/Logging/LineNumber.hpp"
#include "OmbrixPlatform/Text/DateFormatter.hpp"

namespace ombrix {
namespace {

std::string_view markFor(platform::DDLogFlag flag) noexcept {
  switch (static_cast<std::uint32_t>(flag)) {
    case 1:
      return "\U0001F6A8";  // police car light
    case 2:
      return "\u26A0\uFE0F";  // warning sign
    case 4:
      return "\u2139\uFE0F";  // information source
    // Kept: error and warning together (3) count as neither; a graver mark would change the lines
    // that scripts look for.
    default:
      return "\U0001F50D";  // magnifying glass
  }
}

/// Uses the locale and time zone at the time of the first line, for all formatters.
const platform::DateFormatter& dateFormatter() {
  static const auto& formatter = *new platform::DateFormatter("MM/dd/yyyy HH:mm:ss:SSS");
  return formatter;
}

}  // namespace

void OmbrixLogFormatter::format(const platform::DDLogMessage& message, std::string& line) const {
  dateFormatter().appendTo(line, message.timestamp);
  line += ' ';
  line += markFor(message.flag);
  line += "   ";  // Kept: three blanks, one column for all marks; readers split lines at them.
  line += message.message;
  line += " | [";
  line += message.fileName;
  line += ' ';
  line += message.function;
  line += "]:";
  appendLineNumber(line, message.line);
}

}  // namespace ombrix
