#pragma once

#include <optional>
#include <string>

namespace ombrix {

/// What an answer of the web service says of token, login and maintenance.
struct ServiceConditions {
  std::optional<std::string> token;  ///< the new one; nothing: it stays as it is
  bool isLoginInvalid = false;       ///< false: it stays as it is
  bool isInMaintenance = false;
};

}  // namespace ombrix
