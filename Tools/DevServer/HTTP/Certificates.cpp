#include "Tools/DevServer/HTTP/Certificates.hpp"

#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <cstdint>
#include <string_view>

#include "OmbrixPlatform/Values/Error.hpp"

namespace ombrix::devserver {
namespace {

constexpr long kDaySeconds = 86'400;
constexpr const char* kNames = "DNS:api.ombrix.test,DNS:localhost,IP:127.0.0.1,IP:0:0:0:0:0:0:0:1";
constexpr const char* kOtherNames = "DNS:elsewhere.ombrix.test";

struct Deleter {
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
  void operator()(X509* certificate) const { X509_free(certificate); }
  void operator()(X509_EXTENSION* extension) const { X509_EXTENSION_free(extension); }
  void operator()(BIO* bio) const { BIO_free(bio); }
};
template <class T>
using Owned = std::unique_ptr<T, Deleter>;

template <class T>
T* made(T* object) {
  if (object == nullptr) throw platform::Error("OpenSSL could not make a certificate");
  return object;
}
void check(long result) {
  if (result <= 0) throw platform::Error("OpenSSL could not make a certificate");
}

void addExtension(X509* certificate, X509* issuer, int kind, const char* value) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  const Owned<X509_EXTENSION> extension(made(X509V3_EXT_conf_nid(nullptr, &context, kind, value)));
  check(X509_add_ext(certificate, extension.get(), -1));
}

struct Pair {
  Owned<EVP_PKEY> key;
  Owned<X509> certificate;
};

/// Makes a key and an unsigned certificate.
Pair makePair(const char* name, long validFromDays, long validUntilDays) {
  char curve[] = "P-256";
  EVP_PKEY* const key = EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", curve);
  Pair pair{Owned<EVP_PKEY>(made(key)), Owned<X509>(made(X509_new()))};
  X509* certificate = pair.certificate.get();
  check(X509_set_version(certificate, X509_VERSION_3));
  std::uint64_t serial = 0;
  check(RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof serial));
  check(ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), serial >> 1U));
  made(X509_gmtime_adj(X509_getm_notBefore(certificate), validFromDays * kDaySeconds));
  made(X509_gmtime_adj(X509_getm_notAfter(certificate), validUntilDays * kDaySeconds));
  check(X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_UTF8,
                                   reinterpret_cast<const unsigned char*>(name), -1, -1, 0));
  check(X509_set_pubkey(certificate, pair.key.get()));
  return pair;
}

void sign(Pair& pair, const Pair& issuer) {
  check(X509_set_issuer_name(pair.certificate.get(),
                             X509_get_subject_name(issuer.certificate.get())));
  check(X509_sign(pair.certificate.get(), issuer.key.get(), EVP_sha256()));
}

Pair makeAuthority() {
  Pair authority = makePair("Ombrix development authority", -1, 30);
  X509* certificate = authority.certificate.get();
  addExtension(certificate, certificate, NID_basic_constraints, "critical,CA:TRUE");
  addExtension(certificate, certificate, NID_key_usage, "critical,keyCertSign,cRLSign");
  addExtension(certificate, certificate, NID_subject_key_identifier, "hash");
  sign(authority, authority);
  return authority;
}

std::string textOf(BIO* bio) {
  char* bytes = nullptr;
  const long length = BIO_get_mem_data(bio, &bytes);
  return {bytes, static_cast<std::size_t>(length)};
}

std::string pemOf(X509* certificate) {
  const Owned<BIO> bio(made(BIO_new(BIO_s_mem())));
  check(PEM_write_bio_X509(bio.get(), certificate));
  return textOf(bio.get());
}

void demandClientCertificate(SSL_CTX* context, const std::string& authorityPEM) {
  const Owned<BIO> bio(
      made(BIO_new_mem_buf(authorityPEM.data(), static_cast<int>(authorityPEM.size()))));
  const Owned<X509> authority(made(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr)));
  check(X509_STORE_add_cert(SSL_CTX_get_cert_store(context), authority.get()));
  check(SSL_CTX_add_client_CA(context, authority.get()));
  SSL_CTX_set_verify(context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
  constexpr std::string_view kSessions = "ombrix";
  check(SSL_CTX_set_session_id_context(
      context, reinterpret_cast<const unsigned char*>(kSessions.data()), kSessions.size()));
}

// Chooses HTTP/1.1 from the client's offer, so that a client that prefers HTTP/2 learns of it.
int chooseProtocol(SSL*, const unsigned char** chosen, unsigned char* length,
                   const unsigned char* offered, unsigned int offeredLength, void*) {
  static constexpr unsigned char kSpoken[] = "\x08http/1.1";
  unsigned char* selected = nullptr;
  const int result =
      SSL_select_next_proto(&selected, length, kSpoken, sizeof kSpoken - 1, offered, offeredLength);
  *chosen = selected;
  return result == OPENSSL_NPN_NEGOTIATED ? SSL_TLSEXT_ERR_OK : SSL_TLSEXT_ERR_NOACK;
}

}  // namespace

Identity makeIdentity(Certificate kind, const std::string& clientAuthorityPEM) {
  // OpenSSL must not clean up at exit: threads of the process may still use it.
  ::OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
  const bool isExpired = kind == Certificate::expired;
  Pair server = makePair("api.ombrix.test", isExpired ? -10 : -1, isExpired ? -1 : 30);
  X509* certificate = server.certificate.get();
  addExtension(certificate, certificate, NID_subject_alt_name,
               kind == Certificate::wrongHost ? kOtherNames : kNames);
  addExtension(certificate, certificate, NID_basic_constraints, "critical,CA:FALSE");
  addExtension(certificate, certificate, NID_ext_key_usage, "serverAuth");

  Identity identity;
  if (kind == Certificate::fromAuthority) {
    const Pair authority = makeAuthority();
    sign(server, authority);
    identity.authorityPEM = pemOf(authority.certificate.get());
  } else {
    sign(server, server);
    identity.authorityPEM = pemOf(certificate);
  }
  identity.context.reset(made(SSL_CTX_new(TLS_server_method())), SSL_CTX_free);
  SSL_CTX* context = identity.context.get();
  check(SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION));
  check(SSL_CTX_use_certificate(context, certificate));
  check(SSL_CTX_use_PrivateKey(context, server.key.get()));
  SSL_CTX_set_mode(context, SSL_MODE_RELEASE_BUFFERS);
  SSL_CTX_set_alpn_select_cb(context, chooseProtocol, nullptr);
  if (!clientAuthorityPEM.empty()) demandClientCertificate(context, clientAuthorityPEM);
  return identity;
}

ClientIdentity makeClientIdentity(const std::string& passphrase) {
  Pair client = makePair("A client", -1, 30);
  addExtension(client.certificate.get(), client.certificate.get(), NID_ext_key_usage, "clientAuth");
  sign(client, client);
  const Owned<BIO> bio(made(BIO_new(BIO_s_mem())));
  check(PEM_write_bio_PKCS8PrivateKey(
      bio.get(), client.key.get(), passphrase.empty() ? nullptr : EVP_aes_256_cbc(), nullptr, 0,
      nullptr, passphrase.empty() ? nullptr : const_cast<char*>(passphrase.c_str())));
  return {.certificatePEM = pemOf(client.certificate.get()), .keyPEM = textOf(bio.get())};
}

}  // namespace ombrix::devserver
