#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace ombrix::platform {

/// What a session shows a server that asks who it is: PEM files, read for each connection. What
/// cannot be read, or is refused, is `clientCertificateRejected`.
struct URLClientCertificate {
  std::filesystem::path certificate;  ///< with those behind it that lead to its authority
  std::filesystem::path key;          ///< empty: it lies in the same file
  std::string passphrase;             ///< of the key; empty: none
};

/// The way out of a network. For a server behind it that speaks TLS it carries bytes only; what is
/// wrong with it is `cannotConnectToHost` or `cannotFindHost`.
struct URLProxy {
  /// "http://HOST:PORT", or with "https", "socks5" or "socks5h"; empty: no proxy, whatever the
  /// environment says.
  std::string address;

  std::string user, password;  ///< empty: none

  /// Hosts that are reached without it; "example.com" stands for those below it, too. This machine
  /// always is.
  std::vector<std::string> exceptions;
};

/// How connections of a session are made otherwise than by default. A value.
struct URLConnectionSettings {
  /// Keys of servers, by host: the SHA-256 of a public key (its SubjectPublicKeyInfo in DER), in
  /// base64. Beside the ordinary check, not in its place, the server's own key must be among those
  /// of its host, else it is not trusted (`serverCertificateUntrusted`), and no request is sent.
  /// Hosts that are not named need none; one without keys has none that is right.
  ///
  ///     openssl pkey -pubin -in key.pem -outform der | openssl dgst -sha256 -binary | base64
  std::map<std::string, std::vector<std::string>> pinnedKeys = {};

  /// By host, for those that ask.
  std::map<std::string, URLClientCertificate> clientCertificates = {};

  /// Nothing: that of the environment ("http_proxy", "https_proxy", "all_proxy", "no_proxy").
  std::optional<URLProxy> proxy = std::nullopt;
};

}  // namespace ombrix::platform
