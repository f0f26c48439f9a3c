#pragma once

#include "OmbrixPlatform/Network/Curl/Detail/LoadedCurl.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "OmbrixPlatform/Network/URLSessionDelegate.hpp"

namespace ombrix::platform::detail {

/// What a session knows of the certificates of one host and port. Network thread only; where it
/// judges it must outlive every connection to its host.
class CurlTrust {
 public:
  using Fingerprint = std::array<std::byte, 32>;  // SHA-256 of a certificate

  enum class Decision : std::uint8_t {
    accept,    ///< this very certificate, whatever its name and issuer
    standard,  ///< as the system verifies it
  };

  /// A certificate that nobody has decided about: its handshake was refused.
  struct Question {
    Fingerprint leaf{};
    SecTrust trust;
  };

  CurlTrust(std::string host, std::uint16_t port) : host_(std::move(host)), port_(port) {}
  CurlTrust(const CurlTrust&) = delete;
  CurlTrust& operator=(const CurlTrust&) = delete;

  /// Watches the handshake of a transfer. Call it before each transfer.
  ///
  /// @param judges Whether its server is verified here; else libcurl does it alone.
  void install(CURL* easy, bool judges);

  /// What the server has said in handshakes since its last answer.
  struct HandshakeSigns {
    bool isCertificateAskedFor = false;  ///< one of the client's; it may do without
    bool isRefused = false;              ///< it has broken off for want of one
  };
  [[nodiscard]] HandshakeSigns& signs() const noexcept { return *signs_; }

  /// What is known of one connection. It may outlive what is known of its host.
  struct TLSConnection {
    std::shared_ptr<HandshakeSigns> signs;
    bool hasEnded = false;  ///< its server has said that nothing follows
  };
  /// That of the connection that a transfer is about to use; null without TLS.
  static std::shared_ptr<const TLSConnection> connectionOf(CURL* easy);

  /// Takes the question that has come up since the last call.
  std::optional<Question> takeQuestion() { return std::exchange(question_, std::nullopt); }

  void decide(const Fingerprint& leaf, Decision decision);
  [[nodiscard]] bool hasDecisions() const noexcept { return !decisions_.empty(); }

  [[nodiscard]] URLProtectionSpace spaceFor(SecTrust trust) const {
    return {host_, port_, std::move(trust)};
  }

 private:
  static CURLcode watch(CURL* easy, void* context, void* self) noexcept;
  static CURLcode watchAndJudge(CURL* easy, void* context, void* self) noexcept;
  static int verify(struct x509_store_ctx_st* store, void* self) noexcept;
  int judge(struct x509_store_ctx_st* store);
  [[nodiscard]] bool isForHost(struct x509_store_ctx_st* store) const;
  int verifyByDefault(struct x509_store_ctx_st* store) const;

  const std::string host_;
  const std::uint16_t port_;
  std::map<Fingerprint, Decision> decisions_;
  std::optional<Question> question_;
  const std::shared_ptr<HandshakeSigns> signs_ = std::make_shared<HandshakeSigns>();
  bool checksNameItself_ = false;  // libcurl's check is off since a certificate was accepted
};

/// The `X509_V_ERR` code by which a handshake fails that waits for a decision.
long undecidedVerifyResult() noexcept;

}  // namespace ombrix::platform::detail
