#include "OmbrixCore/Networking/HTTPError.hpp"

#include <fmt/format.h>

#include <array>
#include <utility>

#include "OmbrixCore/Extensions/ResourceBundle.hpp"

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

}  // namespace

std::string_view caseName(HTTPError::Case errorCase) noexcept {
  return kCaseNames[static_cast<std::size_t>(errorCase)];
}

HTTPError::HTTPError(Case errorCase, Details details)
    : Error(describe(errorCase, details)), case_(errorCase), details_(std::move(details)) {}

HTTPError::HTTPError(const platform::URLError& error) : HTTPError(caseOf(error.code())) {}

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

HTTPError HTTPError::withStatusCode(int statusCode) {
  switch (statusCode) {
    case 400:
      return badRequestError();
    case 401:
      return unauthorizedError();
    case 403:
      return forbidden();
    case 404:
      return resourceNotFoundError();
    case 410:
      return resourceDeletedError();
    case 422:
      return validationError(std::string(kDefaultValidationMessage), {});
    case 429:
      return rateLimitError();
    case 503:
      return serverOfflineError();
    case -1:
      return networkError();
    case -2:
      return networkConstrained();
    case -3:
      return canceled();
    default:
      return statusCode >= 500 ? serverError() : unknown();
  }
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

std::string errorMessageForError(const HTTPError* error) {
  if (error) {
    switch (error->kind()) {
      case HTTPError::Case::validationError:
        return error->asValidation()->message;
      case HTTPError::Case::invalidBody:
        return localizedString("httperror.invalidBody",
                               "The response was malformed. Please contact support for further "
                               "assistance.");
      case HTTPError::Case::resourceNotFoundError:
        // Kept: this apostrophe is plain, those of the network and rate-limit texts are
        // typographic; the strings tables spell them so, and users would see both spellings.
        return localizedString("httperror.notfound", "Sorry it looks like that link isn't valid.");
      case HTTPError::Case::networkError:
        return localizedString("httperror.networkError",
                               "Couldn’t contact the server. Are you offline?");
      case HTTPError::Case::serverError:
        return localizedString("httperror.serverError",
                               "There was an unexpected error on the server. Sorry, please try "
                               "again later.");
      case HTTPError::Case::badRequestError:
        return localizedString("httperror.badRequestError",
                               "The request was malformed. Please contact support for further "
                               "assistance.");
      case HTTPError::Case::unauthorizedError:
        return localizedString("httperror.unauthorizedError",
                               "There was an issue with your username or password. You might try "
                               "logging out and back in again.");
      case HTTPError::Case::rateLimitError:
        return localizedString("httperror.rateLimitError",
                               "You’ve been trying to do that a lot in the last few minutes. "
                               "Please wait 15 minutes to try again.");
      case HTTPError::Case::forbidden:
        return localizedString("httperror.forbidden",
                               "You are not authorized to perform that action. The link may be "
                               "expired.");
      case HTTPError::Case::serverOfflineError:
        return localizedString("httperror.serverOfflineError",
                               "Sorry! Looks like the Ombrix servers are undergoing maintenance. "
                               "Please try again in a bit.");
      default:
        break;
    }
  }
  return localizedString("httperror.generic",
                         "An unknown error occurred. Sorry, please try again later.");
}

std::string errorMessageForError(const std::exception_ptr& error) {
  if (!error) return errorMessageForError(static_cast<const HTTPError*>(nullptr));
  try {
    std::rethrow_exception(error);
  } catch (const HTTPError& known) {
    return errorMessageForError(&known);
  } catch (...) {
    return errorMessageForError(static_cast<const HTTPError*>(nullptr));
  }
}

}  // namespace ombrix
