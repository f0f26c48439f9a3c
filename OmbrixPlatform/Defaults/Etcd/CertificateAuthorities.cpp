#include "OmbrixPlatform/Defaults/Etcd/Detail/CertificateAuthorities.hpp"

#include <openssl/err.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <memory>

#include "OmbrixPlatform/Detail/OpenSSL.hpp"
#include "OmbrixPlatform/Values/Error.hpp"

namespace ombrix::platform::detail {
namespace {

template <auto kFree>
struct FreedBy {
  template <class T>
  void operator()(T* object) const {
    kFree(object);
  }
};
using Store = std::unique_ptr<X509_STORE, FreedBy<&X509_STORE_free>>;
using Certificate = std::unique_ptr<X509, FreedBy<&X509_free>>;
using Context = std::unique_ptr<X509_STORE_CTX, FreedBy<&X509_STORE_CTX_free>>;

struct FreeStack {
  void operator()(STACK_OF(X509) * stack) const { sk_X509_pop_free(stack, X509_free); }
};
using Chain = std::unique_ptr<STACK_OF(X509), FreeStack>;

/// The issuers in a file; null when there are none.
Store storeOf(const std::filesystem::path& file) {
  setUpOpenSSL();
  Store store(::X509_STORE_new());
  const bool isLoaded = store && ::X509_STORE_load_file(store.get(), file.c_str()) == 1;
  ::ERR_clear_error();
  return isLoaded ? std::move(store) : nullptr;
}

Certificate certificateFrom(const Data& der) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(der.data());
  return Certificate(::d2i_X509(nullptr, &bytes, static_cast<long>(der.size())));
}

}  // namespace

void CertificateAuthorities::check() const {
  if (!storeOf(file_)) throw Error("no certificates can be read from " + file_.string());
}

bool CertificateAuthorities::vouchFor(const SecTrust& trust, const std::string& host) const {
  const Store store = storeOf(file_);
  const Context context(::X509_STORE_CTX_new());
  const Chain chain(sk_X509_new_null());
  if (!store || !context || !chain || trust.certificates.empty()) return false;
  for (const Data& der : trust.certificates) {
    Certificate certificate = certificateFrom(der);
    if (!certificate || sk_X509_push(chain.get(), certificate.get()) == 0) return false;
    static_cast<void>(certificate.release());  // The chain owns it now.
  }
  X509* own = sk_X509_value(chain.get(), 0);
  if (::X509_STORE_CTX_init(context.get(), store.get(), own, chain.get()) != 1) return false;
  ::X509_STORE_CTX_set_purpose(context.get(), X509_PURPOSE_SSL_SERVER);
  X509_VERIFY_PARAM* expected = ::X509_STORE_CTX_get0_param(context.get());
  const bool isBracketed = host.starts_with('[') && host.ends_with(']');
  const std::string name = isBracketed ? host.substr(1, host.size() - 2) : host;
  const bool isExpected = ::X509_VERIFY_PARAM_set1_ip_asc(expected, name.c_str()) == 1 ||
                          ::X509_VERIFY_PARAM_set1_host(expected, name.c_str(), name.size()) == 1;
  const bool isTrusted = isExpected && ::X509_verify_cert(context.get()) == 1;
  ::ERR_clear_error();
  return isTrusted;
}

void AuthoritiesDelegate::didReceiveChallenge(URLSession& /*session*/,
                                              const URLAuthenticationChallenge& challenge,
                                              ChallengeHandler completionHandler) {
  using enum AuthChallengeDisposition;
  const auto& [host, port, trust] = challenge.protectionSpace;
  if (trust && authorities_.vouchFor(*trust, host)) {
    return completionHandler(useCredential, URLCredential{*trust});
  }
  completionHandler(cancelAuthenticationChallenge, std::nullopt);
}

}  // namespace ombrix::platform::detail
