#pragma once

#include <filesystem>
#include <string>

#include "OmbrixPlatform/Network/URLSessionDelegate.hpp"

namespace ombrix::platform::detail {

/// The only issuers of certificates that are trusted to vouch for a server. Any thread.
class CertificateAuthorities {
 public:
  /// @param file Certificates in PEM form; read at each use.
  explicit CertificateAuthorities(std::filesystem::path file) : file_(std::move(file)) {}

  /// Throws `Error` when the file holds no certificate that can be read.
  void check() const;

  /// Whether they vouch now for the certificates that a server has presented, and these for the
  /// host's name or address.
  [[nodiscard]] bool vouchFor(const SecTrust& trust, const std::string& host) const;

 private:
  const std::filesystem::path file_;
};

/// A delegate for sessions that trust these alone.
class AuthoritiesDelegate : public URLSessionDelegate {
 public:
  explicit AuthoritiesDelegate(const std::filesystem::path& file) : authorities_(file) {}

  [[nodiscard]] bool judgesServers(const std::string& /*host*/) const override { return true; }
  void didReceiveChallenge(URLSession& session, const URLAuthenticationChallenge& challenge,
                           ChallengeHandler completionHandler) override;

 private:
  const CertificateAuthorities authorities_;
};

}  // namespace ombrix::platform::detail
