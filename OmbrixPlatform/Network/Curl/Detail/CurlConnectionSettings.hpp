#pragma once

#include "OmbrixPlatform/Network/Curl/Detail/LoadedCurl.hpp"

#include <optional>
#include <string>

#include "OmbrixPlatform/Network/URLConnectionSettings.hpp"

namespace ombrix::platform::detail {

/// What a session's settings mean for one host. It refers to the settings, which must outlive it.
class CurlConnectionSettings {
 public:
  CurlConnectionSettings(const URLConnectionSettings& settings, const std::string& host);

  /// Sets up a transfer; false when libcurl refuses that.
  [[nodiscard]] bool install(CURL* easy, bool isSecure) const;

  [[nodiscard]] bool hasCertificate() const noexcept { return certificate_ != nullptr; }

 private:
  const URLClientCertificate* certificate_ = nullptr;  // null: none
  const URLProxy* proxy_ = nullptr;                    // null: the environment's
  std::optional<std::string> keys_;                    // as libcurl wants them
  std::string exceptions_;                             // from the proxy, as libcurl wants them
};

}  // namespace ombrix::platform::detail
