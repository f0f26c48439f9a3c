#pragma once

#include <memory>
#include <string>

#include "Tools/DevServer/DevServer.hpp"

namespace CLI {
class App;
}

namespace ombrix::devserver {

/// The command-line options of a server that runs until it is stopped.
struct ServingOptions {
  DevServer::Options server;
  std::string authorityFile;  ///< Where to write the certificate to trust; empty: nowhere.
  bool printsPort = false;    ///< Prints the port instead of the base URL.
  bool isVerbose = false;     ///< Prints each request on standard error.
};

/// Adds the options, their help and examples that use the command's name.
std::shared_ptr<ServingOptions> addServingOptions(CLI::App& app, const std::string& command);

/// Serves until SIGINT or SIGTERM; first prints its address on one line. Call it before other
/// threads exist, which would receive the signals. Throws `platform::Error` when the port is taken.
void serve(const ServingOptions& options);

}  // namespace ombrix::devserver
