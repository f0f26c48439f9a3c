#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "OmbrixPlatform/Coding/JSON.hpp"
#include "Tools/DevServer/Routes/Routes.hpp"
#include "Tools/DevServer/Service/ServerCore.hpp"

namespace ombrix::devserver {
namespace {

using platform::JSON;

// The query items that are copied to the header fields of the answer.
constexpr std::pair<const char*, const char*> kCopied[] = {
    {"cache-control", "Cache-Control"},
    {"etag", "ETag"},
    {"age", "Age"},
    {"vary", "Vary"},
    {"pragma", "Pragma"},
    {"location", "Location"},
    {"content-location", "Content-Location"},
};
constexpr std::pair<const char*, const char*> kDates[] = {
    {"last-modified", "Last-Modified"},
    {"expires", "Expires"},
    {"date", "Date"},
};

/// Converts seconds from now ("-3600", "+60") into a date; any other text stays as it is.
std::string dateText(const std::string& text) {
  if (text.empty() || (text[0] != '-' && text[0] != '+')) return text;
  char* end = nullptr;
  const long seconds = std::strtol(text.c_str(), &end, 10);
  if (*end != '\0') return text;
  return httpDate(std::chrono::system_clock::now() + std::chrono::seconds(seconds));
}

std::string_view withoutWeakness(std::string_view tag) {
  return tag.starts_with("W/") ? tag.substr(2) : tag;
}

bool anyTagMatches(std::string_view list, std::string_view tag) {
  if (trimmed(list) == "*") return true;
  while (!list.empty()) {
    const std::size_t end = std::min(list.find(','), list.size());
    if (withoutWeakness(trimmed(list.substr(0, end))) == withoutWeakness(tag)) return true;
    list.remove_prefix(std::min(end + 1, list.size()));
  }
  return false;
}

/// Whether the client's copy is still valid.
bool isUnchanged(const Request& request, const Fields& answer) {
  if (request.method != "GET" && request.method != "HEAD") return false;
  const std::string* tag = answer.find("ETag");
  if (const std::string* tags = request.headers.find("If-None-Match")) {
    return tag != nullptr && anyTagMatches(*tags, *tag);
  }
  const std::string* since = request.headers.find("If-Modified-Since");
  return since != nullptr && *since == answer.value("Last-Modified");
}

/// The answers under /cache: as their query requests, with the changes set for their path.
class CachedAnswers {
 public:
  Response answer(const Request& request) {
    State& state = states_[request.path];
    const auto asked = [&](const char* name) {
      const std::string* set = state.changes.find(name);
      return set != nullptr ? set : request.query.find(name);
    };
    Fields headers;
    for (const auto& [item, field] : kCopied) {
      const std::string* value = asked(item);
      if (value != nullptr) headers.add(field, *value);
    }
    for (const auto& [item, field] : kDates) {
      const std::string* value = asked(item);
      if (value != nullptr) headers.add(field, dateText(*value));
    }
    Response response;
    if (isUnchanged(request, headers)) {
      response.status = 304;
    } else {
      response = fresh(state, asked("status"), asked("bytes"));
      response.isChunked = asked("chunked") != nullptr;
    }
    for (const auto& [name, value] : headers) response.headers.add(name, value);
    addAskedHeaders(response, request);
    for (const auto value : state.changes.values("header")) {
      Request change;
      change.query.add("header", std::string(value));
      addAskedHeaders(response, change);
    }
    return response;
  }

  void change(const std::string& path, Fields changes) {
    states_[path].changes = std::move(changes);
  }

 private:
  struct State {
    std::uint64_t answers = 0;
    Fields changes;
  };

  // The body counts the answers of a path, so that a client sees which one it has.
  static Response fresh(State& state, const std::string* status, const std::string* bytes) {
    JSON::Dictionary body{{"answer", ++state.answers}};
    Fields numbers;
    numbers.add("status", status != nullptr ? *status : "200");
    numbers.add("bytes", bytes != nullptr ? *bytes : "0");
    const auto padding = static_cast<std::size_t>(numbers.number("bytes").value_or(0));
    if (padding > 0) body.set("padding", std::string(padding, '.'));
    return Response::json(body, static_cast<int>(numbers.number("status").value_or(200)));
  }

  std::map<std::string, State> states_;
};

}  // namespace

void addCacheRoutes(ServerCore& core) {
  const auto answers = std::make_shared<CachedAnswers>();
  const auto answer = [answers](const Request& request) { return answers->answer(request); };
  core.router.add("*", "/cache", Access::open, answer);
  core.router.add("*", "/cache/*", Access::open, answer);
  core.router.add("*", "/private/cache/*", Access::needsToken, answer);
  core.router.add("PUT", "/admin/answers/*", Access::open, [answers](const Request& request) {
    answers->change("/" + request.rest, request.query);
    return Response::message(200, "Set.");
  });
}

}  // namespace ombrix::devserver
