#include <algorithm>
#include <charconv>
#include <string>
#include <utility>

#include "OmbrixPlatform/Coding/JSON.hpp"
#include "OmbrixPlatform/Text/UTF8.hpp"
#include "Tools/DevServer/HTTP/Compression.hpp"
#include "Tools/DevServer/Routes/Routes.hpp"
#include "Tools/DevServer/Service/ServerCore.hpp"

namespace ombrix::devserver {
namespace {

using platform::JSON;

constexpr std::uint64_t kMostAnswerBytes = std::uint64_t{256} * 1024 * 1024;

int statusOf(std::string_view text, int fallback) {
  int status = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), status);
  const bool isOne = error == std::errc{} && end == text.data() + text.size();
  return isOne && status >= 200 && status <= 999 ? status : fallback;
}

/// Letters in a pattern, so that a missing piece is visible.
std::string filler(const Request& request, std::uint64_t fallback) {
  const std::uint64_t count = request.query.number("bytes").value_or(fallback);
  std::string text(static_cast<std::size_t>(std::min(count, kMostAnswerBytes)), '\0');
  for (std::size_t i = 0; i < text.size(); ++i) text[i] = static_cast<char>('a' + i % 26);
  return text;
}

Response echo(const Request& request) {
  JSON::Array headers, query;
  for (const auto& [name, value] : request.headers) headers.push_back(JSON::Array{name, value});
  for (const auto& [name, value] : request.query) query.push_back(JSON::Array{name, value});
  JSON::Dictionary told{{"method", request.method},      {"target", request.target},
                        {"path", request.path},          {"query", std::move(query)},
                        {"headers", std::move(headers)}, {"body", request.body}};
  try {
    return Response::json(told);
  } catch (const platform::JSONError&) {  // the body is not text
    told.set("body", nullptr);
    told.set("bodyBytes", request.body.size());
    return Response::json(told);
  }
}

Response status(const Request& request) {
  const int status = statusOf(request.rest, 0);
  if (status == 0) return Response::message(400, "A status has three digits, from 200.");
  const std::string* body = request.query.find("body");
  Response response = body != nullptr
                          ? Response::text(*body, status, "application/json")
                          : Response::json(JSON::Dictionary{{"status", status}}, status);
  addAskedHeaders(response, request);
  return response;
}

Response redirect(const Request& request) {
  Response response;
  response.status = statusOf(request.query.value("status"), 302);
  response.headers.add("Location", std::string(request.query.value("to")));
  addAskedHeaders(response, request);
  return response;
}

Response bytes(const Request& request) {
  Response response = Response::text(filler(request, 1024), 200, "application/octet-stream");
  response.isChunked = request.query.find("chunked") != nullptr;
  addAskedHeaders(response, request);
  return response;
}

// Waits before the head, then sends the body, in pieces if "every" asks for pauses.
Response slow(const Request& request) {
  const std::chrono::milliseconds before(request.query.number("ms").value_or(0));
  const std::chrono::milliseconds every(request.query.number("every").value_or(0));
  const std::size_t piece = std::max<std::size_t>(1, request.query.number("piece").value_or(1));
  const Response response = Response::text(filler(request, 1024), 200, "application/octet-stream");
  Script script{Wait{before}};
  const bool hasBody = request.method != "HEAD";
  if (every.count() == 0 || !hasBody) {
    script.emplace_back(Send{response.bytes(!hasBody)});
    return Response::following(std::move(script));
  }
  script.emplace_back(Send{response.bytes(true)});
  for (std::size_t i = 0; i < response.body.size(); i += piece) {
    script.emplace_back(Send{response.body.substr(i, piece)});
    script.emplace_back(Wait{every});
  }
  return Response::following(std::move(script));
}

Response packed(const Request& request, Compression how) {
  const std::string* body = request.query.find("body");
  const std::string text =
      body != nullptr ? *body
                      : std::string(platform::textOf(
                            JSON(JSON::Dictionary{{"text", filler(request, 10'000)}}).rawData()));
  Response response = Response::text(compressed(text, how), 200, "application/json");
  response.headers.add("Content-Encoding", how == Compression::gzip ? "gzip" : "deflate");
  response.headers.add("Vary", "Accept-Encoding");
  response.isChunked = request.query.find("chunked") != nullptr;
  addAskedHeaders(response, request);
  return response;
}

}  // namespace

void addAskedHeaders(Response& response, const Request& request) {
  for (const std::string_view asked : request.query.values("header")) {
    const std::size_t colon = std::min(asked.find(':'), asked.size());
    if (colon == asked.size()) continue;
    response.headers.add(std::string(asked.substr(0, colon)),
                         std::string(trimmed(asked.substr(colon + 1))));
  }
}

void addAnswerRoutes(ServerCore& core) {
  Router& router = core.router;
  router.add("*", "/echo", Access::open, echo);
  router.add("*", "/echo/*", Access::open, echo);
  router.add("*", "/private/echo", Access::needsToken, echo);
  router.add("*", "/status/*", Access::open, status);
  router.add("*", "/private/status/*", Access::needsToken, status);
  router.add("*", "/redirect", Access::open, redirect);
  router.add("*", "/redirect-loop", Access::open, [](const Request&) {
    Response response;
    response.status = 302;
    response.headers.add("Location", "/redirect-loop");
    return response;
  });
  router.add("GET", "/bytes", Access::open, bytes);
  router.add("*", "/slow", Access::open, slow);
  router.add("GET", "/gzip", Access::open,
             [](const Request& request) { return packed(request, Compression::gzip); });
  router.add("GET", "/deflate", Access::open, [](const Request& request) {
    const bool isBare = request.query.find("bare") != nullptr;
    return packed(request, isBare ? Compression::bareDeflate : Compression::zlib);
  });
  router.add("GET", "/json-charset", Access::open, [](const Request&) {
    return Response::text(R"({"text":"Großkogel"})", 200, "application/json; charset=utf-8");
  });
}

}  // namespace ombrix::devserver
