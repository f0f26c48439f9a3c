#include "Examples/HostApp/Service/Server.hpp"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <future>

#include "Examples/HostApp/Commands/Commands.hpp"
#include "Examples/HostApp/Files/WholeFile.hpp"
#include "Examples/HostApp/Service/Patience.hpp"
#include "Examples/HostApp/Terminal/Terminal.hpp"
#include "Examples/HostApp/Texts/Text.hpp"
#include "OmbrixCore/Networking/OmbrixServerAPI.hpp"

namespace ombrix::hostapp {
namespace {

using platform::Data;
using platform::JSON;
using HTTPMethod = HttpRequestOperation::HTTPMethod;

constexpr std::chrono::milliseconds kBarInterval{50};
constexpr std::chrono::seconds kConnectionTimeout{30};

OmbrixServerAPI& client() { return OmbrixServerAPI::sharedInstance(); }

platform::URL baseURL(std::string address) {
  if (!address.ends_with('/')) address += '/';
  const auto url = platform::URL::parse(address);
  if (!url || !url->host() || !url->scheme().value_or("").starts_with("http")) {
    throw CLI::ValidationError("--server", fmt::format("{:?} is not a web address", address));
  }
  return *url;
}

/// Waits for the first value; a failure ends the command.
template <class Output>
Output wait(const OmbrixServerAPI::APIPublisher<Output>& publisher) {
  std::promise<OmbrixServerAPI::Result<Output>> promise;
  auto result = promise.get_future();
  client().completionWrapper<Output>(
      publisher, [&](OmbrixServerAPI::Result<Output> answer) { promise.set_value(answer); });
  const auto answer = result.get();
  if (!answer) throw CommandFailure(OmbrixServerAPI::errorMessageForResult(answer));
  return *answer;
}

void signIn(const std::string& login) {
  const auto colon = login.find(':');
  if (colon == std::string::npos) {
    throw CLI::ValidationError("--login", "expected EMAIL:PASSWORD");
  }
  post("login", JSON(JSON::Dictionary{{"email", login.substr(0, colon)},
                                      {"password", login.substr(colon + 1)}})
                    .rawData());
}

/// An answer that no transport error has spoiled; the rest ends the command.
Data bodyOf(std::optional<Data> data, const platform::URLResponse* response,
            const platform::Error* error) {
  const auto* http = dynamic_cast<const platform::HTTPURLResponse*>(response);
  if (http == nullptr) {
    throw CommandFailure(error != nullptr ? error->what() : "no response was received");
  }
  Data body = std::move(data).value_or(Data());
  if (!isSuccessStatus(http->statusCode())) {
    const auto failure = HTTPError::withStatusCode(http->statusCode(), platform::DataView(body));
    throw CommandFailure(OmbrixServerAPI::errorMessageForError(&failure));
  }
  return body;
}

}  // namespace

std::shared_ptr<ServerOptions> addServerOptions(CLI::App& command) {
  auto options = std::make_shared<ServerOptions>();
  command
      .add_option("--server", options->server,
                  "Base URL of a web service, as `ombrix serve` prints it")
      ->type_name("URL")
      ->envname("OMBRIX_SERVER");
  command.add_option("--endpoint", options->endpoint, "The environment; production by default")
      ->check(CLI::IsMember({"production", "staging", "development"}));
  command.add_option("--token", options->token, "Bearer token to send")->envname("OMBRIX_TOKEN");
  command.add_option("--login", options->login, "Sign in first")->type_name("EMAIL:PASSWORD");
  return options;
}

void connect(const ServerOptions& options) {
  auto endpoint = options.endpoint;
  auto configuration = ServerConfiguration::defaults();
  if (!options.server.empty()) {
    if (endpoint.empty()) endpoint = "development";
    const auto url = baseURL(options.server);
    auto& replaced = endpoint == "development" ? configuration.development
                     : endpoint == "staging"   ? configuration.staging
                                               : configuration.production;
    replaced = url;
  }
  client().setConfiguration(configuration);
  OmbrixServerAPI::change(endpoint == "development" ? APIEndpoint::development
                          : endpoint == "staging"   ? APIEndpoint::staging
                                                    : APIEndpoint::production);
  if (!options.token.empty()) client().setJwtToken(options.token);
  if (!options.login.empty()) signIn(options.login);
}

Data fetch(std::string_view path) { return wait(client().dataPublisher(path, HTTPMethod::GET)); }

JSON post(std::string_view path, Data document) {
  const Data body =
      wait(client().dataPublisher(path, HTTPMethod::POST, false, HTTPPayload(std::move(document))));
  return body.empty() ? JSON() : JSON::parse(body);
}

Data upload(const std::string& file, std::string_view path, const std::string& method) {
  const auto url = platform::URL::parse(path, client().endpoint());
  if (!url) throw CommandFailure(fmt::format("{:?} is not a path", path));
  platform::URLRequest request(*url);
  request.httpMethod = method;
  if (const auto token = client().jwtToken()) {
    request.headers.set("Authorization", "Bearer " + *token);
  }
  struct Answer {
    std::optional<Data> data;
    std::shared_ptr<const platform::URLResponse> response;
    std::shared_ptr<const platform::Error> error;
  };
  std::promise<Answer> promise;
  auto answer = promise.get_future();
  const auto task = client().backgroundSession()->uploadTask(
      std::move(request), readWholeFile(file), [&](auto data, auto response, auto error) {
        promise.set_value({std::move(data), std::move(response), std::move(error)});
      });
  client().trackExternalHTTPRequest();
  task->resume();
  bool hasGivenUp = false;
  {
    ProgressBar bar(text("Uploading"));
    // The session itself would wait for a network for a day.
    Patience patience(kConnectionTimeout, std::chrono::steady_clock::now());
    while (answer.wait_for(kBarInterval) != std::future_status::ready) {
      const auto sent = task->countOfBytesSent();
      bar.show(static_cast<std::size_t>(sent),
               static_cast<std::size_t>(task->countOfBytesExpectedToSend()));
      hasGivenUp = patience.isOver(sent, std::chrono::steady_clock::now());
      if (hasGivenUp) break;
    }
  }
  task->cancel();  // unless it is over
  client().completeExternalHTTPRequest();
  auto [data, response, error] = answer.get();
  if (hasGivenUp && error) {
    const auto host = task->currentRequest().url.host();
    throw CommandFailure(fmt::format("{} did not take the file within {} seconds",
                                     host.value_or(""), kConnectionTimeout.count()));
  }
  if (error && task->countOfBytesSent() == 0) {
    fmt::print(stderr, "ombrix: could not reach {}\n", url->host().value_or(""));
  }
  return bodyOf(std::move(data), response.get(), error.get());
}

}  // namespace ombrix::hostapp
