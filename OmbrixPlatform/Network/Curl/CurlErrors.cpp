#include <openssl/x509_vfy.h>

#include <array>
#include <cerrno>
#include <optional>

#include "OmbrixPlatform/Network/Curl/Detail/CurlErrors.hpp"

namespace ombrix::platform::detail {
namespace {

using enum URLError::Code;

struct Row {
  CURLcode curl;
  URLError::Code code;
  const char* sentence;
};

// clang-format off: a table
constexpr std::array kRows{
    Row{CURLE_UNSUPPORTED_PROTOCOL,     cannotParseResponse,         "the answer is not HTTP"},  // the scheme was looked at before
    Row{CURLE_URL_MALFORMAT,            badURL,                      "the URL cannot be used"},
    Row{CURLE_COULDNT_RESOLVE_PROXY,    cannotFindHost,              "the proxy's name is not known"},
    Row{CURLE_COULDNT_RESOLVE_HOST,     cannotFindHost,              "the host's name is not known"},
    Row{CURLE_COULDNT_CONNECT,          cannotConnectToHost,         "the server cannot be reached"},
    Row{CURLE_WEIRD_SERVER_REPLY,       cannotParseResponse,         "the answer cannot be read"},
    Row{CURLE_HTTP2,                    badServerResponse,           "the server breaks the rules of HTTP/2"},
    Row{CURLE_PARTIAL_FILE,             networkConnectionLost,       "the answer's body is cut short"},
    Row{CURLE_OPERATION_TIMEDOUT,       timedOut,                    "the server did not answer in time"},
    Row{CURLE_SSL_CONNECT_ERROR,        secureConnectionFailed,      "no secure connection could be made"},
    Row{CURLE_GOT_NOTHING,              networkConnectionLost,       "the connection ended without an answer"},
    Row{CURLE_SSL_ENGINE_NOTFOUND,      secureConnectionFailed,      "no secure connection could be made"},
    Row{CURLE_SSL_ENGINE_SETFAILED,     secureConnectionFailed,      "no secure connection could be made"},
    Row{CURLE_SEND_ERROR,               networkConnectionLost,       "the connection was lost while the request was sent"},
    Row{CURLE_RECV_ERROR,               networkConnectionLost,       "the connection was lost"},
    Row{CURLE_SSL_CERTPROBLEM,          clientCertificateRejected,   "the client's certificate cannot be used"},
    Row{CURLE_SSL_CIPHER,               secureConnectionFailed,      "no secure connection could be made"},
    Row{CURLE_PEER_FAILED_VERIFICATION, serverCertificateUntrusted,  "the server's certificate is not trusted"},
    Row{CURLE_SEND_FAIL_REWIND,         requestBodyStreamExhausted,  "the request's body cannot be sent again"},
    Row{CURLE_SSL_CACERT_BADFILE,       secureConnectionFailed,      "the system's certificates cannot be read"},
    Row{CURLE_SSL_CRL_BADFILE,          secureConnectionFailed,      "the system's certificates cannot be read"},
    Row{CURLE_SSL_ISSUER_ERROR,         serverCertificateUntrusted,  "the server's certificate is not trusted"},
    Row{CURLE_SSL_PINNEDPUBKEYNOTMATCH, serverCertificateUntrusted,  "the server's certificate is not trusted"},
    Row{CURLE_HTTP2_STREAM,             networkConnectionLost,       "the server ended the stream early"},
    Row{CURLE_PROXY,                    cannotConnectToHost,         "the proxy does not let the request through"},
    Row{CURLE_SSL_CLIENTCERT,           clientCertificateRequired,   "the server asks for a client certificate"},
    Row{CURLE_OUT_OF_MEMORY,            unknown,                     "there is not enough memory"},
};
// clang-format on

bool isMissingRoute(long systemError) noexcept {
  return systemError == ENETUNREACH || systemError == EHOSTUNREACH || systemError == ENETDOWN ||
         systemError == EADDRNOTAVAIL;
}

bool lacksDescriptors(const CurlFailure& failure) noexcept {
  return (failure.code == CURLE_COULDNT_CONNECT || failure.code == CURLE_COULDNT_RESOLVE_HOST) &&
         (failure.systemError == EMFILE || failure.systemError == ENFILE);
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

/// Errors that libcurl's code alone does not tell apart.
std::optional<Row> rowOfCircumstances(const CurlFailure& failure) noexcept {
  const CURLcode code = failure.code;
  if (code == CURLE_PEER_FAILED_VERIFICATION) {
    if (failure.verifyResult == X509_V_ERR_OUT_OF_MEM) {
      return Row{code, unknown, "there is not enough memory to verify the server's certificate"};
    }
    return Row{code, codeOfCertificate(failure.verifyResult),
               "the server's certificate is not trusted"};
  }
  if (lacksDescriptors(failure)) {
    return Row{code, cannotConnectToHost, "no descriptors are left for a connection"};
  }
  if (code == CURLE_COULDNT_CONNECT) {
    if (isMissingRoute(failure.systemError)) {
      return Row{code, notConnectedToInternet, "there is no route to the server"};
    }
    if (failure.systemError == ECONNREFUSED) {
      return Row{code, cannotConnectToHost, "the server refuses connections"};
    }
    if (failure.systemError == ETIMEDOUT) {
      return Row{code, timedOut, "the server did not accept the connection in time"};
    }
  }
  const bool isInHandshakeOrAfter = code == CURLE_SSL_CONNECT_ERROR || code == CURLE_RECV_ERROR ||
                                    code == CURLE_SEND_ERROR || code == CURLE_GOT_NOTHING ||
                                    code == CURLE_HTTP2 || code == CURLE_HTTP2_STREAM;
  if (failure.wantsClientCertificate && !failure.hasHeader && isInHandshakeOrAfter) {
    if (failure.gaveCertificate) {
      return Row{code, clientCertificateRejected, "the server refuses the client's certificate"};
    }
    return Row{code, clientCertificateRequired, "the server asks for a client certificate"};
  }
  if (failure.proxyStatus >= 300) {
    constexpr long kCredentialsWanted = 407;
    return Row{code, cannotConnectToHost,
               failure.proxyStatus == kCredentialsWanted
                   ? "the proxy does not know who asks, or refuses who it is"
                   : "the proxy does not let the request through"};
  }
  if (code == CURLE_BAD_FUNCTION_ARGUMENT && !failure.hasHeader) {
    return Row{code, cannotParseResponse, "the header of the answer is malformed"};
  }
  // libcurl has one code for both; before anything was sent, the server cannot be the cause.
  if (code == CURLE_OUT_OF_MEMORY && failure.wasSent && !failure.hasHeader) {
    return Row{code, badServerResponse, "a line of the answer's header is too long"};
  }
  // Damaged chunks and lost connections share a code, but only a lost connection leaves an errno;
  // with TLS there is none.
  if (code == CURLE_RECV_ERROR && failure.systemError == 0 && !failure.isSecure) {
    if (!failure.hasHeader) {
      return Row{code, badServerResponse, "the header of the answer is too long"};
    }
    if (failure.isChunked) {
      return Row{code, cannotParseResponse, "the answer's chunks are damaged"};
    }
  }
  return std::nullopt;
}

Row rowOf(const CurlFailure& failure) noexcept {
  if (const auto row = rowOfCircumstances(failure)) return *row;
  for (const Row& row : kRows) {
    if (row.curl == failure.code) return row;
  }
  return {failure.code, unknown, "the transfer failed"};
}

}  // namespace

std::shared_ptr<const URLError> urlErrorFor(const CurlFailure& failure) {
  const Row row = rowOf(failure);
  const std::string detail =
      failure.detail.empty() ? ::curl_easy_strerror(failure.code) : failure.detail;
  return makeURLError(row.code, std::string(row.sentence) + " (" + detail + ")");
}

std::shared_ptr<const URLError> errorOfMissingMemory() noexcept {
  static const auto error =
      makeURLError(dataLengthExceedsMaximum, "there is not enough memory for the answer");
  return error;
}

bool isMissingConnectivity(const CurlFailure& failure) noexcept {
  return (failure.code == CURLE_COULDNT_RESOLVE_HOST && !lacksDescriptors(failure)) ||
         failure.code == CURLE_COULDNT_RESOLVE_PROXY ||
         (failure.code == CURLE_COULDNT_CONNECT && isMissingRoute(failure.systemError));
}

bool isUnreachable(const URLError& error) noexcept {
  switch (error.code()) {
    case URLError::Code::timedOut:
    case URLError::Code::cannotFindHost:
    case URLError::Code::cannotConnectToHost:
    case URLError::Code::networkConnectionLost:
    case URLError::Code::dnsLookupFailed:
    case URLError::Code::notConnectedToInternet:
      return true;
    default:
      return false;
  }
}

}  // namespace ombrix::platform::detail
