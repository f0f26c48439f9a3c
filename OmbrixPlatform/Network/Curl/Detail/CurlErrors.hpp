#pragma once

#include "OmbrixPlatform/Network/Curl/Detail/LoadedCurl.hpp"

#include <memory>
#include <string>

#include "OmbrixPlatform/Network/URLError.hpp"

namespace ombrix::platform::detail {

/// What is known of a transfer that libcurl has given up.
struct CurlFailure {
  CURLcode code = CURLE_OK;
  long systemError = 0;   ///< errno of the last failing connect or look-up; 0: none
  long verifyResult = 0;  ///< an `X509_V_ERR` code of the server's certificate; 0: none
  std::string detail;     ///< libcurl's own words
  bool wasSent = false;   ///< the request, or a part of it
  bool hasHeader = false;
  bool isChunked = false;
  bool isSecure = false;
  bool wantsClientCertificate = false;  ///< the server has asked for one
  bool gaveCertificate = false;         ///< it got one
  long proxyStatus = 0;                 ///< a proxy's, to "CONNECT"; 0: none
};

/// The error that a task ends with: a sentence of ours, chosen by the codes, followed by libcurl's
/// words.
std::shared_ptr<const URLError> urlErrorFor(const CurlFailure& failure);

/// Whether the network is missing for now, rather than the server refusing.
[[nodiscard]] bool isMissingConnectivity(const CurlFailure& failure) noexcept;

/// Whether an error says that the server could not be reached, or did not answer.
[[nodiscard]] bool isUnreachable(const URLError& error) noexcept;

/// The error of an answer for which memory is short. It is made once, while there is memory.
std::shared_ptr<const URLError> errorOfMissingMemory() noexcept;

inline std::shared_ptr<const URLError> makeURLError(URLError::Code code,
                                                    const std::string& message) {
  return std::make_shared<const URLError>(code, message);
}

}  // namespace ombrix::platform::detail
