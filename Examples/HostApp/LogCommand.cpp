#include <fmt/format.h>

#include <CLI/CLI.hpp>

#include "Examples/HostApp/Commands.hpp"
#include "OmbrixCore/Extensions/Logging/LoggingService.hpp"

namespace ombrix::hostapp {

void addLogCommand(CLI::App& app) {
  app.add_subcommand("log", "Prints the recent log, the oldest line first")->callback([] {
    const auto text = LoggingService::shared().historicalLogText();
    if (!text) throw CommandFailure("the log is not valid text");
    fmt::print("{}", *text);
  });
}

}  // namespace ombrix::hostapp
