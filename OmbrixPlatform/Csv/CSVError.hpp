#pragma once

#include <string>

#include "OmbrixPlatform/Values/Error.hpp"

namespace ombrix::platform {

/// Why a CSV reader or writer could not be created, or why a row could not be written.
class CSVError : public Error {
 public:
  enum class Kind {
    badConfiguration,  ///< The delimiter is a quote or a line break.
    cannotOpenStream,
    cannotReadStream,
    cannotWriteStream,
  };

  CSVError(Kind kind, const std::string& message) : Error(message), kind_(kind) {}

  [[nodiscard]] Kind kind() const noexcept { return kind_; }

 private:
  Kind kind_;
};

}  // namespace ombrix::platform
