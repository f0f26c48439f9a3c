#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "OmbrixPlatform/Coding/CodingPath.hpp"
#include "OmbrixPlatform/Values/Error.hpp"

namespace ombrix::platform {

/// Why a value could not be decoded, and where; `what()` is a sentence with both.
class DecodingError : public Error {
 public:
  enum class Kind {
    keyNotFound,    // a required key is missing
    typeMismatch,   // the value is of another kind
    valueNotFound,  // null, or no further item, where a value is required
    dataCorrupted,  // the bytes are not a document, or the value is not allowed
    tooLarge        // the value takes far more memory than its bytes account for; nothing is broken
  };

  /// `path` leads to the container that lacks the key.
  static DecodingError keyNotFound(std::string_view key, CodingPath path);
  /// `expected` and `found` name kinds of values, as in "a text".
  static DecodingError typeMismatch(std::string_view expected, std::string_view found,
                                    CodingPath path);
  static DecodingError valueNotFound(std::string_view expected, CodingPath path);
  /// `what` is a sentence without its full stop.
  static DecodingError dataCorrupted(std::string_view what, CodingPath path);
  static DecodingError tooLarge(std::string_view what, CodingPath path);

  [[nodiscard]] Kind kind() const noexcept { return kind_; }
  [[nodiscard]] const CodingPath& codingPath() const noexcept { return path_; }

 private:
  DecodingError(Kind kind, const std::string& message, CodingPath path)
      : Error(message), kind_(kind), path_(std::move(path)) {}

  Kind kind_;
  CodingPath path_;
};

/// Why a value could not be encoded, and where; `what()` is a sentence with both.
class EncodingError : public Error {
 public:
  enum class Kind { invalidValue };

  /// `what` is a sentence without its full stop.
  static EncodingError invalidValue(std::string_view what, CodingPath path);

  [[nodiscard]] Kind kind() const noexcept { return Kind::invalidValue; }
  [[nodiscard]] const CodingPath& codingPath() const noexcept { return path_; }

 private:
  EncodingError(const std::string& message, CodingPath path)
      : Error(message), path_(std::move(path)) {}

  CodingPath path_;
};

namespace detail {

/// A text of a document as errors describe it: by its length only, since it may be a password or a
/// token and errors end up in logs.
std::string textByLength(std::string_view text);

}  // namespace detail

}  // namespace ombrix::platform
