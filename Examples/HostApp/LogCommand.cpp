#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <memory>

#include "Examples/HostApp/Commands.hpp"
#include "OmbrixCore/Extensions/Logging/LoggingService.hpp"
#include "OmbrixPlatform/Logging/DDFileLogger.hpp"
#include "OmbrixPlatform/Logging/DDLog.hpp"

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
    const auto text = LoggingService::shared().historicalLogText();
    if (!text) throw CommandFailure("the log is not valid text");
    fmt::print("{}", *text);
    if (text->empty()) {
      fmt::print(stderr, "ombrix: there is no log yet; it would be in {}\n", logFolder());
    }
  });
}

}  // namespace ombrix::hostapp
