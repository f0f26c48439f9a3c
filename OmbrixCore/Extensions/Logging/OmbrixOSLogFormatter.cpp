#include "OmbrixCore/Extensions/Logging/OmbrixOSLogFormatter.hpp"

#include "OmbrixCore/Extensions/Logging/LineNumber.hpp"

namespace ombrix {

void OmbrixOSLogFormatter::format(const platform::DDLogMessage& message, std::string& line) const {
  line += message.message;
  line += " | ";
  line += message.fileName;
  line += '.';
  line += message.function;
  line += " + ";
  appendLineNumber(line, message.line);
}

}  // namespace ombrix
