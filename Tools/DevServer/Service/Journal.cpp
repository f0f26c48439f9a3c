#include "Tools/DevServer/Service/Journal.hpp"

#include <algorithm>

#include "OmbrixPlatform/Locks/Mutex.hpp"

namespace ombrix::devserver {
namespace {

// Further paths are not counted, so that no client can exhaust the memory.
constexpr std::size_t kMostPaths = 10'000;

}  // namespace

template <class Change>
void Journal::change(Change&& how) {
  const platform::LockGuard lock(mutex_);
  how(counters_);
  tellWaiters();
}

void Journal::tellWaiters() {
  if (waiters_ > 0) changed_.notify_all();
}

void Journal::connectionOpened() {
  change([](Counters& counters) {
    ++counters.connections;
    ++counters.openConnections;
  });
}

void Journal::connectionClosed() {
  change([](Counters& counters) { --counters.openConnections; });
}

void Journal::requestBegan(const std::shared_ptr<const Request>& request) {
  const platform::LockGuard lock(mutex_);
  ++counters_.requests;
  ++counters_.inFlight;
  counters_.mostInFlight = std::max(counters_.mostInFlight, counters_.inFlight);
  if (mostRequests_ > 0) keep(request);
  tellWaiters();
}

void Journal::requestEnded() {
  change([](Counters& counters) { --counters.inFlight; });
}

void Journal::holdBegan() {
  change([](Counters& counters) { ++counters.held; });
}

void Journal::holdEnded() {
  change([](Counters& counters) { --counters.held; });
}

void Journal::keep(const std::shared_ptr<const Request>& request) {
  const auto counted = countsByPath_.find(request->path);
  if (counted != countsByPath_.end()) {
    ++counted->second;
  } else if (countsByPath_.size() < kMostPaths) {
    countsByPath_.emplace(request->path, 1);
  }
  if (requests_.size() >= mostRequests_) requests_.pop_front();
  if (request->body.size() <= mostBodyBytes_) {
    requests_.push_back(request);
    return;
  }
  auto shortened = std::make_shared<Request>();
  shortened->method = request->method;
  shortened->target = request->target;
  shortened->path = request->path;
  shortened->query = request->query;
  shortened->headers = request->headers;
  shortened->body = request->body.substr(0, mostBodyBytes_);
  shortened->connection = request->connection;
  requests_.push_back(std::move(shortened));
}

Counters Journal::counters() const {
  const platform::LockGuard lock(mutex_);
  return counters_;
}

std::uint64_t Journal::requestCount(const std::string& path) const {
  const platform::LockGuard lock(mutex_);
  const auto found = countsByPath_.find(path);
  return found == countsByPath_.end() ? 0 : found->second;
}

std::vector<std::shared_ptr<const Request>> Journal::requests(std::string_view path) const {
  const platform::LockGuard lock(mutex_);
  std::vector<std::shared_ptr<const Request>> found;
  for (const auto& request : requests_) {
    if (path.empty() || request->path == path) found.push_back(request);
  }
  return found;
}

void Journal::forgetRequests() {
  const platform::LockGuard lock(mutex_);
  requests_.clear();
  countsByPath_.clear();
  counters_.requests = 0;
  counters_.mostInFlight = counters_.inFlight;
}

bool Journal::waitUntil(const std::function<bool(const Counters&)>& areWanted,
                        std::chrono::steady_clock::duration timeout) const {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  const platform::LockGuard lock(mutex_);
  ++waiters_;
  // The predicate is the caller's code: it gets a copy and runs without the lock.
  bool holds = false;
  for (;;) {
    const Counters seen = counters_;
    {
      const platform::UnlockGuard unlocked(mutex_);
      holds = areWanted(seen);
    }
    if (holds || std::chrono::steady_clock::now() >= deadline) break;
    const bool hasChanged = !(counters_ == seen);
    if (!hasChanged) changed_.wait_until(mutex_, deadline);
  }
  --waiters_;
  return holds;
}

}  // namespace ombrix::devserver
