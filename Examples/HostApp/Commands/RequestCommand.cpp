#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Examples/HostApp/Commands/Commands.hpp"
#include "Examples/HostApp/Files/WholeFile.hpp"
#include "Examples/HostApp/Service/Exchange.hpp"
#include "Examples/HostApp/Service/Server.hpp"
#include "Examples/HostApp/Terminal/JSONText.hpp"
#include "OmbrixCore/Networking/OmbrixServerAPI.hpp"
#include "OmbrixPlatform/Network/URLCache.hpp"
#include "OmbrixPlatform/Network/URLOrigin.hpp"

namespace ombrix::hostapp {
namespace {

using platform::Data;
using HTTPMethod = HttpRequestOperation::HTTPMethod;

struct Asked {
  std::string path, method;
  std::optional<std::string> data;
  std::vector<std::string> headers;
  bool noCache = false, cacheOnly = false, raw = false, verbose = false;
};

void printBody(const Data& body, bool isRaw) {
  std::string text(platform::textOf(body));
  if (!isRaw) {
    try {
      text = indented(platform::JSON::parse(body));
    } catch (const platform::JSONError&) {
      // It is not a JSON document: shown as it came.
    }
  }
  std::fwrite(text.data(), 1, text.size(), stdout);
  if (!isRaw && !text.empty() && !text.ends_with('\n')) std::fputc('\n', stdout);
}

std::shared_ptr<OmbrixAPIHttpRequestOperation> makeRequest(
    const Asked& asked, HttpRequestOperation::Callback callback) {
  auto& client = OmbrixServerAPI::sharedInstance();
  const auto url = platform::URL::parse(asked.path, client.endpoint());
  if (!url) throw CLI::ValidationError("PATH", fmt::format("{:?} is not a path", asked.path));
  const auto method = !asked.method.empty() ? asked.method : asked.data ? "POST" : "GET";
  auto request = std::make_shared<OmbrixAPIHttpRequestOperation>(
      *url, *platform::fromRawValue<HTTPMethod>(method), platform::HTTPHeaders(),
      std::move(callback), client.session());
  if (asked.data && asked.data->starts_with('@')) {
    request->setPayload(HTTPPayload(readWholeFile(asked.data->substr(1))));
  } else if (asked.data) {
    request->setPayload(HTTPPayload(platform::dataFrom(*asked.data)));
  }
  request->setDisableCashe(asked.noCache);
  request->setCacheOnly(asked.cacheOnly);
  request->setOptions({.headers = headersOf(asked.headers)});
  return request;
}

/// Says so when an answer takes long: the wait for a server that cannot be reached lasts half a
/// minute.
template <class Value>
void sayWhatIsWaitedFor(const std::future<Value>& answer, const platform::URL& url) {
  constexpr std::chrono::seconds kSilence{2};
  if (answer.wait_for(kSilence) == std::future_status::ready) return;
  fmt::print(stderr, "waiting for {}, half a minute at the most …\n", url.host().value_or(""));
}

void run(const Asked& asked) {
  struct Ended {
    bool isSuccess;
    int code;
    Data body;
  };
  std::promise<Ended> promise;
  const auto request =
      makeRequest(asked, [&](bool isSuccess, int code, const platform::JSON*, const Data* data) {
        promise.set_value({isSuccess, code, data != nullptr ? *data : Data()});
      });
  if (asked.verbose) {
    if (const auto sent = request->requestToSend()) printRequest(*sent);
  }
  OmbrixServerAPI::sharedInstance().addOperation(request);
  auto answer = promise.get_future();
  sayWhatIsWaitedFor(answer, request->url());
  Ended ended = answer.get();
  const HTTPExchange exchange = request->exchange();
  if (exchange.response) printAnswer(*exchange.response, exchange.metrics, asked.verbose);
  printBody(ended.body, asked.raw);
  // The cache writes later, but this process ends at once.
  OmbrixServerAPI::sharedInstance().session()->configuration().urlCache->flush();
  if (ended.isSuccess) return;
  std::fflush(stdout);
  const auto error = HTTPError::withStatusCode(ended.code, platform::DataView(ended.body));
  throw CommandFailure(failureText(error.causedBy({.code = ended.code,
                                                   .response = exchange.response,
                                                   .body = std::move(ended.body),
                                                   .transportError = exchange.error})));
}

}  // namespace

void addRequestCommand(CLI::App& app) {
  const auto options = std::make_shared<Asked>();
  CLI::App* command = app.add_subcommand("request", "Sends a request to the web service");
  command->add_option("PATH", options->path, "Below the base URL, or a whole URL")->required();
  command->add_option("--method", options->method, "GET; POST when there is data")
      ->check(CLI::IsMember({"OPTIONS", "GET", "HEAD", "POST", "PUT", "PATCH", "DELETE"}));
  command->add_option("--data", options->data, "JSON to send, or @FILE");
  command->add_option("--header", options->headers, "\"Name: value\"; again for more")
      ->take_all()
      ->expected(1);
  auto* noCache = command->add_flag("--no-cache", options->noCache, "Do not use cached answers");
  command->add_flag("--cache-only", options->cacheOnly, "Use a cached answer only, however old")
      ->excludes(noCache);
  command->add_flag("--raw", options->raw, "Print the body's bytes as they are");
  command->add_flag("-v,--verbose", options->verbose, "Print header fields and timings, too");
  const auto server = addServerOptions(*command);
  command->footer(
      "The body goes to standard output, the rest to standard error.\n"
      "Try it: ombrix serve, and in another shell\n"
      "  ombrix request resorts --server https://api.ombrix.test:PORT/");
  command->callback([options, server] {
    connect(*server);
    run(*options);
  });
}

void addUploadCommand(CLI::App& app) {
  struct Options {
    std::string file, path, method = "PUT";
    std::vector<std::string> headers;
    bool verbose = false;
  };
  const auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("upload", "Uploads a file to the web service");
  command->add_option("FILE", options->file, "What to send")->required();
  command->add_option("PATH", options->path, "Where to, below the base URL")->required();
  command->add_option("--method", options->method, "PUT or POST")
      ->check(CLI::IsMember({"PUT", "POST"}))
      ->capture_default_str();
  command->add_option("--header", options->headers, "\"Name: value\"; again for more")
      ->take_all()
      ->expected(1);
  command->add_flag("-v,--verbose", options->verbose, "Print header fields and timings, too");
  const auto server = addServerOptions(*command);
  command->callback([options, server] {
    connect(*server);
    if (options->verbose) {
      const Asked asked{
          .path = options->path, .method = options->method, .headers = options->headers};
      if (const auto sent = makeRequest(asked, nullptr)->requestToSend()) printRequest(*sent);
    }
    const auto answer = uploadFile(options->file, options->path, options->method,
                                   headersOf(options->headers), options->verbose);
    if (answer.response) printAnswer(*answer.response, answer.metrics, options->verbose);
    printBody(answer.data, false);
  });
}

}  // namespace ombrix::hostapp
