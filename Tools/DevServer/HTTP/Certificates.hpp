#pragma once

#include <memory>
#include <string>

struct ssl_ctx_st;

namespace ombrix::devserver {

/// The certificate a TLS server shows; all are made at start, for a run's key of their own.
enum class Certificate {
  selfSigned,     ///< For api.ombrix.test, localhost, 127.0.0.1 and ::1.
  wrongHost,      ///< The same for another host only.
  expired,        ///< The same, valid until yesterday.
  fromAuthority,  ///< Signed by an authority of the server's own (`Identity::authorityPEM`).
};

/// A server's key and certificate, ready for its TLS connections.
struct Identity {
  std::shared_ptr<ssl_ctx_st> context;
  std::string authorityPEM;  ///< What a client has to trust: the authority's or its own.
};

/// Makes a key and a certificate in memory. Throws `platform::Error`. Any thread.
///
/// @param clientAuthorityPEM Clients have to show a certificate that this one has signed, or this
///   one itself; empty: they are not asked.
Identity makeIdentity(Certificate kind, const std::string& clientAuthorityPEM = {});

/// What a client shows who it is by, as PEM.
struct ClientIdentity {
  std::string certificatePEM;  ///< Signed by itself.
  std::string keyPEM;
};

/// Makes one in memory. Throws `platform::Error`. Any thread.
///
/// @param passphrase Of the key; empty: it is not encrypted.
ClientIdentity makeClientIdentity(const std::string& passphrase = {});

}  // namespace ombrix::devserver
