#include <atomic>
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

constexpr std::size_t kShortestPasswordLetters = 6;

/// The errors of a validation by field, in the order of the checks.
class Validation {
 public:
  void complain(const std::string& field, std::string_view message) {
    JSON* there = errors_.find(field);
    if (there == nullptr) there = &errors_.set(field, JSON::Array{});
    there->array()->emplace_back(message);
  }
  [[nodiscard]] bool isPassed() const { return errors_.empty(); }
  [[nodiscard]] Response response() const {
    return Response::json(
        JSON::Dictionary{{"message", "The given data was invalid."}, {"errors", errors_}}, 422);
  }

 private:
  JSON::Dictionary errors_;
};

Response login(ServerCore& core, const Request& request) {
  JSON body;
  try {
    body = JSON::parse(request.body);
  } catch (const platform::JSONError& error) {
    return Response::message(400, error.what());
  }
  Validation validation;
  for (const char* field : {"email", "password"}) {
    if (body[field].string() == nullptr) validation.complain(field, "This field is required.");
  }
  if (!validation.isPassed()) return validation.response();
  const auto token = core.sessions.login(*body["email"].string(), *body["password"].string());
  if (!token) return Response::message(401, "The address or the password is wrong.");
  Response response = Response::json(JSON::Dictionary{{"token", *token}});
  response.headers.add("Authorization", "Bearer " + *token);
  return response;
}

// Checks the fields in the order name, email, password, which is the order of the errors.
Response addAccount(ServerCore& core, const Request& request) {
  JSON body;
  try {
    body = JSON::parse(request.body);
  } catch (const platform::JSONError& error) {
    return Response::message(400, error.what());
  }
  const std::string name = body["name"].stringValue(), email = body["email"].stringValue(),
                    password = body["password"].stringValue();
  Validation validation;
  if (name.empty()) validation.complain("name", "The name is missing.");
  if (email.find('@') == std::string::npos) {
    validation.complain("email", "The email must be a valid address.");
  }
  if (core.sessions.isTaken(email)) validation.complain("email", "The email is taken.");
  if (password.size() < kShortestPasswordLetters) {
    validation.complain("password", "The password is too short.");
  }
  if (password.find_first_of("0123456789") == std::string::npos) {
    validation.complain("password", "The password needs a digit.");
  }
  if (!validation.isPassed()) return validation.response();
  core.sessions.addAccount(email, password);
  return Response::json(JSON::Dictionary{{"name", name}, {"email", email}}, 201);
}

// Allows some requests, refuses the next ones, and starts over; each key has its own count.
class RateLimit {
 public:
  Response answer(const Request& request) {
    const std::uint64_t allowed = request.query.number("allow").value_or(3);
    const std::uint64_t refused = request.query.number("refuse").value_or(1);
    std::uint64_t& count = counts_[std::string(request.query.value("key"))];
    const std::uint64_t place = allowed + refused == 0 ? 0 : count++ % (allowed + refused);
    if (place < allowed)
      return Response::json(JSON::Dictionary{{"remaining", allowed - place - 1}});
    Response response = Response::message(429, "Too many requests.");
    response.headers.add("Retry-After",
                         std::to_string(request.query.number("retry-after").value_or(1)));
    return response;
  }

 private:
  std::map<std::string, std::uint64_t> counts_;
};

}  // namespace

void addAccountRoutes(ServerCore& core) {
  core.router.add("POST", "/login", Access::open,
                  [&core](const Request& request) { return login(core, request); });
  core.router.add("POST", "/account", Access::open,
                  [&core](const Request& request) { return addAccount(core, request); });
  core.router.add("GET", "/account", Access::needsToken, [&core](const Request&) {
    return Response::json(JSON::Dictionary{{"email", core.options.email}});
  });
  core.router.add("*", "/invalid", Access::open, [](const Request& request) {
    Validation validation;
    for (const auto& [field, message] : request.query) validation.complain(field, message);
    return validation.response();
  });
  core.router.add("*", "/rate-limit", Access::open,
                  [limit = std::make_shared<RateLimit>()](const Request& request) {
                    return limit->answer(request);
                  });
}

}  // namespace ombrix::devserver
