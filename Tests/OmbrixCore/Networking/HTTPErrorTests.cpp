#include "OmbrixCore/Networking/HTTPError.hpp"

#include <gtest/gtest.h>

#include <stdexcept>

namespace ombrix {
namespace {

using platform::URLError;
using Case = HTTPError::Case;

// Catches transport errors that end in the wrong case.
TEST(HTTPErrorTests, TransportErrors) {
  using enum URLError::Code;
  const std::pair<URLError::Code, Case> cases[] = {
      {badURL, Case::badRequestError},
      {unsupportedURL, Case::badRequestError},
      {userAuthenticationRequired, Case::unauthorizedError},
      {fileDoesNotExist, Case::resourceNotFoundError},
      {redirectToNonExistentLocation, Case::resourceNotFoundError},
      {resourceUnavailable, Case::resourceNotFoundError},
      {badServerResponse, Case::serverError},
      {notConnectedToInternet, Case::networkError},
      {dataNotAllowed, Case::networkError},
      {cannotConnectToHost, Case::networkError},
      {timedOut, Case::networkError},
      {networkConnectionLost, Case::networkError},
      {dnsLookupFailed, Case::networkError},
      {cannotFindHost, Case::networkError},
      {cancelled, Case::canceled},
      {secureConnectionFailed, Case::unknown},
      {zeroByteResource, Case::unknown},
  };
  for (const auto& [code, expected] : cases) {
    EXPECT_EQ(HTTPError(URLError(code)).kind(), expected) << static_cast<int>(code);
  }
}

// Catches status codes at the borders of a range that end in the wrong case.
TEST(HTTPErrorTests, StatusCodes) {
  const std::pair<int, Case> cases[] = {
      {400, Case::badRequestError},
      {401, Case::unauthorizedError},
      {402, Case::unknown},
      {403, Case::forbidden},
      {404, Case::resourceNotFoundError},
      {410, Case::resourceDeletedError},
      {422, Case::validationError},
      {423, Case::unknown},
      {429, Case::rateLimitError},
      {499, Case::unknown},
      {500, Case::serverError},
      {502, Case::serverError},
      {503, Case::serverOfflineError},
      {504, Case::serverError},
      {200, Case::unknown},
      {302, Case::unknown},
      {-1, Case::networkError},
      {-2, Case::networkConstrained},
      {-3, Case::canceled},
      {-4, Case::unknown},
  };
  for (const auto& [code, expected] : cases) {
    EXPECT_EQ(HTTPError::withStatusCode(code).kind(), expected) << code;
  }
  EXPECT_EQ(HTTPError::withStatusCode(422).asValidation()->message,
            "Something was wrong with the data submitted.");
}

// Catches tags that moved, equality that ignores values, and a description without them.
TEST(HTTPErrorTests, DescriptionsAndEquality) {
  EXPECT_EQ(static_cast<int>(Case::validationError), 1);
  EXPECT_EQ(static_cast<int>(Case::canceled), 16);
  EXPECT_EQ(caseName(Case::canceled), "canceled");
  const auto taken = HTTPError::validationError("taken", {{"email", "taken"}});
  EXPECT_EQ(taken.localizedDescription(),
            "validationError(message: \"taken\", errors: [\"email\": \"taken\"])");
  EXPECT_EQ(taken.errorDescription(), taken.localizedDescription());
  EXPECT_EQ(HTTPError::resourceMovedError("7").localizedDescription(),
            "resourceMovedError(replacementID: \"7\")");
  EXPECT_EQ(taken, HTTPError::validationError("taken", {{"email", "taken"}}));
  EXPECT_NE(taken, HTTPError::validationError("taken", {}));
  EXPECT_NE(HTTPError::resourceMovedError("7"), HTTPError::resourceMovedError("8"));
  EXPECT_NE(HTTPError::unknown(), HTTPError::canceled());
}

// Catches messages that go to the wrong case, and generic errors without a sentence.
TEST(HTTPErrorTests, MessagesForUsers) {
  constexpr auto kGeneric = "An unknown error occurred. Sorry, please try again later.";
  const std::pair<HTTPError, std::string> cases[] = {
      {HTTPError::validationError("as it stands", {}), "as it stands"},
      {HTTPError::invalidBody(platform::DecodingError::dataCorrupted("x", {})),
       "The response was malformed. Please contact support for further assistance."},
      {HTTPError::resourceNotFoundError(), "Sorry it looks like that link isn't valid."},
      {HTTPError::networkError(), "Couldn\u2019t contact the server. Are you offline?"},
      {HTTPError::serverOfflineError(),
       "Sorry! Looks like the Ombrix servers are undergoing maintenance. Please try again in a "
       "bit."},
      {HTTPError::resourceDeletedError(), kGeneric},
      {HTTPError::missingBody(), kGeneric},
      {HTTPError::canceled(), kGeneric},
  };
  for (const auto& [error, message] : cases) {
    EXPECT_EQ(errorMessageForError(&error), message) << error.what();
    EXPECT_EQ(errorMessageForError(std::make_exception_ptr(error)), message);
  }
  EXPECT_EQ(errorMessageForError(std::exception_ptr()), kGeneric);
  EXPECT_EQ(errorMessageForError(std::make_exception_ptr(std::runtime_error("x"))), kGeneric);
}

}  // namespace
}  // namespace ombrix
