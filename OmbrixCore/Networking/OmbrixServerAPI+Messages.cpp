#include <mutex>

#include "OmbrixCore/Extensions/ResourceBundle.hpp"
#include "OmbrixCore/Networking/OmbrixServerAPI.hpp"

namespace ombrix {

std::string OmbrixServerAPI::errorMessageForError(const platform::Error* error) {
  if (const auto* known = dynamic_cast<const HTTPError*>(error)) {
    switch (known->kind()) {
      case HTTPError::Case::validationError:
        return known->asValidation()->message;
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

std::string OmbrixServerAPI::errorMessageForError(const std::exception_ptr& error) {
  if (!error) return errorMessageForError(nullptr);
  try {
    std::rethrow_exception(error);
  } catch (const platform::Error& known) {
    return errorMessageForError(&known);
  } catch (...) {
    return errorMessageForError(nullptr);
  }
}

}  // namespace ombrix
