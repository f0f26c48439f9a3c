#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace ombrix::platform {

/// The client certificate that a session shows to servers that ask for one: PEM files, read for
/// each connection. One that cannot be read or is refused fails as `clientCertificateRejected`.
struct URLClientCertificate {
  std::filesystem::path certificate;  ///< followed by those that lead to its authority
  std::filesystem::path key;          ///< empty: it lies in the same file
  std::string passphrase;             ///< of the key; empty: none
};

/// A proxy. To a server that speaks TLS it only carries bytes. Its failures are
/// `cannotConnectToHost` or `cannotFindHost`.
struct URLProxy {
  /// "http://HOST:PORT", or with "https", "socks5" or "socks5h"; empty: no proxy, whatever the
  /// environment says.
  std::string address;

  std::string user, password;  ///< empty: none

  /// Hosts that are reached without it; "example.com" stands for its subdomains, too. This machine
  /// is always reached without it.
  std::vector<std::string> exceptions;
};

/// How a session's connections differ from the default. A value.
struct URLConnectionSettings {
  /// Keys of servers, by host: the SHA-256 of a public key (its SubjectPublicKeyInfo in DER), in
  /// base64. In addition to the ordinary check the server's own key must be among those of its
  /// host; otherwise it is not trusted (`serverCertificateUntrusted`) and no request is sent. A
  /// host that is not named here needs no key; for a host with an empty list no key is right.
  ///
  ///     openssl pkey -pubin -in key.pem -outform der | openssl dgst -sha256 -binary | base64
  std::map<std::string, std::vector<std::string>> pinnedKeys = {};

  /// By host, for servers that ask for one.
  std::map<std::string, URLClientCertificate> clientCertificates = {};

  /// Empty: that of the environment ("http_proxy", "https_proxy", "all_proxy", "no_proxy").
  std::optional<URLProxy> proxy = std::nullopt;
};

}  // namespace ombrix::platform
