#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <expected>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "OmbrixCore/Networking/APIEndpoint.hpp"
#include "OmbrixCore/Networking/CompletionSubscriptions.hpp"
#include "OmbrixCore/Networking/ObservableFlag.hpp"
#include "OmbrixCore/Networking/Requests/HTTPRequestOperationPublisher.hpp"
#include "OmbrixCore/Networking/Requests/OmbrixAPIHttpRequestOperation.hpp"
#include "OmbrixCore/Networking/ServerConfiguration.hpp"
#include "OmbrixCore/Networking/ServiceConditions.hpp"
#include "OmbrixPlatform/Coding/JSONDecoder.hpp"
#include "OmbrixPlatform/Concurrency/NSOperationQueue.hpp"
#include "OmbrixPlatform/Network/NWPathMonitor.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixPlatform/Text/DateFormatter.hpp"

namespace ombrix::testing {
class ScopedServerAPI;
}

namespace ombrix {

/// The client of the product's web service: session and cache, the queue of all requests, the
/// token, and the conditions that the application reacts to.
///
/// Observable keys: "hasOperations", "isReachable", "isLimited", "isExpensive", "loginError" and
/// "serverIsInMaintenanceMode", announced on changes only, on the thread that brings one about (of
/// changes that overlap, on that of the first). Any thread.
class OmbrixServerAPI final : public platform::KeyValueObserving<bool>,
                              public std::enable_shared_from_this<OmbrixServerAPI> {
  struct Passkey {};

 public:
  using HTTPMethod = HttpRequestOperation::HTTPMethod;
  using Payload = std::optional<HTTPPayload>;
  template <class Output>
  using APIPublisher = platform::AnyPublisher<Output, HTTPError>;
  template <class Output>
  using Result = std::expected<Output, HTTPError>;

  /// The one client, made on first use, which starts its path monitor; session and queue are made
  /// when they are first needed.
  static OmbrixServerAPI& sharedInstance();

  OmbrixServerAPI(Passkey, ServerConfiguration configuration);
  ~OmbrixServerAPI() override;

  /// @name Environment
  /// @{

  /// Switches the shared client to another environment: sessions and token of the old one are let
  /// go of. Requests made before end as they were made, against the old one.
  static void change(APIEndpoint endpoint);

  /// Uses other servers from now on; sessions and token are let go of as by `change`.
  void setConfiguration(ServerConfiguration configuration);

  [[nodiscard]] APIEndpoint endPoint() const;

  /// Grows with each change of environment or servers: tells requests of the one before apart.
  [[nodiscard]] std::uint64_t environment() const;
  [[nodiscard]] std::string baseURL() const;
  [[nodiscard]] std::string baseHost() const;

  /// The root of the versioned interface: "api/v1/" below the base URL.
  [[nodiscard]] platform::URL apiEndpoint() const;

  /// The root of everything else: the base URL.
  [[nodiscard]] platform::URL endpoint() const;

  /// @}
  /// @name Sessions
  /// @{

  /// Runs all requests: 25 s without progress, 30 s in all, waits for connectivity, caches. Made on
  /// first use and again after the environment changed.
  [[nodiscard]] std::shared_ptr<platform::URLSession> session();

  /// A session of its own for transfers that may take long. They end with the process.
  [[nodiscard]] std::shared_ptr<platform::URLSession> backgroundSession();

  /// Bytes on disk of the session's cache and of the process's shared session's.
  [[nodiscard]] std::int64_t cacheSize();

  /// Removes all answers from both.
  void clearCaches();

  /// @}
  /// @name Operations
  /// @{

  /// The queue of all requests, "API Queue": as many at a time as a session opens connections to
  /// one host, started on `dispatchQueue`.
  [[nodiscard]] std::shared_ptr<platform::NSOperationQueue> operationQueue();

  /// The queue that operations start and publishers deliver on; concurrent, named by the main
  /// bundle's identifier and ".api".
  [[nodiscard]] static const std::shared_ptr<platform::DispatchQueue>& dispatchQueue();

  void addOperation(std::shared_ptr<OmbrixAPIHttpRequestOperation> operation);

  /// Cancels what is on the queue now. Cancelled operations never answer: whoever awaits a
  /// publisher of one is released by cancelling that wait, and the completion of a wrapper is kept
  /// until `cancelRequestWithID` is given its ID.
  void cancelAllOperations();

  void waitUntilAllOperationsAreFinished();

  /// Cancels the unfinished operation on the queue with that `taskID`, which then never answers,
  /// and the subscription that a completion wrapper keeps under that ID. Takes constant time.
  void cancelRequestWithID(const platform::UUID& id);

  /// Whether a request is on the queue or tracked outside of it.
  [[nodiscard]] bool hasOperations() const { return hasOperations_.value(); }

  /// A request outside of this client begins, and ends; more ends than beginnings count as none.
  void trackExternalHTTPRequest();
  void completeExternalHTTPRequest();

  /// @}
  /// @name Conditions
  /// @{

  /// The bearer token of the signed-in user; in memory only. None for an environment of the past.
  [[nodiscard]] std::optional<std::string> jwtToken() const;
  [[nodiscard]] std::optional<std::string> jwtToken(std::uint64_t ofEnvironment) const;
  void setJwtToken(std::optional<std::string> token);

  /// Stores in one step what the answer to a request of an environment says, then calls handlers;
  /// neither when another environment is the current one.
  void take(ServiceConditions conditions, std::uint64_t environment);

  /// Whether the login is no longer valid; ended by `clearLoginError` only.
  [[nodiscard]] bool loginError() const { return loginError_.value(); }
  void setLoginError(bool isInvalid) { loginError_.set(isInvalid); }
  void triggerLoginError() { setLoginError(true); }
  void clearLoginError() { setLoginError(false); }

  /// Called once for each time that `loginError` becomes true, on that thread.
  void setForceLogoutHandler(std::function<void()> handler);

  /// Whether the server is in maintenance, by the last answer.
  [[nodiscard]] bool serverIsInMaintenanceMode() const { return maintenance_.value(); }
  void setServerIsInMaintenanceMode(bool isInMaintenance) { maintenance_.set(isInMaintenance); }
  void triggerMaintenanceMode() { setServerIsInMaintenanceMode(true); }
  void clearMaintenanceMode() { setServerIsInMaintenanceMode(false); }

  /// Called once for each time that maintenance begins, on that thread.
  void setMaintenanceHandler(std::function<void()> handler);

  /// Whether there is a way to the network, or may be one once something is switched on; whether it
  /// is constrained (Low Data Mode); whether it is metered.
  [[nodiscard]] bool isReachable() const { return isReachable_.value(); }
  [[nodiscard]] bool isLimited() const { return isLimited_.value(); }
  [[nodiscard]] bool isExpensive() const { return isExpensive_.value(); }

  /// @}
  /// @name Requests
  ///
  /// A request as a publisher; it is sent when it is subscribed to, which may be done once, and
  /// delivers on `dispatchQueue`. `url` is an absolute URL or a path below the base URL; text that
  /// is neither fails with `badRequestError`.
  /// @{

  /// Status and body. `disableCache` does nothing.
  [[nodiscard]] APIPublisher<HTTPAnswer> publisher(std::string_view url,
                                                   HTTPMethod method = HTTPMethod::GET,
                                                   bool disableCache = false,
                                                   Payload payload = std::nullopt);

  /// The body.
  [[nodiscard]] APIPublisher<platform::Data> dataPublisher(std::string_view url,
                                                           HTTPMethod method = HTTPMethod::GET,
                                                           bool disableCache = false,
                                                           Payload payload = std::nullopt);

  /// The body as text; nothing when it is not valid UTF-8.
  [[nodiscard]] APIPublisher<std::optional<std::string>> stringPublisher(
      std::string_view url, HTTPMethod method = HTTPMethod::GET, bool disableCache = false,
      Payload payload = std::nullopt);

  /// The body decoded from JSON; fails with `invalidBody`, which is logged, when it cannot be.
  template <class Value>
  [[nodiscard]] APIPublisher<Value> publisher(std::string_view url,
                                              HTTPMethod method = HTTPMethod::GET,
                                              bool disableCache = false,
                                              Payload payload = std::nullopt) {
    return dataPublisher(url, method, disableCache, std::move(payload))
        .tryMap(
            [](const platform::Data& body) { return platform::JSONDecoder().decode<Value>(body); })
        .mapError(&OmbrixServerAPI::bodyError);
  }

  /// Subscribes, calls the completion once, with the first value or the failure (`missingBody` for
  /// an end without either), and gives the ID to cancel it by, after which no call starts but one
  /// that is on its way on another thread.
  template <class Output>
  platform::UUID completionWrapper(const APIPublisher<Output>& publisher,
                                   std::function<void(Result<Output>)> completion) {
    return subscriptions_->subscribe(publisher, std::move(completion));
  }

  /// The same with success, value and error apart.
  template <class Output>
  platform::UUID objcWrapper(
      const APIPublisher<Output>& publisher,
      std::function<void(bool, std::optional<Output>, std::optional<HTTPError>)> completion) {
    return completionWrapper<Output>(publisher,
                                     [completion = std::move(completion)](Result<Output> result) {
                                       if (result) {
                                         completion(true, std::move(*result), std::nullopt);
                                       } else {
                                         completion(false, std::nullopt, std::move(result.error()));
                                       }
                                     });
  }

  /// Keeps a subscription alive as long as the client.
  void keep(platform::AnyCancellable cancellable) { subscriptions_->keep(std::move(cancellable)); }

  /// @}
  /// @name Texts
  /// @{

  /// The sentence to show to the user, in the user's language; the generic one for no error, for
  /// errors that are no `HTTPError` and for cases that have none of their own.
  [[nodiscard]] static std::string errorMessageForError(const platform::Error* error);
  [[nodiscard]] static std::string errorMessageForError(const std::exception_ptr& error);

  /// The sentence for the failure of a result.
  template <class Output>
  [[nodiscard]] static std::string errorMessageForResult(const Result<Output>& result) {
    return errorMessageForError(result ? nullptr : &result.error());
  }

  /// Writes and reads the local times that are exchanged with the service.
  [[nodiscard]] static std::shared_ptr<const platform::DateFormatter> localTimezoneFormatter();
  static void setLocalTimezoneFormatter(std::shared_ptr<const platform::DateFormatter> formatter);

  /// @}

 protected:
  std::optional<bool> valueForKey(std::string_view key) const override;

 private:
  friend class testing::ScopedServerAPI;

  static platform::ServiceSlot<OmbrixServerAPI>& slot();
  static std::shared_ptr<OmbrixServerAPI> make(ServerConfiguration configuration);
  static HTTPError bodyError(const std::exception_ptr& error);
  std::pair<std::uint64_t, platform::URL> environmentAndBase() const;

  void startPathMonitor();
  void pathChanged(const platform::NWPath& path);
  void letGoOfSessions();
  platform::URLSessionConfiguration mainConfiguration();
  std::shared_ptr<platform::URLSession> makeSession(
      platform::URLSessionConfiguration configuration) const;
  void updateHasOperations();
  void call(const std::function<void()>& handler) const;

  mutable std::mutex mutex_;  // guards what follows, up to the next comment
  std::uint64_t environment_ = 0;
  ServerConfiguration configuration_;
  APIEndpoint endPoint_ = APIEndpoint::production;
  std::optional<std::string> jwtToken_;
  std::function<void()> forceLogoutHandler_;
  std::function<void()> maintenanceHandler_;
  std::shared_ptr<platform::NSOperationQueue> operationQueue_;

  std::mutex sessionMutex_;  // guards the sessions and their cache; taken before `mutex_`
  std::shared_ptr<platform::URLSession> session_;
  std::shared_ptr<platform::URLSession> backgroundSession_;
  std::shared_ptr<platform::URLCache> cache_;

  const std::shared_ptr<CompletionSubscriptions> subscriptions_ =
      std::make_shared<CompletionSubscriptions>();
  std::atomic<std::int64_t> externalHTTPRequests_{0};
  ObservableFlag hasOperations_;
  ObservableFlag isReachable_;
  ObservableFlag isLimited_;
  ObservableFlag isExpensive_;
  ObservableFlag loginError_;
  ObservableFlag maintenance_;
  const std::shared_ptr<platform::NWPathMonitor> networkMonitor_;
  platform::ObservationToken queueObservation_;  // last: ends before what it looks at
};

}  // namespace ombrix
