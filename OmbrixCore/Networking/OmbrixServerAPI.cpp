#include "OmbrixCore/Networking/OmbrixServerAPI.hpp"

#include "OmbrixCore/Extensions/FileManager+Utils.hpp"
#include "OmbrixCore/Networking/OmbrixServerAPIDelegate.hpp"
#include "OmbrixCore/Networking/Policies/RequestFlows.hpp"
#include "OmbrixPlatform/Bundles/Bundle.hpp"
#include "OmbrixPlatform/Network/URLCache.hpp"

namespace ombrix {
namespace {

using platform::URLCache;
using platform::URLSession;
using platform::URLSessionConfiguration;

constexpr std::chrono::seconds kRequestTimeoutSeconds{25};
constexpr std::chrono::seconds kResourceTimeoutSeconds{30};
constexpr std::int64_t kCacheMemoryBytes = 52'428'800;
// Kept: no round number of mebibytes, unlike the one above. With a smaller one, answers that
// devices hold would be evicted on the first start.
constexpr std::int64_t kCacheDiskBytes = 206'233'600;
constexpr std::string_view kCacheFolder = "Responses";
constexpr std::string_view kAPIPath = "api/v1/";

std::string hostOf(const platform::URL& url) { return url.host().value_or(std::string()); }

std::int64_t diskUsage(const URLSession& session) {
  const auto cache = session.configuration().urlCache;
  return cache ? cache->currentDiskUsage() : 0;
}

void clearCache(const URLSession& session) {
  if (const auto cache = session.configuration().urlCache) cache->removeAllCachedResponses();
}

}  // namespace

platform::ServiceSlot<OmbrixServerAPI>& OmbrixServerAPI::slot() {
  static auto& instance = *new platform::ServiceSlot<OmbrixServerAPI>(
      [] { return make(ServerConfiguration::defaults()); });
  return instance;
}

OmbrixServerAPI& OmbrixServerAPI::sharedInstance() { return slot().get(); }

std::shared_ptr<OmbrixServerAPI> OmbrixServerAPI::make(ServerConfiguration configuration) {
  auto client = std::make_shared<OmbrixServerAPI>(Passkey{}, std::move(configuration));
  client->startPathMonitor();
  return client;
}

OmbrixServerAPI::OmbrixServerAPI(Passkey, ServerConfiguration configuration)
    : configuration_(std::move(configuration)),
      hasOperations_(*this, "hasOperations"),
      isReachable_(*this, "isReachable"),
      isLimited_(*this, "isLimited"),
      isExpensive_(*this, "isExpensive"),
      loginError_(*this, "loginError", [this] { call(&OmbrixServerAPI::forceLogoutHandler_); }),
      maintenance_(*this, "serverIsInMaintenanceMode",
                   [this] { call(&OmbrixServerAPI::maintenanceHandler_); }),
      networkMonitor_(platform::services().pathMonitorFactory.shared()->make()) {}

OmbrixServerAPI::~OmbrixServerAPI() {
  flows_->cancelAll();
  networkMonitor_->cancel();
}

void OmbrixServerAPI::change(APIEndpoint endpoint) {
  auto& client = sharedInstance();
  {
    const platform::LockGuard lock(client.mutex_);
    client.endPoint_ = endpoint;
    ++client.environment_;
    client.jwtToken_.reset();
  }
  client.letGoOfSessions();
}

void OmbrixServerAPI::setConfiguration(ServerConfiguration configuration) {
  {
    const platform::LockGuard lock(mutex_);
    std::swap(configuration_, configuration);
    ++environment_;
    jwtToken_.reset();
  }
  letGoOfSessions();
}

void OmbrixServerAPI::letGoOfSessions() {
  // Operations hold the session that they were made for, so no running request is cut off.
  std::shared_ptr<URLSession> session, backgroundSession;
  const platform::LockGuard lock(sessionMutex_);
  session.swap(session_);
  backgroundSession.swap(backgroundSession_);
}

APIEndpoint OmbrixServerAPI::endPoint() const {
  const platform::LockGuard lock(mutex_);
  return endPoint_;
}

std::uint64_t OmbrixServerAPI::environment() const {
  const platform::LockGuard lock(mutex_);
  return environment_;
}

std::pair<std::uint64_t, platform::URL> OmbrixServerAPI::environmentAndBase() const {
  const platform::LockGuard lock(mutex_);
  return {environment_, configuration_.baseURL(endPoint_)};
}

platform::URL OmbrixServerAPI::endpoint() const { return environmentAndBase().second; }

platform::URL OmbrixServerAPI::apiEndpoint() const {
  const auto base = endpoint();
  return platform::URL::parse(kAPIPath, base).value_or(base);
}

std::string OmbrixServerAPI::baseURL() const { return endpoint().absoluteString(); }
std::string OmbrixServerAPI::baseHost() const { return hostOf(endpoint()); }

URLSessionConfiguration OmbrixServerAPI::mainConfiguration() {
  auto configuration = URLSessionConfiguration::defaultConfiguration();
  configuration.timeoutIntervalForRequest = kRequestTimeoutSeconds;
  configuration.timeoutIntervalForResource = kResourceTimeoutSeconds;
  configuration.waitsForConnectivity = true;
  // It stays from one session to the next: answers are stored under their whole URL, so those of
  // another environment are never served.
  if (!cache_) {
    const auto folder =
        FileManager::defaultManager().cache().appendingPathComponent(kCacheFolder, true);
    cache_ = URLCache::make(kCacheMemoryBytes, kCacheDiskBytes, folder);
  }
  configuration.urlCache = cache_;
  return configuration;
}

std::shared_ptr<URLSession> OmbrixServerAPI::makeSession(
    URLSessionConfiguration configuration) const {
  std::string testHost;
  {
    const platform::LockGuard lock(mutex_);
    testHost = configuration_.testHost();
    configuration.connections = configuration_.connections;
  }
  if (!testHost.empty()) configuration.loopbackHosts.push_back(testHost);
  return URLSession::make(configuration,
                          std::make_shared<OmbrixServerAPIDelegate>(std::move(testHost)));
}

std::shared_ptr<URLSession> OmbrixServerAPI::session() {
  const platform::LockGuard lock(sessionMutex_);
  if (!session_) session_ = makeSession(mainConfiguration());
  return session_;
}

std::shared_ptr<URLSession> OmbrixServerAPI::backgroundSession() {
  const platform::LockGuard lock(sessionMutex_);
  if (!backgroundSession_) {
    const auto identifier = platform::Bundle::main().bundleIdentifier().value_or("");
    backgroundSession_ =
        makeSession(URLSessionConfiguration::background(identifier + ".background"));
  }
  return backgroundSession_;
}

std::int64_t OmbrixServerAPI::cacheSize() {
  return diskUsage(*session()) + diskUsage(*URLSession::shared());
}

void OmbrixServerAPI::clearCaches() {
  clearCache(*session());
  clearCache(*URLSession::shared());
}

}  // namespace ombrix
