#include "OmbrixCore/Networking/Errors/HTTPError.hpp"

#include <gtest/gtest.h>

#include "OmbrixPlatform/Coding/JSON.hpp"

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
}

// Catches a message of the wrong field or level, and a damaged body that is no error or a crash;
// the body is read as bytes and, where it is JSON, as parsed before.
TEST(HTTPErrorTests, ValidationErrorsComeFromTheBody) {
  constexpr auto kDefault = "Something was wrong with the data submitted.";
  using Fields = std::map<std::string, std::string>;
  struct Body {
    const char *text, *message;
    Fields errors;
    const char* lenientMessage = nullptr;  // of the parsed body, where it differs
    Fields lenientErrors = {};
  };
  const Body cases[] = {
      {R"({"errors":{"email":["taken","invalid"],"name":[]},"message":"x"})",
       "taken",
       {{"email", "taken"}}},
      {R"({"errors":{"name":["short"],"email":["taken"]}})",
       "short\ntaken",
       {{"email", "taken"}, {"name", "short"}}},
      {R"({"errors":{},"message":"dropped"})", "", {}},
      {R"({"errors":null,"message":"as it stands"})", "as it stands", {}},
      {R"({"message":""})", "", {}},
      {R"({"other":1})", kDefault, {}},
      {R"([])", kDefault, {}},
      {R"({"errors":{"age":[7],"name":"no list"}})", kDefault, {}, "7", {{"age", "7"}}},
      {R"({"errors":[],"message":"list"})", kDefault, {}, "list", {}},
  };
  for (const Body& test : cases) {
    EXPECT_EQ(HTTPError::withStatusCode(422, platform::bytesOf(test.text)),
              HTTPError::validationError(test.message, test.errors))
        << test.text;
    const auto json = platform::JSON::parse(test.text);
    EXPECT_EQ(HTTPError::withStatusCode(422, &json),
              test.lenientMessage
                  ? HTTPError::validationError(test.lenientMessage, test.lenientErrors)
                  : HTTPError::validationError(test.message, test.errors))
        << test.text;
  }
  const auto unreadable = HTTPError::validationError(kDefault, {});
  for (const char* body : {"", "<html>", "{\"message\":"}) {
    EXPECT_EQ(HTTPError::withStatusCode(422, platform::bytesOf(body)), unreadable) << body;
  }
  EXPECT_EQ(HTTPError::withStatusCode(422), unreadable);
  EXPECT_EQ(HTTPError::withStatusCode(422, nullptr), unreadable);
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

}  // namespace
}  // namespace ombrix
