#pragma once

#include <memory>
#include <string>

struct ssl_ctx_st;

namespace ombrix::devserver {

/// The kind of a TLS server's certificate; all are made at start, with a new key for each run.
enum class Certificate {
  selfSigned,     ///< For api.ombrix.test, localhost, 127.0.0.1 and ::1.
  wrongHost,      ///< The same for another host only.
  expired,        ///< The same, valid until yesterday.
  fromAuthority,  ///< Signed by the server's own authority (`Identity::authorityPEM`).
};

/// A server's key and certificate, ready for its TLS connections.
struct Identity {
  std::shared_ptr<ssl_ctx_st> context;
  std::string authorityPEM;  ///< The one a client must trust: the authority's or its own.
};

/// Makes a key and a certificate in memory. Throws `platform::Error`. Any thread.
///
/// @param clientAuthorityPEM Clients must present a certificate signed by this one, or this one
///   itself; if empty, they are not asked.
Identity makeIdentity(Certificate kind, const std::string& clientAuthorityPEM = {});

/// The certificate and key with which a client identifies itself, as PEM.
struct ClientIdentity {
  std::string certificatePEM;  ///< Signed by itself.
  std::string keyPEM;
};

/// Makes one in memory. Throws `platform::Error`. Any thread.
///
/// @param passphrase Of the key; if empty, the key is not encrypted.
ClientIdentity makeClientIdentity(const std::string& passphrase = {});

}  // namespace ombrix::devserver
