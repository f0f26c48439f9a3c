#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <memory>

#include "Examples/HostApp/Commands/Commands.hpp"
#include "OmbrixCore/Extensions/Logging/LoggingService.hpp"
#include "OmbrixPlatform/Logging/DDFileLogger.hpp"
#include "OmbrixPlatform/Logging/DDLog.hpp"
#include "OmbrixPlatform/Text/UTF8.hpp"

namespace ombrix::hostapp {
namespace {

/// The folder of the log's files; empty when the log has none.
std::string logFolder() {
  for (const auto& logger : platform::DDLog::allLoggers()) {
    const auto file = std::dynamic_pointer_cast<platform::DDFileLogger>(logger);
    if (file) return file->logFileManager()->logsDirectory().string();
  }
  return {};
}

}  // namespace

void addLogCommand(CLI::App& app) {
  app.add_subcommand("log", "Prints the recent log, the oldest line first")->callback([] {
    const auto log = LoggingService::shared().historicalLog();
    if (!log) throw CommandFailure("there is no log");
    // A log that others have written to, or a damaged disk, is shown as far as it can be read.
    fmt::print("{}", platform::stringFromUTF8Repaired(*log));
    if (log->empty()) {
      fmt::print(stderr, "ombrix: there is no log yet; it would be in {}\n", logFolder());
    }
  });
}

}  // namespace ombrix::hostapp
