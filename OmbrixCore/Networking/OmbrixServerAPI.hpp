#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <expected>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "OmbrixCore/Networking/APIEndpoint.hpp"
#include "OmbrixCore/Networking/ObservableFlag.hpp"
#include "OmbrixCore/Networking/Requests/ServerRequests.hpp"
#include "OmbrixCore/Networking/ServerConfiguration.hpp"
#include "OmbrixCore/Networking/ServiceConditions.hpp"
#include "OmbrixPlatform/Concurrency/NSOperationQueue.hpp"
#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Network/NWPathMonitor.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixPlatform/Text/DateFormatter.hpp"

namespace ombrix::testing {
class ScopedServerAPI;
}

namespace ombrix {

/// The client of the product's web service: requests (the base class), session and cache, the queue
/// of all requests, the token, and the conditions that the application reacts to.
///
/// Observable keys: "hasOperations", "isReachable", "isLimited", "isExpensive", "loginError" and
/// "serverIsInMaintenanceMode", announced on changes only, on the thread that causes one (for
/// overlapping changes, the thread of the first). Any thread.
class OmbrixServerAPI final : public ServerRequests,
                              public platform::KeyValueObserving<bool>,
                              public std::enable_shared_from_this<OmbrixServerAPI> {
  struct Passkey {};

 public:
  /// The one client, made on first use, which starts its path monitor; session and queue are made
  /// when they are first needed.
  static OmbrixServerAPI& sharedInstance();

  OmbrixServerAPI(Passkey, ServerConfiguration configuration);
  ~OmbrixServerAPI() override;

  /// @name Environment
  /// @{

  /// Switches the shared client to another environment, and releases the sessions and token of the
  /// old one. Earlier requests still end against the old environment.
  static void change(APIEndpoint endpoint);

  /// Uses other servers from now on; sessions and token are released as by `change`.
  void setConfiguration(ServerConfiguration configuration);

  [[nodiscard]] APIEndpoint endPoint() const;

  /// Grows with each change of environment or servers, which tells earlier requests apart.
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

  /// A separate session for transfers that may take long. They end with the process.
  [[nodiscard]] std::shared_ptr<platform::URLSession> backgroundSession();

  /// Bytes on disk of the session's cache and of the cache of the process's shared session.
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

  /// Cancels the requests on the queue, the long transfers beside it, and the requests that wait
  /// between two attempts. Cancelled operations never answer: a caller that awaits a publisher of
  /// one has to cancel that wait, and a wrapper's completion is kept until `cancelRequestWithID`
  /// gets its ID.
  void cancelAllOperations();

  /// Blocks until the queue of requests is empty; uploads, downloads and lines are not on it.
  /// Publishers and completions may not have their answers by then: those are delivered on
  /// `dispatchQueue` afterwards.
  void waitUntilAllOperationsAreFinished();

  /// The same, and waits until the completions and subscribers of all those requests were called.
  /// Not on `dispatchQueue`, which it would wait for: that stops the program.
  void waitUntilAllAnswersAreDelivered();

  /// Cancels the unfinished operation on the queue with that `taskID`, which then never answers,
  /// and the subscription that a completion wrapper keeps under that ID. Takes constant time.
  void cancelRequestWithID(const platform::UUID& id);

  /// Whether a request is on the queue or tracked outside of it.
  [[nodiscard]] bool hasOperations() const { return hasOperations_.value(); }

  /// Called when a request outside of this client begins, and when it ends; surplus ends are
  /// ignored.
  void trackExternalHTTPRequest();
  void completeExternalHTTPRequest();

  /// @}
  /// @name Conditions
  /// @{

  /// The bearer token of the signed-in user; in memory only. Empty for an earlier environment.
  [[nodiscard]] std::optional<std::string> jwtToken() const;
  [[nodiscard]] std::optional<std::string> jwtToken(std::uint64_t ofEnvironment) const;
  void setJwtToken(std::optional<std::string> token);
  void setJwtToken(std::optional<std::string> token, std::uint64_t ofEnvironment);

  /// Stores in one step the conditions that an answer to a request of an environment states, then
  /// calls handlers; does neither when another environment is current.
  void take(ServiceConditions conditions, std::uint64_t environment);

  /// Whether the login is no longer valid; only `clearLoginError` ends this.
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

  /// Whether the network can be reached, or could be after something is switched on; whether it is
  /// constrained (Low Data Mode); whether it is metered.
  [[nodiscard]] bool isReachable() const { return isReachable_.value(); }
  [[nodiscard]] bool isLimited() const { return isLimited_.value(); }
  [[nodiscard]] bool isExpensive() const { return isExpensive_.value(); }

  /// @}
  /// @name Texts
  /// @{

  /// The sentence to show to the user, in the user's language; a generic one for no error, for
  /// errors that are not an `HTTPError` and for cases without a sentence of their own.
  [[nodiscard]] static std::string errorMessageForError(const platform::Error* error);
  [[nodiscard]] static std::string errorMessageForError(const std::exception_ptr& error);

  /// The sentence for the failure of a result.
  template <class Output>
  [[nodiscard]] static std::string errorMessageForResult(const Result<Output>& result) {
    return errorMessageForError(result ? nullptr : &result.error());
  }

  /// Writes and reads the local times of requests and answers.
  [[nodiscard]] static std::shared_ptr<const platform::DateFormatter> localTimezoneFormatter();
  static void setLocalTimezoneFormatter(std::shared_ptr<const platform::DateFormatter> formatter);

  /// @}

 protected:
  std::optional<bool> valueForKey(std::string_view key) const override;

 private:
  friend class testing::ScopedServerAPI;

  static platform::ServiceSlot<OmbrixServerAPI>& slot();
  static std::shared_ptr<OmbrixServerAPI> make(ServerConfiguration configuration);
  std::shared_ptr<OmbrixAPIHttpRequestOperation> operationFor(std::string_view url,
                                                              HTTPMethod method,
                                                              Duration duration) override;
  std::shared_ptr<platform::NSOperationQueue> transferQueue();
  std::shared_ptr<platform::NSOperationQueue> madeOnce(
      std::shared_ptr<platform::NSOperationQueue> OmbrixServerAPI::* member, const char* name,
      std::ptrdiff_t width);
  std::pair<std::uint64_t, platform::URL> environmentAndBase() const;

  void startPathMonitor();
  void pathChanged(const platform::NWPath& path);
  void letGoOfSessions();
  platform::URLSessionConfiguration mainConfiguration() OMBRIX_REQUIRES(sessionMutex_);
  std::shared_ptr<platform::URLSession> makeSession(
      platform::URLSessionConfiguration configuration) const;
  void updateHasOperations();
  void call(std::function<void()> OmbrixServerAPI::* handler) const;

  mutable platform::Mutex mutex_;
  std::uint64_t environment_ OMBRIX_GUARDED_BY(mutex_) = 0;
  ServerConfiguration configuration_ OMBRIX_GUARDED_BY(mutex_);
  APIEndpoint endPoint_ OMBRIX_GUARDED_BY(mutex_) = APIEndpoint::production;
  std::optional<std::string> jwtToken_ OMBRIX_GUARDED_BY(mutex_);
  std::function<void()> forceLogoutHandler_ OMBRIX_GUARDED_BY(mutex_);
  std::function<void()> maintenanceHandler_ OMBRIX_GUARDED_BY(mutex_);
  std::shared_ptr<platform::NSOperationQueue> operationQueue_ OMBRIX_GUARDED_BY(mutex_);
  // Of transfers that may take long.
  std::shared_ptr<platform::NSOperationQueue> transferQueue_ OMBRIX_GUARDED_BY(mutex_);

  platform::Mutex sessionMutex_;  // taken before `mutex_`
  std::shared_ptr<platform::URLSession> session_ OMBRIX_GUARDED_BY(sessionMutex_);
  std::shared_ptr<platform::URLSession> backgroundSession_ OMBRIX_GUARDED_BY(sessionMutex_);
  std::shared_ptr<platform::URLCache> cache_ OMBRIX_GUARDED_BY(sessionMutex_);

  std::atomic<std::int64_t> externalHTTPRequests_{0};
  ObservableFlag hasOperations_;
  ObservableFlag isReachable_;
  ObservableFlag isLimited_;
  ObservableFlag isExpensive_;
  ObservableFlag loginError_;
  ObservableFlag maintenance_;
  const std::shared_ptr<platform::NWPathMonitor> networkMonitor_;
  std::vector<platform::ObservationToken> queueObservations_;  // last: ends before what it looks at
};

}  // namespace ombrix
