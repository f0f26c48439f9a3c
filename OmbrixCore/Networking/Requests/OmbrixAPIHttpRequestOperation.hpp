#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "OmbrixCore/Networking/Requests/HttpRequestOperation.hpp"

namespace ombrix {

/// A request to the product's web service: carries the shared client's token, the user's languages
/// and a cache policy, and tells the client what the answer says of login, token and maintenance.
///
/// It belongs to the environment that the client is in when it is made: after a change it carries
/// no token, and its answer says nothing of login, token and maintenance. Nor does the answer of
/// another origin, to which a redirect led. Its fields are set before it is put on a queue.
///
/// The token goes to whatever server the URL names: a request to one that is not the service's own
/// is an `HttpRequestOperation`.
class OmbrixAPIHttpRequestOperation : public HttpRequestOperation {
 public:
  using HttpRequestOperation::HttpRequestOperation;

  // Kept: nothing depends on it. The token is attached whenever there is one; gating it would log
  // out every caller that never sets this.
  [[nodiscard]] bool usesAuth() const noexcept { return usesAuth_; }
  void setUsesAuth(bool usesAuth) { usesAuth_ = usesAuth; }

  /// Whether stored answers are passed over; wins over `cacheOnly`.
  // Kept: spelled so. Callers know it by this name.
  [[nodiscard]] bool disableCashe() const noexcept { return disableCashe_; }
  void setDisableCashe(bool isDisabled) { disableCashe_ = isDisabled; }

  /// Whether only a stored answer will do, however old.
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

  /// A fresh operation for the same request, one attempt further; null where its answer can no more
  /// go where it went before.
  [[nodiscard]] std::shared_ptr<OmbrixAPIHttpRequestOperation> nextAttempt() const;

  /// True: where the token that it was sent with is refused (401), `loginError` stays as it is, for
  /// who gets a new one; set before it is put on a queue.
  void setDefersLoginError(bool defers) { defersLoginError_ = defers; }

  /// Whether that was the case.
  [[nodiscard]] bool hasDeferredLoginError() const noexcept { return hasDeferredLoginError_; }

  /// The token that the built request has; a secret.
  [[nodiscard]] const std::optional<std::string>& sentToken() const noexcept { return sentToken_; }

  /// The environment that it belongs to (`OmbrixServerAPI::environment`), where its URL was made
  /// before it.
  [[nodiscard]] std::uint64_t environment() const noexcept { return environment_; }
  void setEnvironment(std::uint64_t environment) { environment_ = environment; }

  [[nodiscard]] std::optional<platform::URLRequest> buildRequest() override;

  /// Stores the token that the answer carries, whatever its status, and sorts the rest: 200 to 304
  /// is a success; 400 and 401 mean that the login is invalid; 503 means maintenance, which every
  /// other answer ends.
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
