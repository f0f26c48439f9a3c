#pragma once

#include <optional>
#include <string>

#include "OmbrixPlatform/Values/Error.hpp"

namespace ombrix::platform {

/// Why a transfer failed before, or instead of, an answer.
class URLError : public Error {
 public:
  enum class Code : int {
    unknown = -1,
    cancelled = -999,
    badURL = -1000,
    timedOut = -1001,
    unsupportedURL = -1002,
    cannotFindHost = -1003,
    cannotConnectToHost = -1004,
    networkConnectionLost = -1005,
    dnsLookupFailed = -1006,
    httpTooManyRedirects = -1007,
    resourceUnavailable = -1008,
    notConnectedToInternet = -1009,
    redirectToNonExistentLocation = -1010,
    badServerResponse = -1011,
    userCancelledAuthentication = -1012,
    userAuthenticationRequired = -1013,
    zeroByteResource = -1014,
    cannotDecodeRawData = -1015,
    cannotDecodeContentData = -1016,
    cannotParseResponse = -1017,
    internationalRoamingOff = -1018,
    callIsActive = -1019,
    dataNotAllowed = -1020,
    requestBodyStreamExhausted = -1021,
    appTransportSecurityRequiresSecureConnection = -1022,
    fileDoesNotExist = -1100,
    fileIsDirectory = -1101,
    noPermissionsToReadFile = -1102,
    dataLengthExceedsMaximum = -1103,
    secureConnectionFailed = -1200,
    serverCertificateHasBadDate = -1201,
    serverCertificateUntrusted = -1202,
    serverCertificateHasUnknownRoot = -1203,
    serverCertificateNotYetValid = -1204,
    clientCertificateRejected = -1205,
    clientCertificateRequired = -1206,
    cannotLoadFromNetwork = -2000,
  };

  /// Why the network must not be used, where that is the reason.
  enum class NetworkUnavailableReason {
    cellular = 0,
    expensive = 1,
    constrained = 2,  ///< Low Data Mode
  };

  /// `message` is a readable sentence.
  explicit URLError(Code code, const std::string& message = "the transfer failed",
                    std::optional<NetworkUnavailableReason> reason = std::nullopt)
      : Error(message), code_(code), reason_(reason) {}

  [[nodiscard]] Code code() const noexcept { return code_; }

  /// Empty when use of the network was not refused.
  [[nodiscard]] std::optional<NetworkUnavailableReason> networkUnavailableReason() const noexcept {
    return reason_;
  }

  friend bool operator==(const URLError& a, const URLError& b) { return a.code_ == b.code_; }

 private:
  Code code_;
  std::optional<NetworkUnavailableReason> reason_;
};

}  // namespace ombrix::platform
