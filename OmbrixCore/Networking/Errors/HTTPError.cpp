#include "OmbrixCore/Networking/Errors/HTTPError.hpp"

#include <fmt/format.h>

#include <array>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Coding/JSON.hpp"
#include "OmbrixPlatform/Coding/JSONDecoder.hpp"

namespace ombrix {
namespace {

constexpr std::array<std::string_view, 17> kCaseNames = {
    "resourceMovedError",
    "validationError",
    "invalidBody",
    "invalidPayload",
    "resourceNotFoundError",
    "resourceDeletedError",
    "networkError",
    "serverError",
    "badRequestError",
    "unauthorizedError",
    "rateLimitError",
    "forbidden",
    "serverOfflineError",
    "networkConstrained",
    "missingBody",
    "unknown",
    "canceled",
};

constexpr std::string_view kDefaultValidationMessage =
    "Something was wrong with the data submitted.";

std::string quoted(std::string_view text) { return fmt::format("\"{}\"", text); }

/// The body of a 422 answer.
struct ErrorResponse {
  std::optional<platform::OrderedDictionary<std::vector<std::string>>> errors;
  std::optional<std::string> message;

  static constexpr auto kCodingFields =
      platform::codingFields(platform::field("errors", &ErrorResponse::errors),
                             platform::field("message", &ErrorResponse::message));
};

ErrorResponse responseFrom(platform::DataView data) {
  try {
    return platform::JSONDecoder().decode<ErrorResponse>(data);
  } catch (const platform::Error&) {
    return {};
  }
}

/// More lenient than the decoder: a value that is not a list has no messages, and an item that is
/// not a text gives one in its JSON form.
ErrorResponse responseFrom(const platform::JSON& json) {
  ErrorResponse response;
  if (const auto* errors = json["errors"].dictionary()) {
    auto& fields = response.errors.emplace();
    for (const auto& [field, messages] : *errors) {
      const auto* list = messages.array();
      if (list != nullptr && !list->empty()) fields.set(field, {list->front().stringValue()});
    }
  }
  if (const auto* message = json["message"].string()) response.message = *message;
  return response;
}

HTTPError validationErrorFrom(const ErrorResponse& response) {
  if (!response.errors) {
    return HTTPError::validationError(
        response.message.value_or(std::string(kDefaultValidationMessage)), {});
  }
  // Kept: of each field the first message counts, and the top-level one is dropped, even when no
  // field has any. Joined with the others it would repeat beside a form what its fields say.
  std::string combined;
  std::map<std::string, std::string> errors;
  for (const auto& [field, messages] : *response.errors) {
    if (messages.empty()) continue;
    if (!combined.empty()) combined += '\n';
    combined += messages.front();
    errors.emplace(field, messages.front());
  }
  return HTTPError::validationError(std::move(combined), std::move(errors));
}

}  // namespace

std::string_view caseName(HTTPError::Case errorCase) noexcept {
  return kCaseNames[static_cast<std::size_t>(errorCase)];
}

HTTPError::HTTPError(Case errorCase, Details details)
    : Error(describe(errorCase, details)), case_(errorCase), details_(std::move(details)) {}

HTTPError::HTTPError(const platform::URLError& error) : HTTPError(caseOf(error.code())) {
  cause_ = std::make_shared<const Cause>(
      Cause{.transportError = std::make_shared<const platform::URLError>(error)});
}

HTTPError HTTPError::causedBy(Cause cause) const {
  HTTPError error = *this;
  error.cause_ = std::make_shared<const Cause>(std::move(cause));
  return error;
}

HTTPError HTTPError::resourceMovedError(std::string replacementID) {
  return HTTPError(Case::resourceMovedError, ResourceMoved{std::move(replacementID)});
}
HTTPError HTTPError::validationError(std::string message,
                                     std::map<std::string, std::string> errors) {
  return HTTPError(Case::validationError, Validation{std::move(message), std::move(errors)});
}
HTTPError HTTPError::invalidBody(platform::DecodingError error) {
  return HTTPError(Case::invalidBody, std::move(error));
}
HTTPError HTTPError::invalidPayload(platform::EncodingError error) {
  return HTTPError(Case::invalidPayload, std::move(error));
}

std::string HTTPError::describe(Case errorCase, const Details& details) {
  const auto name = caseName(errorCase);
  if (const auto* moved = std::get_if<ResourceMoved>(&details)) {
    return fmt::format("{}(replacementID: {})", name, quoted(moved->replacementID));
  }
  if (const auto* validation = std::get_if<Validation>(&details)) {
    std::string errors;
    for (const auto& [field, message] : validation->errors) {
      if (!errors.empty()) errors += ", ";
      errors += quoted(field) + ": " + quoted(message);
    }
    return fmt::format("{}(message: {}, errors: [{}])", name, quoted(validation->message),
                       errors.empty() ? ":" : errors);
  }
  if (const auto* decoding = std::get_if<platform::DecodingError>(&details)) {
    return fmt::format("{}({})", name, decoding->what());
  }
  if (const auto* encoding = std::get_if<platform::EncodingError>(&details)) {
    return fmt::format("{}({})", name, encoding->what());
  }
  return std::string(name);
}

HTTPError::Case HTTPError::caseOf(platform::URLError::Code code) {
  using enum platform::URLError::Code;
  switch (code) {
    case badURL:
    case unsupportedURL:
      return Case::badRequestError;
    case userAuthenticationRequired:
      return Case::unauthorizedError;
    case fileDoesNotExist:
    case redirectToNonExistentLocation:
    case resourceUnavailable:
      return Case::resourceNotFoundError;
    case badServerResponse:
      return Case::serverError;
    case notConnectedToInternet:
    case dataNotAllowed:
    case cannotConnectToHost:
    case timedOut:
    case networkConnectionLost:
    case dnsLookupFailed:
    case cannotFindHost:
      return Case::networkError;
    case cancelled:
      return Case::canceled;
    default:
      return Case::unknown;
  }
}

HTTPError::Case HTTPError::caseOf(int statusCode) {
  switch (statusCode) {
    case 400:
      return Case::badRequestError;
    case 401:
      return Case::unauthorizedError;
    case 403:
      return Case::forbidden;
    case 404:
      return Case::resourceNotFoundError;
    case 410:
      return Case::resourceDeletedError;
    case 422:
      return Case::validationError;
    case 429:
      return Case::rateLimitError;
    case 503:
      return Case::serverOfflineError;
    case -1:
      return Case::networkError;
    case -2:
      return Case::networkConstrained;
    case -3:
      return Case::canceled;
    default:
      return statusCode >= 500 ? Case::serverError : Case::unknown;
  }
}

HTTPError HTTPError::withStatusCode(int statusCode, std::optional<platform::DataView> data) {
  const Case errorCase = caseOf(statusCode);
  if (errorCase != Case::validationError) return HTTPError(errorCase);
  return validationErrorFrom(responseFrom(data.value_or(platform::DataView())));
}

HTTPError HTTPError::withStatusCode(int statusCode, const platform::JSON* json) {
  const Case errorCase = caseOf(statusCode);
  if (errorCase != Case::validationError) return HTTPError(errorCase);
  return validationErrorFrom(json == nullptr ? ErrorResponse() : responseFrom(*json));
}

bool operator==(const HTTPError& a, const HTTPError& b) {
  if (a.case_ != b.case_) return false;
  if (const auto* moved = a.asResourceMoved()) {
    return moved->replacementID == b.asResourceMoved()->replacementID;
  }
  if (const auto* validation = a.asValidation()) {
    return validation->message == b.asValidation()->message &&
           validation->errors == b.asValidation()->errors;
  }
  return std::string_view(a.what()) == b.what();
}

}  // namespace ombrix
