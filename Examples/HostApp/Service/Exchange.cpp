#include "Examples/HostApp/Service/Exchange.hpp"

#include <fmt/format.h>
#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <cstdio>

#include "OmbrixCore/Networking/OmbrixServerAPI.hpp"
#include "OmbrixPlatform/Coding/JSON.hpp"
#include "OmbrixPlatform/Text/UTF8.hpp"

namespace ombrix::hostapp {
namespace {

using Metrics = platform::URLSessionTaskMetrics;
using platform::URLError;

constexpr int kTooLong = 413;
// The longest text of a server that is shown: a sentence, not a page.
constexpr std::size_t kLongestMessage = 500;
constexpr std::size_t kLongestField = 8'192;

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

std::string shownURL(const platform::URL& url) {
  std::string text = url.absoluteString();
  if (const auto info = url.userInfo()) text.replace(text.find(*info), info->size(), "(hidden)");
  return text;
}

/// A server's text for a terminal: cut after a whole character, and without control characters.
std::string shownText(std::string_view text, std::size_t longest) {
  const std::string whole = platform::stringFromUTF8Repaired(platform::bytesOf(text));
  std::string shown;
  for (std::size_t at = 0; at < whole.size();) {
    const auto lead = static_cast<unsigned char>(whole[at]);
    const std::size_t size = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    if (at + size > longest) return shown += "…";
    const auto last = static_cast<unsigned char>(whole[at + size - 1]);
    const bool isC1 = lead == 0xC2 && last < 0xA0;
    const bool isControl = (lead < 0x20 && lead != '\n') || lead == 0x7F || isC1;
    shown += isControl ? "\uFFFD" : whole.substr(at, size);
    at += size;
  }
  return shown;
}

/// The server's explanation of a failure, if it is in our service's form.
std::string messageIn(platform::DataView body) {
  try {
    const auto json = platform::JSON::parse(body);
    const auto* message = json["message"].string();
    return message == nullptr ? std::string() : *message;
  } catch (const platform::JSONError&) {
    return {};
  }
}

/// Whether a request failed because of the user's file, without any server's part.
bool isOfFile(const URLError& error) {
  using enum URLError::Code;
  return error.code() == fileDoesNotExist || error.code() == fileIsDirectory ||
         error.code() == noPermissionsToReadFile;
}

void printFields(const platform::HTTPURLResponse& response) {
  for (const auto& [name, value] : response.headers()) {
    fmt::print(stderr, "< {}: {}\n", name, shownText(shownValue(name, value), kLongestField));
  }
}

/// Whether this process's memory limit is too low for TLS and its threads. When memory is short,
/// failures name other causes: files that cannot be read, answers that do not come.
bool isMemoryScarce() {
  constexpr rlim_t kEnough = rlim_t{1} << 30;
  rlimit limit{};
  return ::getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_cur < kEnough;
}

const char* whatToDo(const HTTPError& error) {
  if (const auto* transport = error.underlyingError()) {
    switch (transport->code()) {
      case URLError::Code::cannotConnectToHost:
        return "Is the server running? `ombrix serve` runs one here.";
      case URLError::Code::cannotFindHost:
      case URLError::Code::dnsLookupFailed:
        return "Is the name of the server right? See --server.";
      case URLError::Code::serverCertificateUntrusted:
      case URLError::Code::serverCertificateHasUnknownRoot:
        return "The server's certificate is not one that this machine trusts.";
      default:
        return isMemoryScarce()
                   ? "Little memory is allowed here (ulimit -v): that may be the cause."
                   : nullptr;
    }
  }
  return error.cause() != nullptr && error.cause()->code == kTooLong
             ? "The server takes no body of that length."
             : nullptr;
}

}  // namespace

platform::HTTPHeaders headersOf(const std::vector<std::string>& lines) {
  platform::HTTPHeaders headers;
  for (const std::string& line : lines) {
    const auto colon = line.find(':');
    const auto start = line.find_first_not_of(' ', colon == std::string::npos ? colon : colon + 1);
    const auto name = line.substr(0, colon);
    if (colon == std::string::npos || !platform::HTTPHeaders::isName(name)) {
      throw CLI::ValidationError("--header",
                                 fmt::format("{:?} is not of the form \"Name: value\"", line));
    }
    if (platform::headerNamesEqual(name, "Authorization")) {
      throw CLI::ValidationError("--header", "the token is set by --token or --login");
    }
    headers.add(name, start == std::string::npos ? "" : line.substr(start));
  }
  return headers;
}

std::string shownValue(std::string_view name, std::string_view value) {
  using platform::headerNamesEqual;
  if (headerNamesEqual(name, "Authorization") || headerNamesEqual(name, "Proxy-Authorization")) {
    const auto blank = value.find(' ');
    const auto kind = blank == std::string_view::npos ? "Token" : value.substr(0, blank);
    return fmt::format("({}, {} characters)", kind,
                       value.size() - (blank == std::string_view::npos ? 0 : blank + 1));
  }
  if (headerNamesEqual(name, "Cookie") || headerNamesEqual(name, "Set-Cookie")) {
    return fmt::format("(cookie, {} characters)", value.size());
  }
  return std::string(value);
}

void printRequest(const platform::URLRequest& request) {
  fmt::print(stderr, "> {} {}\n", request.httpMethod, shownURL(request.url));
  for (const auto& [name, value] : request.headers) {
    fmt::print(stderr, "> {}: {}\n", name, shownValue(name, value));
  }
}

void printAnswer(const platform::HTTPURLResponse& response, const HTTPMetrics& metrics,
                 bool isVerbose) {
  fmt::print(stderr, "{} {}, {} in {:.1f} ms\n", response.httpVersion(), response.statusCode(),
             sourceText(metrics.fetchType), milliseconds(metrics.total));
  if (!isVerbose) return;
  printFields(response);
  fmt::print(stderr,
             "waited {:.1f} ms, name {:.1f} ms, connection {:.1f} ms, TLS {:.1f} ms, "
             "first byte {:.1f} ms, total {:.1f} ms, {} bytes sent, {} received{}{}\n",
             milliseconds(metrics.waiting), milliseconds(metrics.nameLookup),
             milliseconds(metrics.connecting), milliseconds(metrics.secureConnection),
             milliseconds(metrics.firstByte), milliseconds(metrics.total), metrics.bytesSent,
             metrics.bytesReceived, metrics.isReusedConnection ? ", connection reused" : "",
             metrics.redirectCount > 0 ? fmt::format(", {} redirects", metrics.redirectCount) : "");
}

void printRefusal(const HTTPError& error, bool isVerbose) {
  if (error.cause() == nullptr || !error.cause()->response) return;
  const auto& response = *error.cause()->response;
  fmt::print(stderr, "{} {}\n", response.httpVersion(), response.statusCode());
  if (isVerbose) printFields(response);
}

std::string failureText(const HTTPError& error) {
  const auto* local = error.underlyingError();
  if (local != nullptr && isOfFile(*local)) return local->what();
  // The sentence may come from the server as well.
  std::string text = shownText(OmbrixServerAPI::errorMessageForError(&error), kLongestMessage);
  const auto add = [&](std::string_view line) { text.append("\n  ").append(line); };
  if (const auto* transport = error.underlyingError()) add(transport->what());
  if (const auto* cause = error.cause(); cause != nullptr && cause->response) {
    const auto message = messageIn(cause->body);
    if (error.asValidation() == nullptr && !message.empty()) {
      add(fmt::format("The server says: {}", shownText(message, kLongestMessage)));
    }
  }
  if (const char* advice = whatToDo(error)) add(advice);
  return text;
}

}  // namespace ombrix::hostapp
