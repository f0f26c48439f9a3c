#include <arpa/inet.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <new>
#include <string_view>

#include "OmbrixPlatform/Network/Curl/Detail/CurlSockets.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/CurlTrust.hpp"

namespace ombrix::platform::detail {
namespace {

Data derOf(X509* certificate) {
  const int size = ::i2d_X509(certificate, nullptr);
  if (size <= 0) return {};
  Data der(static_cast<std::size_t>(size));
  auto* end = reinterpret_cast<unsigned char*>(der.data());
  ::i2d_X509(certificate, &end);
  return der;
}

std::optional<CurlTrust::Fingerprint> fingerprintOf(X509* certificate) {
  CurlTrust::Fingerprint fingerprint{};
  unsigned size = 0;
  auto* bytes = reinterpret_cast<unsigned char*>(fingerprint.data());
  if (certificate == nullptr || ::X509_digest(certificate, ::EVP_sha256(), bytes, &size) != 1) {
    return std::nullopt;
  }
  return fingerprint;
}

/// The certificates as they were sent, the server's own first.
SecTrust presented(X509_STORE_CTX* store, X509* leaf) {
  SecTrust trust;
  trust.certificates.push_back(derOf(leaf));
  const auto* chain = ::X509_STORE_CTX_get0_untrusted(store);
  for (int i = 0; i < sk_X509_num(chain); ++i) {
    X509* certificate = sk_X509_value(chain, i);
    if (::X509_cmp(certificate, leaf) != 0) trust.certificates.push_back(derOf(certificate));
  }
  return trust;
}

constexpr std::size_t kDecisionsKept = 64;

using Connection = std::shared_ptr<CurlTrust::TLSConnection>;

/// Where the context of a connection, which libcurl makes for each, keeps it.
int connectionIndex() {
  static const int index = ::SSL_CTX_get_ex_new_index(
      0, nullptr, nullptr, nullptr, [](void*, void* connection, CRYPTO_EX_DATA*, int, long, void*) {
        delete static_cast<Connection*>(connection);
      });
  return index;
}

Connection& connectionOf(const SSL* tls) {
  return *static_cast<Connection*>(
      ::SSL_CTX_get_ex_data(::SSL_get_SSL_CTX(tls), connectionIndex()));
}

/// Called when a server asks for a client certificate; the handshake goes on without one.
int certificateIsAskedFor(SSL* tls, void* /*nothing*/) {
  connectionOf(tls)->signs->isCertificateAskedFor = true;
  return 1;
}

/// Called for each step of a handshake and each alert.
void somethingHappened(const SSL* tls, int what, int value) {
  if (what != SSL_CB_READ_ALERT) return;
  CurlTrust::TLSConnection& connection = *connectionOf(tls);
  const int alert = value & 0xFF;
  connection.hasEnded = connection.hasEnded || alert == SSL3_AD_CLOSE_NOTIFY;
  if (value >> 8 != SSL3_AL_FATAL) return;
  switch (alert) {
    case SSL3_AD_HANDSHAKE_FAILURE:
    case SSL3_AD_NO_CERTIFICATE:
    case SSL3_AD_BAD_CERTIFICATE:
    case SSL3_AD_CERTIFICATE_UNKNOWN:
    case SSL3_AD_CERTIFICATE_EXPIRED:
    case SSL3_AD_CERTIFICATE_REVOKED:
    case SSL3_AD_UNSUPPORTED_CERTIFICATE:
    case TLS1_AD_UNKNOWN_CA:
    case TLS1_AD_ACCESS_DENIED:
    case TLS13_AD_CERTIFICATE_REQUIRED:
      connection.signs->isRefused = connection.signs->isCertificateAskedFor;
      return;
    default:
      return;
  }
}

}  // namespace

long undecidedVerifyResult() noexcept { return X509_V_ERR_APPLICATION_VERIFICATION; }

void CurlTrust::install(CURL* easy, bool judges) {
  // libcurl keeps the parsed bundle only where no folder is set; parsing it takes tens of
  // milliseconds for each connection. `watch` adds the folder.
  constexpr long kSecondsUntilReadAgain = 600;
  ::curl_easy_setopt(easy, CURLOPT_CA_CACHE_TIMEOUT, kSecondsUntilReadAgain);
  ::curl_easy_setopt(easy, CURLOPT_CAPATH, nullptr);
  ::curl_easy_setopt(easy, CURLOPT_PROXY_CAPATH, nullptr);
  ::curl_easy_setopt(easy, CURLOPT_SSL_CTX_FUNCTION, judges ? &watchAndJudge : &watch);
  ::curl_easy_setopt(easy, CURLOPT_SSL_CTX_DATA, this);
  if (!judges) return;
  // With a resumed session nobody would look at the certificate.
  ::curl_easy_setopt(easy, CURLOPT_SSL_SESSIONID_CACHE, 0L);
  ::curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, checksNameItself_ ? 0L : 2L);
}

