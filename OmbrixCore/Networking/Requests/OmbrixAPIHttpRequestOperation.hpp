#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "OmbrixCore/Networking/Requests/HttpRequestOperation.hpp"

namespace ombrix {

/// A request to the product's web service: it carries the shared client's token, the user's
/// languages and a cache policy, and tells the client what the answer states about login, token and
/// maintenance.
///
/// It belongs to the client's environment at its creation: after a change it carries no token, and
/// its answer changes nothing about login, token and maintenance. The same holds for the answer of
/// another origin to which a redirect led. Set its fields before it is put on a queue.
///
/// The token goes to the server that the URL names: for a server other than the service's own use
/// an `HttpRequestOperation`.
class OmbrixAPIHttpRequestOperation : public HttpRequestOperation {
 public:
  using HttpRequestOperation::HttpRequestOperation;

  // Kept: nothing depends on it. The token is attached whenever there is one; gating it would log
  // out every caller that never sets this.
  [[nodiscard]] bool usesAuth() const noexcept { return usesAuth_; }
  void setUsesAuth(bool usesAuth) { usesAuth_ = usesAuth; }

  /// Whether stored answers are ignored; takes precedence over `cacheOnly`.
  // Kept: spelled so. Callers know it by this name.
  [[nodiscard]] bool disableCashe() const noexcept { return disableCashe_; }
  void setDisableCashe(bool isDisabled) { disableCashe_ = isDisabled; }

  /// Whether only a stored answer of any age is accepted.
  [[nodiscard]] bool cacheOnly() const noexcept { return cacheOnly_; }
  void setCacheOnly(bool cacheOnly) { cacheOnly_ = cacheOnly; }

  /// Which attempt this is, from 1.
  // Kept: nothing raises it and nothing is tried again by itself; a request that is not safe to
  // repeat would be sent twice. Policies that a host asks for do (`nextAttempt`).
  [[nodiscard]] int attempt() const noexcept { return attempt_; }
  void setAttempt(int attempt) { attempt_ = attempt; }

  /// Whether it is a transfer that may take long, which runs beside the client's queue of requests
  /// and takes no place there; set before it is added.
  [[nodiscard]] bool isLongTransfer() const noexcept { return isLongTransfer_; }
  void setLongTransfer(bool isLong) { isLongTransfer_ = isLong; }

  /// A new operation for the same request, with the next attempt's number; null if its answer can
  /// no longer go to the same destination.
  [[nodiscard]] std::shared_ptr<OmbrixAPIHttpRequestOperation> nextAttempt() const;

  /// True: if its token is refused (401), `loginError` stays as it is, since the caller will get a
  /// new token; set it before the operation is put on a queue.
  void setDefersLoginError(bool defers) { defersLoginError_ = defers; }

  /// Whether its token was refused.
  [[nodiscard]] bool hasDeferredLoginError() const noexcept { return hasDeferredLoginError_; }

  /// The token that the built request has; a secret.
  [[nodiscard]] const std::optional<std::string>& sentToken() const noexcept { return sentToken_; }

  /// The environment that it belongs to (`OmbrixServerAPI::environment`), for a URL that was made
  /// before the operation.
  [[nodiscard]] std::uint64_t environment() const noexcept { return environment_; }
  void setEnvironment(std::uint64_t environment) { environment_ = environment; }

  [[nodiscard]] std::optional<platform::URLRequest> buildRequest() override;

  /// Stores the answer's token, whatever the status, and judges the rest: 200 to 304 is a success;
  /// 400 and 401 mean that the login is invalid; 503 means maintenance, which every other answer
  /// ends.
  void handle(const platform::HTTPURLResponse& response, const platform::Error* error,
              std::optional<platform::JSON> json, std::optional<platform::Data> data) override;

  /// Adds it to the shared client's queue; a second time stops the program, naming the request.
  void enqueueForPublisher() override;

 protected:
  [[nodiscard]] bool runsOwnCodeOnly() const override;

 private:
  static std::uint64_t currentEnvironment();

  std::uint64_t environment_ = currentEnvironment();
  bool usesAuth_ = false;
  bool disableCashe_ = false;
  bool cacheOnly_ = false;
  bool isLongTransfer_ = false;
  bool defersLoginError_ = false;
  bool hasDeferredLoginError_ = false;
  std::optional<std::string> sentToken_;
  int attempt_ = 1;
  std::atomic<bool> wasPublished_ = false;
};

/// The "Accept-Language" field for the languages the user reads, the best one first: five of them
/// and "*", weighted downward; empty without any.
[[nodiscard]] std::string acceptLanguageField(std::span<const std::string> languages);

}  // namespace ombrix
