// Runs requests through a session with a cache, for a test suite that brings its own server and its
// own judgement. Each line of standard input is a request as JSON:
//   {"id": 1, "url": "…", "method": "GET", "headers": [["Name", "value"], …], "body": "…"}
// and each line of standard output an answer, in whatever order they come:
//   {"id": 1, "status": 200, "headers": [["Name", "value"], …], "body": "…"}   or   {"id": 1,
//   "error": "…"}
#include <cstdio>
#include <iostream>
#include <string>

#include "OmbrixPlatform/Coding/JSON.hpp"
#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Network/URLCache.hpp"
#include "OmbrixPlatform/Network/URLSession.hpp"

namespace {

using namespace ombrix::platform;

class Output {
 public:
  void write(const JSON& answer) {
    const Data line = answer.rawData();
    const LockGuard lock(mutex_);
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
  }

 private:
  Mutex mutex_;
};

URLRequest requestOf(const JSON& asked) {
  const auto url = URL::parse(asked["url"].stringValue());
  if (!url) throw Error("no URL: " + asked["url"].stringValue());
  URLRequest request(*url);
  if (const auto* method = asked["method"].string()) request.httpMethod = *method;
  if (const auto* fields = asked["headers"].array()) {
    for (const JSON& field : *fields) {
      request.headers.add(field[0].stringValue(), field[1].stringValue());
    }
  }
  if (const auto* body = asked["body"].string()) request.httpBody = dataFrom(*body);
  return request;
}

JSON answerOf(const JSON& id, const std::optional<Data>& data, const URLResponse* response,
              const Error* error) {
  JSON::Dictionary answer;
  answer.set("id", id);
  const auto* http = dynamic_cast<const HTTPURLResponse*>(response);
  if (http == nullptr) {
    answer.set("error", JSON(error != nullptr ? error->what() : "no answer"));
    return answer;
  }
  JSON::Array fields;
  for (const auto& [name, value] : http->headers()) {
    fields.push_back(JSON(JSON::Array{JSON(name), JSON(value)}));
  }
  answer.set("status", JSON(http->statusCode()));
  answer.set("headers", JSON(std::move(fields)));
  answer.set("body", JSON(std::string(data ? textOf(*data) : std::string_view())));
  return answer;
}

}  // namespace

int main() {
  constexpr std::int64_t kMemoryBytes = 64 << 20;
  auto configuration = URLSessionConfiguration::ephemeral();
  configuration.urlCache = URLCache::make(kMemoryBytes, 0, std::nullopt);
  configuration.httpMaximumConnectionsPerHost = 32;
  const auto session = URLSession::make(configuration);
  const auto output = std::make_shared<Output>();
  for (std::string line; std::getline(std::cin, line);) {
    try {
      const JSON asked = JSON::parse(line);
      session
          ->dataTask(requestOf(asked),
                     [output, id = asked["id"]](const auto& data, const auto& response,
                                                const auto& error) {
                       output->write(answerOf(id, data, response.get(), error.get()));
                     })
          ->resume();
    } catch (const Error& error) {
      std::fprintf(stderr, "cache-suite-driver: %s\n", error.what());
      return 1;
    }
  }
  session->close();
  return 0;
}
