#pragma once

#include <memory>
#include <string>

#include "OmbrixCore/Networking/Requests/HTTPAnswer.hpp"
#include "OmbrixPlatform/Coding/JSON.hpp"
#include "OmbrixPlatform/Network/HTTPHeaders.hpp"
#include "OmbrixPlatform/Values/Data.hpp"

namespace CLI {
class App;
}

namespace ombrix::hostapp {

/// The web service that a command talks to, and the user.
struct ServerOptions {
  std::string server;    ///< Its base URL; empty for the environment's own.
  std::string endpoint;  ///< "production", "staging" or "development"; empty to choose.
  std::string token;
  std::string login;  ///< "EMAIL:PASSWORD" or "@FILE"; empty to go without.
};

/// Adds --server, --endpoint, --token and --login.
std::shared_ptr<ServerOptions> addServerOptions(CLI::App& command);

/// Points the shared client at the service and signs in if asked to; failures end the command.
void connect(const ServerOptions& options);

/// Fetches a body; failures end the command with the text for the user.
platform::Data fetch(std::string_view path);

/// Sends a document and returns the answer's; failures end the command with the text for the user.
platform::JSON post(std::string_view path, platform::Data document);

/// Uploads a file with a progress bar on standard error. A failure, such as half a minute in which
/// no byte could be sent, ends the command, after the status of a refusal was shown.
HTTPAnswer uploadFile(const std::string& file, std::string_view path, const std::string& method,
                      platform::HTTPHeaders headers = {}, bool isVerbose = false);

}  // namespace ombrix::hostapp