std::shared_ptr<const CurlTrust::TLSConnection> CurlTrust::connectionOf(CURL* easy) {
  const SSL* tls = tlsOf(easy);
  return tls == nullptr ? nullptr : detail::connectionOf(tls);
}

void CurlTrust::decide(const Fingerprint& leaf, Decision decision) {
  if (decisions_.size() >= kDecisionsKept) decisions_.clear();  // they are asked for again
  decisions_[leaf] = decision;
  checksNameItself_ = checksNameItself_ || decision == Decision::accept;
}

CURLcode CurlTrust::watch(CURL* easy, void* context, void* self) noexcept {
  auto* sslContext = static_cast<SSL_CTX*>(context);
  const char* folder = nullptr;
  ::curl_easy_getinfo(easy, CURLINFO_CAPATH, &folder);
  if (folder != nullptr && ::SSL_CTX_load_verify_dir(sslContext, folder) != 1) {
    return CURLE_SSL_CACERT_BADFILE;
  }
  try {
    auto connection = std::make_unique<Connection>(std::make_shared<TLSConnection>());
    (*connection)->signs = static_cast<CurlTrust*>(self)->signs_;
    if (::SSL_CTX_set_ex_data(sslContext, connectionIndex(), connection.get()) != 1) {
      return CURLE_OUT_OF_MEMORY;
    }
    (void)connection.release();  // the context's
  } catch (const std::bad_alloc&) {
    return CURLE_OUT_OF_MEMORY;
  }
  ::SSL_CTX_set_cert_cb(sslContext, &certificateIsAskedFor, nullptr);
  ::SSL_CTX_set_info_callback(sslContext, &somethingHappened);
  // A client certificate is only given in the handshake, so a later request for one finds none.
  ::SSL_CTX_set_options(sslContext, SSL_OP_NO_RENEGOTIATION);
  ::SSL_CTX_set_post_handshake_auth(sslContext, 0);
  return CURLE_OK;
}

CURLcode CurlTrust::watchAndJudge(CURL* easy, void* context, void* self) noexcept {
  ::SSL_CTX_set_cert_verify_callback(static_cast<SSL_CTX*>(context), &verify, self);
  return watch(easy, context, self);
}

/// No exception may pass through OpenSSL.
int CurlTrust::verify(X509_STORE_CTX* store, void* self) noexcept {
  try {
    return static_cast<CurlTrust*>(self)->judge(store);
  } catch (const std::bad_alloc&) {
    ::X509_STORE_CTX_set_error(store, X509_V_ERR_OUT_OF_MEM);
    return 0;
  }
}

int CurlTrust::judge(X509_STORE_CTX* store) {
  if (!isForHost(store)) return ::X509_verify_cert(store);
  X509* leaf = ::X509_STORE_CTX_get0_cert(store);
  const auto fingerprint = fingerprintOf(leaf);
  if (!fingerprint) {
    ::X509_STORE_CTX_set_error(store, X509_V_ERR_UNSPECIFIED);
    return 0;
  }
  const auto found = decisions_.find(*fingerprint);
  if (found == decisions_.end()) {
    question_ = Question{*fingerprint, presented(store, leaf)};
    ::X509_STORE_CTX_set_error(store, X509_V_ERR_APPLICATION_VERIFICATION);
    return 0;
  }
  if (found->second == Decision::standard) return verifyByDefault(store);
  ::X509_STORE_CTX_set_error(store, X509_V_OK);
  return 1;
}

/// Whether the handshake is with the host itself. libcurl also calls this for handshakes with a
/// proxy, whose certificate it verifies on its own. The server name that a handshake asks for tells
/// them apart; addresses have no such name.
bool CurlTrust::isForHost(X509_STORE_CTX* store) const {
  const auto* handshake = static_cast<const SSL*>(
      ::X509_STORE_CTX_get_ex_data(store, ::SSL_get_ex_data_X509_STORE_CTX_idx()));
  const char* asked = ::SSL_get_servername(handshake, TLSEXT_NAMETYPE_host_name);
  in_addr address{};
  const bool isAddress = host_.contains(':') || ::inet_pton(AF_INET, host_.c_str(), &address) == 1;
  if (asked == nullptr || isAddress) return asked == nullptr && isAddress;
  const std::string_view name = host_;
  return name.substr(0, name.size() - (name.ends_with('.') ? 1 : 0)) == asked;
}

int CurlTrust::verifyByDefault(X509_STORE_CTX* store) const {
  if (checksNameItself_) {
    X509_VERIFY_PARAM* parameters = ::X509_STORE_CTX_get0_param(store);
    if (::X509_VERIFY_PARAM_set1_ip_asc(parameters, host_.c_str()) != 1) {
      ::X509_VERIFY_PARAM_set1_host(parameters, host_.c_str(), host_.size());
    }
  }
  return ::X509_verify_cert(store);
}

}  // namespace ombrix::platform::detail
