#include <openssl/x509_vfy.h>

#include <array>
#include <cerrno>

#include "OmbrixPlatform/Network/Detail/CurlErrors.hpp"

namespace ombrix::platform::detail {
namespace {

using enum URLError::Code;

struct Row {
  CURLcode curl;
  URLError::Code code;
};

// clang-format off: a table
constexpr std::array kRows{
    Row{CURLE_UNSUPPORTED_PROTOCOL,     cannotParseResponse},  // the scheme was looked at before
    Row{CURLE_URL_MALFORMAT,            badURL},
    Row{CURLE_COULDNT_RESOLVE_PROXY,    cannotFindHost},
    Row{CURLE_COULDNT_RESOLVE_HOST,     cannotFindHost},
    Row{CURLE_COULDNT_CONNECT,          cannotConnectToHost},
    Row{CURLE_WEIRD_SERVER_REPLY,       cannotParseResponse},
    Row{CURLE_HTTP2,                    badServerResponse},
    Row{CURLE_PARTIAL_FILE,             networkConnectionLost},
    Row{CURLE_OPERATION_TIMEDOUT,       timedOut},
    Row{CURLE_SSL_CONNECT_ERROR,        secureConnectionFailed},
    Row{CURLE_GOT_NOTHING,              networkConnectionLost},
    Row{CURLE_SSL_ENGINE_NOTFOUND,      secureConnectionFailed},
    Row{CURLE_SSL_ENGINE_SETFAILED,     secureConnectionFailed},
    Row{CURLE_SEND_ERROR,               networkConnectionLost},
    Row{CURLE_RECV_ERROR,               networkConnectionLost},
    Row{CURLE_SSL_CERTPROBLEM,          clientCertificateRejected},
    Row{CURLE_SSL_CIPHER,               secureConnectionFailed},
    Row{CURLE_PEER_FAILED_VERIFICATION, serverCertificateUntrusted},
    Row{CURLE_SEND_FAIL_REWIND,         requestBodyStreamExhausted},
    Row{CURLE_SSL_CACERT_BADFILE,       secureConnectionFailed},
    Row{CURLE_SSL_CRL_BADFILE,          secureConnectionFailed},
    Row{CURLE_SSL_ISSUER_ERROR,         serverCertificateUntrusted},
    Row{CURLE_SSL_PINNEDPUBKEYNOTMATCH, serverCertificateUntrusted},
    Row{CURLE_HTTP2_STREAM,             networkConnectionLost},
    Row{CURLE_PROXY,                    cannotConnectToHost},
    Row{CURLE_SSL_CLIENTCERT,           clientCertificateRequired},
};
// clang-format on

bool isMissingRoute(long systemError) noexcept {
  return systemError == ENETUNREACH || systemError == EHOSTUNREACH || systemError == ENETDOWN ||
         systemError == EADDRNOTAVAIL;
}

URLError::Code codeOfCertificate(long verifyResult) noexcept {
  switch (verifyResult) {
    case X509_V_ERR_CERT_HAS_EXPIRED:
      return serverCertificateHasBadDate;
    case X509_V_ERR_CERT_NOT_YET_VALID:
      return serverCertificateNotYetValid;
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
      return serverCertificateHasUnknownRoot;
    default:
      return serverCertificateUntrusted;
  }
}

URLError::Code codeOf(const CurlFailure& failure) noexcept {
  if (failure.code == CURLE_PEER_FAILED_VERIFICATION)
    return codeOfCertificate(failure.verifyResult);
  if (failure.code == CURLE_COULDNT_CONNECT) {
    if (isMissingRoute(failure.systemError)) return notConnectedToInternet;
    if (failure.systemError == ETIMEDOUT) return timedOut;
  }
  // libcurl tells a damaged body and a lost connection apart by its text alone.
  if (failure.code == CURLE_RECV_ERROR && failure.message.contains("chunked-encoding")) {
    return cannotParseResponse;
  }
  for (const Row& row : kRows) {
    if (row.curl == failure.code) return row.code;
  }
  return unknown;
}

}  // namespace

std::shared_ptr<const URLError> urlErrorFor(const CurlFailure& failure) {
  return makeURLError(codeOf(failure), failure.message.empty() ? ::curl_easy_strerror(failure.code)
                                                               : failure.message);
}

bool isMissingConnectivity(const CurlFailure& failure) noexcept {
  return failure.code == CURLE_COULDNT_RESOLVE_HOST ||
         failure.code == CURLE_COULDNT_RESOLVE_PROXY ||
         (failure.code == CURLE_COULDNT_CONNECT && isMissingRoute(failure.systemError));
}

}  // namespace ombrix::platform::detail
