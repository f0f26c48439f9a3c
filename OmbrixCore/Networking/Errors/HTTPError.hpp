#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "OmbrixPlatform/Coding/CodingError.hpp"
#include "OmbrixPlatform/Network/URLError.hpp"
#include "OmbrixPlatform/Network/URLResponse.hpp"
#include "OmbrixPlatform/Values/Error.hpp"
#include "OmbrixPlatform/Values/SharedData.hpp"

namespace ombrix::platform {
class JSON;
}

namespace ombrix {

/// The one error of talking to the product's web service. A value; any thread.
class HTTPError final : public platform::Error {
 public:
  /// The cases, in the order of their tags.
  enum class Case {
    resourceMovedError,
    validationError,
    invalidBody,
    invalidPayload,
    resourceNotFoundError,
    resourceDeletedError,
    networkError,
    serverError,
    badRequestError,
    unauthorizedError,
    rateLimitError,
    forbidden,
    serverOfflineError,
    networkConstrained,
    missingBody,
    unknown,
    canceled,
  };

  struct ResourceMoved {
    std::string replacementID;
  };
  struct Validation {
    std::string message;
    std::map<std::string, std::string> errors;  // field name to message
  };

  /// The details of the failure, for callers that need more than the case. They count neither for
  /// equality nor in any text: bodies and fields may hold secrets.
  struct Cause {
    int code = 0;  ///< the status, or the pseudo-code of `withStatusCode`
    std::shared_ptr<const platform::HTTPURLResponse> response;  ///< null without an HTTP answer
    platform::SharedData body;                                  ///< of that answer
    std::shared_ptr<const platform::URLError> transportError;   ///< null when an answer came
  };

  static HTTPError resourceMovedError(std::string replacementID);
  static HTTPError validationError(std::string message, std::map<std::string, std::string> errors);
  /// The response body could not be decoded.
  static HTTPError invalidBody(platform::DecodingError error);
  /// The request payload could not be encoded.
  static HTTPError invalidPayload(platform::EncodingError error);
  static HTTPError resourceNotFoundError() { return HTTPError(Case::resourceNotFoundError); }
  static HTTPError resourceDeletedError() { return HTTPError(Case::resourceDeletedError); }
  static HTTPError networkError() { return HTTPError(Case::networkError); }
  static HTTPError serverError() { return HTTPError(Case::serverError); }
  static HTTPError badRequestError() { return HTTPError(Case::badRequestError); }
  static HTTPError unauthorizedError() { return HTTPError(Case::unauthorizedError); }
  static HTTPError rateLimitError() { return HTTPError(Case::rateLimitError); }
  static HTTPError forbidden() { return HTTPError(Case::forbidden); }
  static HTTPError serverOfflineError() { return HTTPError(Case::serverOfflineError); }
  static HTTPError networkConstrained() { return HTTPError(Case::networkConstrained); }
  static HTTPError missingBody() { return HTTPError(Case::missingBody); }
  static HTTPError unknown() { return HTTPError(Case::unknown); }
  static HTTPError canceled() { return HTTPError(Case::canceled); }

  /// The case of a transport error, which is its cause.
  explicit HTTPError(const platform::URLError& error);

  /// The case of a status code, or of the pseudo-codes -1 (not an HTTP answer), -2 (refused by Low
  /// Data Mode) and -3 (cancelled here).
  ///
  /// @param data The answer's body, from which 422 takes its validation error: the first message of
  ///   each field under "errors", or the text under "message" if there are none. A body that is
  ///   missing or has neither gives a fixed sentence.
  static HTTPError withStatusCode(int statusCode,
                                  std::optional<platform::DataView> data = std::nullopt);

  /// The same for a body that is parsed already; null when there is none.
  static HTTPError withStatusCode(int statusCode, const platform::JSON* json);

  /// The same case with its cause.
  [[nodiscard]] HTTPError causedBy(Cause cause) const;

  [[nodiscard]] Case kind() const noexcept { return case_; }

  /// The details of the failure; null for errors that no request led to.
  [[nodiscard]] const Cause* cause() const noexcept { return cause_.get(); }

  /// Why there was no answer; null when there was one.
  [[nodiscard]] const platform::URLError* underlyingError() const noexcept {
    return cause_ ? cause_->transportError.get() : nullptr;
  }

  [[nodiscard]] const ResourceMoved* asResourceMoved() const { return as<ResourceMoved>(); }
  [[nodiscard]] const Validation* asValidation() const { return as<Validation>(); }
  [[nodiscard]] const platform::DecodingError* asInvalidBody() const {
    return as<platform::DecodingError>();
  }
  [[nodiscard]] const platform::EncodingError* asInvalidPayload() const {
    return as<platform::EncodingError>();
  }

  /// The name of the case with its values, for developers; never shown to users.
  [[nodiscard]] std::string localizedDescription() const { return what(); }
  [[nodiscard]] std::string errorDescription() const { return what(); }

  /// Equal cases with equal values; coding errors are equal when they say the same.
  friend bool operator==(const HTTPError& a, const HTTPError& b);

 private:
  using Details = std::variant<std::monostate, ResourceMoved, Validation, platform::DecodingError,
                               platform::EncodingError>;

  explicit HTTPError(Case errorCase, Details details = {});

  template <class T>
  const T* as() const {
    return std::get_if<T>(&details_);
  }

  static Case caseOf(platform::URLError::Code code);
  static Case caseOf(int statusCode);
  static std::string describe(Case errorCase, const Details& details);

  Case case_;
  Details details_;
  std::shared_ptr<const Cause> cause_;  // shared: exceptions are copied without a throw
};

/// The name of a case as in the declaration.
std::string_view caseName(HTTPError::Case errorCase) noexcept;

}  // namespace ombrix
