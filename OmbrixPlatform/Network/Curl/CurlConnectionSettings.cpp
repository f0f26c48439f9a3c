#include "OmbrixPlatform/Network/Curl/Detail/CurlConnectionSettings.hpp"

#include "OmbrixPlatform/Network/HTTPHeaders.hpp"

namespace ombrix::platform::detail {
namespace {

/// The value of a host's entry, whose name is compared without regard to case; null without one.
template <class Value>
const Value* entryFor(const std::map<std::string, Value>& entries, const std::string& host) {
  for (const auto& [name, value] : entries) {
    if (headerNamesEqual(name, host)) return &value;
  }
  return nullptr;
}

}  // namespace

CurlConnectionSettings::CurlConnectionSettings(const URLConnectionSettings& settings,
                                               const std::string& host)
    : certificate_(entryFor(settings.clientCertificates, host)),
      proxy_(settings.proxy ? &*settings.proxy : nullptr) {
  if (const auto* keys = entryFor(settings.pinnedKeys, host)) {
    keys_ = keys->empty() ? "sha256//" : "";  // which no key has
    for (const std::string& key : *keys) {
      keys_->append(keys_->empty() ? "sha256//" : ";sha256//").append(key);
    }
  }
  if (proxy_ == nullptr) return;
  for (const std::string& exception : proxy_->exceptions) {
    exceptions_.append(exceptions_.empty() ? "" : ",").append(exception);
  }
}

bool CurlConnectionSettings::install(CURL* easy, bool isSecure) const {
  bool isSet = true;
  const auto set = [&](CURLoption option, const std::string& value) {
    isSet = isSet && ::curl_easy_setopt(easy, option, value.c_str()) == CURLE_OK;
  };
  if (proxy_ != nullptr) {
    set(CURLOPT_PROXY, proxy_->address);
    set(CURLOPT_NOPROXY, exceptions_);  // in the place of the environment's, also where empty
    if (!proxy_->user.empty()) set(CURLOPT_PROXYUSERNAME, proxy_->user);
    if (!proxy_->password.empty()) set(CURLOPT_PROXYPASSWORD, proxy_->password);
  }
  if (!isSecure) return isSet;
  if (keys_) set(CURLOPT_PINNEDPUBLICKEY, *keys_);
  if (certificate_ == nullptr) return isSet;
  const bool isOneFile = certificate_->key.empty();
  set(CURLOPT_SSLCERT, certificate_->certificate.string());
  set(CURLOPT_SSLKEY, (isOneFile ? certificate_->certificate : certificate_->key).string());
  if (!certificate_->passphrase.empty()) set(CURLOPT_KEYPASSWD, certificate_->passphrase);
  return isSet;
}

}  // namespace ombrix::platform::detail
