#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Examples/HostApp/Commands/Commands.hpp"
#include "Examples/HostApp/Files/WholeFile.hpp"
#include "Examples/HostApp/Service/Server.hpp"
#include "Examples/HostApp/Terminal/JSONText.hpp"
#include "OmbrixCore/Networking/OmbrixServerAPI.hpp"
#include "OmbrixPlatform/Network/URLCache.hpp"
#include "OmbrixPlatform/Network/URLOrigin.hpp"

namespace ombrix::hostapp {
namespace {

using platform::Data;
using HTTPMethod = HttpRequestOperation::HTTPMethod;
using Metrics = platform::URLSessionTaskMetrics;

struct RequestOptions {
  std::string path, method;
  std::optional<std::string> data;
  std::vector<std::string> headers;
  bool noCache = false, cacheOnly = false, raw = false, verbose = false;
};

/// A request that keeps what its callback is not told: head and timings of the answer.
class WatchedRequest final : public OmbrixAPIHttpRequestOperation {
 public:
  using OmbrixAPIHttpRequestOperation::OmbrixAPIHttpRequestOperation;

  struct Watched {
    int status = 0;
    std::string version;
    platform::HTTPHeaders headers;
    Metrics metrics;
  };
  [[nodiscard]] const std::optional<Watched>& watched() const { return watched_; }

  void handle(const platform::HTTPURLResponse& response, const platform::Error* error,
              std::optional<platform::JSON> json, std::optional<Data> data) override {
    const auto running = task();
    watched_ = {response.statusCode(), response.httpVersion(), response.headers(),
                running ? running->metrics() : Metrics()};
    OmbrixAPIHttpRequestOperation::handle(response, error, std::move(json), std::move(data));
  }

