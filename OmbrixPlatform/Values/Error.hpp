#pragma once

#include <stdexcept>

namespace ombrix::platform {

/// Base of every exception that OmbrixPlatform and OmbrixCore throw; `what()` is a readable
/// sentence.
///
/// Expected outcomes (a bad row, a missing value, a missing file) are never exceptions.
class Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace ombrix::platform
