#include "Examples/HostApp/Service/Server.hpp"

#include <fmt/format.h>

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <chrono>
#include <csignal>
#include <future>

#include "Examples/HostApp/Commands/Commands.hpp"
#include "Examples/HostApp/Files/WholeFile.hpp"
#include "Examples/HostApp/Service/Exchange.hpp"
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
  if (!answer) throw CommandFailure(failureText(answer.error()));
  return *answer;
}

void signIn(std::string login) {
  if (login.starts_with('@')) {
    login = platform::textOf(readWholeFile(login.substr(1)));
    login.erase(login.find_last_not_of("\r\n") + 1);
  }
  const auto colon = login.find(':');
  if (colon == std::string::npos) {
    throw CLI::ValidationError("--login", "expected EMAIL:PASSWORD, or @FILE that holds it");
  }
  post("login", JSON(JSON::Dictionary{{"email", login.substr(0, colon)},
                                      {"password", login.substr(colon + 1)}})
                    .rawData());
}

/// Removes the progress bar when the program is interrupted.
class CleanInterruption {
 public:
  CleanInterruption() : before_(std::signal(SIGINT, &CleanInterruption::end)) {}
  ~CleanInterruption() { std::signal(SIGINT, before_); }
  CleanInterruption(const CleanInterruption&) = delete;
  CleanInterruption& operator=(const CleanInterruption&) = delete;

 private:
  static void end(int signal) {
    constexpr std::string_view kClearLine = "\r\x1b[K";
    if (::isatty(STDERR_FILENO) != 0) {
      [[maybe_unused]] const auto written =
          ::write(STDERR_FILENO, kClearLine.data(), kClearLine.size());
    }
    std::signal(signal, SIG_DFL);
    std::raise(signal);
  }

  void (*const before_)(int);
};

/// The progress of an upload; shared with the session, which may still report after the end.
struct UploadState {
  std::atomic<std::int64_t> sent = 0, expected = 0;
};

}  // namespace

std::shared_ptr<ServerOptions> addServerOptions(CLI::App& command) {
  auto options = std::make_shared<ServerOptions>();
  command
      .add_option("--server", options->server,
                  "Base URL of a web service, as `ombrix serve` prints it")
      ->type_name("URL")
      ->envname("OMBRIX_SERVER");
  command
      .add_option("--endpoint", options->endpoint,
                  "The environment; development with --server, else production")
      ->check(CLI::IsMember({"production", "staging", "development"}));
  command.add_option("--token", options->token, "Bearer token to send")->envname("OMBRIX_TOKEN");
  command
      .add_option(
          "--login", options->login,
          "Sign in first; @FILE reads it from a file, so that it shows in no list of programs")
      ->type_name("EMAIL:PASSWORD")
      ->envname("OMBRIX_LOGIN");
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
  if (client().baseHost().ends_with(".example")) {
    throw CommandFailure(
        "no web service is named: use --server URL or OMBRIX_SERVER (`ombrix serve` runs one)");
  }
  if (!options.token.empty()) client().setJwtToken(options.token);
  if (!options.login.empty()) signIn(options.login);
}

Data fetch(std::string_view path) { return wait(client().dataPublisher(path, HTTPMethod::GET)); }

JSON post(std::string_view path, Data document) {
  const Data body =
      wait(client().dataPublisher(path, HTTPMethod::POST, false, HTTPPayload(std::move(document))));
  return body.empty() ? JSON() : JSON::parse(body);
}

HTTPAnswer uploadFile(const std::string& file, std::string_view path, const std::string& method,
                      platform::HTTPHeaders headers, bool isVerbose) {
  const auto state = std::make_shared<UploadState>();
  RequestOptions options{.headers = std::move(headers),
                         .progress = [state](const HTTPProgress& progress) {
                           state->sent = progress.bytesSent;
                           state->expected = progress.bytesExpectedToSend;
                         }};
  const auto verb = *platform::fromRawValue<HTTPMethod>(method);
  const auto upload = client().upload(path, file, verb, std::move(options)).start();
  auto answer = std::async(std::launch::async, [upload]() -> OmbrixServerAPI::Result<HTTPAnswer> {
    try {
      return upload.get();
    } catch (const HTTPError& error) {
      return std::unexpected(error);
    } catch (const platform::CancellationError&) {
      return std::unexpected(
          HTTPError(platform::URLError(platform::URLError::Code::cannotConnectToHost,
                                       "the server did not take the file within half a minute")));
    }
  });
  {
    const CleanInterruption interruption;
    ProgressBar bar(text("Uploading"));
    // The session itself would wait a day for a network.
    Patience patience(kConnectionTimeout, std::chrono::steady_clock::now());
    while (answer.wait_for(kBarInterval) != std::future_status::ready) {
      bar.show(static_cast<std::size_t>(state->sent), static_cast<std::size_t>(state->expected));
      if (patience.isOver(state->sent, std::chrono::steady_clock::now())) upload.cancel();
    }
  }
  auto result = answer.get();
  if (!result) {
    printRefusal(result.error(), isVerbose);
    throw CommandFailure(failureText(result.error()));
  }
  return *std::move(result);
}

}  // namespace ombrix::hostapp
