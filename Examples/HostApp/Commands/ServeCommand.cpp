#include <CLI/CLI.hpp>

#include "Examples/HostApp/Commands/Arguments.hpp"
#include "Examples/HostApp/Commands/Commands.hpp"
#include "Tools/DevServer/Serving.hpp"

namespace ombrix::hostapp {

void addServeCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand("serve", "Runs the local development web service");
  const auto options = devserver::addServingOptions(*command, "ombrix serve");
  command->get_option("--port")->check(wholeNumberBetween(0, 65'535));
  command->get_option("--rotate-every")->check(wholeNumberBetween(0, kMostToCount));
  command->callback([options] { devserver::serve(*options); });
}

}  // namespace ombrix::hostapp
