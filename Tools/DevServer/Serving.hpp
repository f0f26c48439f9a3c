#pragma once

#include <memory>
#include <string>

#include "Tools/DevServer/DevServer.hpp"

namespace CLI {
class App;
}

namespace ombrix::devserver {

/// What the command line says about a server that runs until it is told to stop.
struct ServingOptions {
  DevServer::Options server;
  std::string authorityFile;  ///< Where to write the certificate to trust; empty for nowhere.
  bool printsPort = false;    ///< Prints the port instead of the base URL.
  bool isVerbose = false;     ///< Prints each request on standard error.
};

/// Adds the options, their help and examples; the command's name stands in the examples.
std::shared_ptr<ServingOptions> addServingOptions(CLI::App& app, const std::string& command);

/// Serves until SIGINT or SIGTERM; prints where on one line first. Call it before other threads
/// exist, which would take the signals. Throws `platform::Error` when the port is taken.
void serve(const ServingOptions& options);

}  // namespace ombrix::devserver
