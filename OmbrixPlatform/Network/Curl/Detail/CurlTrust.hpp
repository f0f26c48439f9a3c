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

/// What a session knows about the certificates of one host and port. Network thread only; if it
/// judges them, it must outlive every connection to its host.
class CurlTrust {
 public:
  using Fingerprint = std::array<std::byte, 32>;  // SHA-256 of a certificate

  enum class Decision : std::uint8_t {
    accept,    ///< this very certificate, whatever its name and issuer
    standard,  ///< if the system's check passes
  };

  /// A certificate that nobody has decided about yet: its handshake was refused.
  struct Question {
    Fingerprint leaf{};
    SecTrust trust;
  };

  CurlTrust(std::string host, std::uint16_t port) : host_(std::move(host)), port_(port) {}
  CurlTrust(const CurlTrust&) = delete;
  CurlTrust& operator=(const CurlTrust&) = delete;

  /// Watches the handshake of a transfer. Called before each transfer.
  ///
  /// @param judges Whether this object verifies the server; otherwise libcurl alone does.
  void install(CURL* easy, bool judges);

  /// What the server has asked for in handshakes since its last answer.
  struct HandshakeSigns {
    bool isCertificateAskedFor = false;  ///< a client certificate; it may accept none
    bool isRefused = false;              ///< it broke off because it got none
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

/// The `X509_V_ERR` code with which a handshake fails whose certificate awaits a decision.
long undecidedVerifyResult() noexcept;

}  // namespace ombrix::platform::detail