 private:
  std::optional<Watched> watched_;
};

const char* sourceText(Metrics::FetchType type) {
  switch (type) {
    case Metrics::FetchType::networkLoad:
      return "from the network";
    case Metrics::FetchType::localCache:
      return "from the cache";
    case Metrics::FetchType::validated:
      return "from the cache, validated by the server";
    case Metrics::FetchType::unknown:
      break;
  }
  return "from an unknown source";
}

double milliseconds(Metrics::Seconds span) { return span.count() * 1000; }

void printRequest(const platform::URLRequest& request) {
  fmt::print(stderr, "> {} {}\n", request.httpMethod,
             platform::withoutUserInfo(request.url).absoluteString());
  for (const auto& [name, value] : request.headers) {
    const bool isSecret = platform::headerNamesEqual(name, "Authorization");
    fmt::print(stderr, "> {}: {}\n", name, isSecret ? "(hidden)" : value);
  }
}

void printAnswer(const WatchedRequest::Watched& answer, bool isVerbose) {
  fmt::print(stderr, "{} {}, {} in {:.1f} ms\n", answer.version, answer.status,
             sourceText(answer.metrics.fetchType), milliseconds(answer.metrics.total));
  if (!isVerbose) return;
  for (const auto& [name, value] : answer.headers) {
    const bool isSecret = platform::headerNamesEqual(name, "Authorization");
    fmt::print(stderr, "< {}: {}\n", name, isSecret ? "(hidden)" : value);
  }
  const Metrics& metrics = answer.metrics;
  fmt::print(stderr,
             "waited {:.1f} ms, name {:.1f} ms, connection {:.1f} ms, TLS {:.1f} ms, "
             "first byte {:.1f} ms, total {:.1f} ms{}{}\n",
             milliseconds(metrics.waiting), milliseconds(metrics.nameLookup),
             milliseconds(metrics.connecting), milliseconds(metrics.secureConnection),
             milliseconds(metrics.firstByte), milliseconds(metrics.total),
             metrics.isReusedConnection ? ", connection reused" : "",
             metrics.redirectCount > 0 ? fmt::format(", {} redirects", metrics.redirectCount) : "");
}

void printBody(const Data& body, bool isRaw) {
  std::string text(platform::textOf(body));
  if (!isRaw) {
    try {
      text = indented(platform::JSON::parse(body));
    } catch (const platform::JSONError&) {
      // No document: shown as it came.
    }
  }
  std::fwrite(text.data(), 1, text.size(), stdout);
  if (!isRaw && !text.empty() && !text.ends_with('\n')) std::fputc('\n', stdout);
}

platform::HTTPHeaders headersOf(const std::vector<std::string>& lines) {
  platform::HTTPHeaders headers;
  for (const std::string& line : lines) {
    const auto colon = line.find(':');
    const auto start = line.find_first_not_of(' ', colon == std::string::npos ? colon : colon + 1);
    if (colon == std::string::npos || !platform::HTTPHeaders::isName(line.substr(0, colon))) {
      throw CLI::ValidationError("--header",
                                 fmt::format("{:?} is not of the form \"Name: value\"", line));
    }
    headers.set(line.substr(0, colon), start == std::string::npos ? "" : line.substr(start));
  }
  return headers;
}

std::shared_ptr<WatchedRequest> makeRequest(const RequestOptions& options,
                                            HttpRequestOperation::Callback callback) {
  auto& client = OmbrixServerAPI::sharedInstance();
  const auto url = platform::URL::parse(options.path, client.endpoint());
  if (!url) throw CLI::ValidationError("PATH", fmt::format("{:?} is not a path", options.path));
  const auto method = !options.method.empty() ? options.method : options.data ? "POST" : "GET";
  auto request = std::make_shared<WatchedRequest>(*url, *platform::fromRawValue<HTTPMethod>(method),
                                                  headersOf(options.headers), std::move(callback),
                                                  client.session());
  if (options.data && options.data->starts_with('@')) {
    request->setPayload(HTTPPayload(readWholeFile(options.data->substr(1))));
  } else if (options.data) {
    request->setPayload(HTTPPayload(platform::dataFrom(*options.data)));
  }
  request->setDisableCashe(options.noCache);
  request->setCacheOnly(options.cacheOnly);
  return request;
}

void run(const RequestOptions& options) {
  struct Ended {
    bool isSuccess;
    int code;
    Data body;
  };
  std::promise<Ended> promise;
  const auto request =
      makeRequest(options, [&](bool isSuccess, int code, const platform::JSON*, const Data* data) {
        promise.set_value({isSuccess, code, data != nullptr ? *data : Data()});
      });
  if (options.verbose) {
    if (const auto built = request->buildRequest()) printRequest(*built);
  }
  OmbrixServerAPI::sharedInstance().addOperation(request);
  const Ended ended = promise.get_future().get();
  if (request->watched()) printAnswer(*request->watched(), options.verbose);
  printBody(ended.body, options.raw);
  // The cache writes behind; this process ends at once.
  OmbrixServerAPI::sharedInstance().session()->configuration().urlCache->flush();
  if (ended.isSuccess) return;
  std::fflush(stdout);
  const auto error = HTTPError::withStatusCode(ended.code, platform::DataView(ended.body));
  auto message = OmbrixServerAPI::errorMessageForError(&error);
  if (!request->watched()) message += "\nThere was no answer; `ombrix log` tells why.";
  throw CommandFailure(message);
}

}  // namespace

void addRequestCommand(CLI::App& app) {
  const auto options = std::make_shared<RequestOptions>();
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
  };
  const auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("upload", "Uploads a file to the web service");
  command->add_option("FILE", options->file, "What to send")->required();
  command->add_option("PATH", options->path, "Where to, below the base URL")->required();
  command->add_option("--method", options->method, "PUT or POST")
      ->check(CLI::IsMember({"PUT", "POST"}))
      ->capture_default_str();
  const auto server = addServerOptions(*command);
  command->callback([options, server] {
    connect(*server);
    printBody(upload(options->file, options->path, options->method), false);
  });
}

}  // namespace ombrix::hostapp
