#include <CLI/CLI.hpp>

#include "Examples/HostApp/Commands.hpp"
#include "Tools/DevServer/Serving.hpp"

namespace ombrix::hostapp {

void addServeCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand("serve", "Runs the local development web service");
  const auto options = devserver::addServingOptions(*command, "ombrix serve");
  command->callback([options] { devserver::serve(*options); });
}

}  // namespace ombrix::hostapp
