#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "OmbrixPlatform/Locks/Condition.hpp"
#include "Tools/DevServer/HTTP/HTTPMessage.hpp"

namespace ombrix::devserver {

/// The counts of what a server has seen so far.
struct Counters {
  std::uint64_t requests = 0;         ///< Received completely.
  std::uint64_t connections = 0;      ///< Accepted.
  std::uint64_t openConnections = 0;  ///< Open now.
  std::uint64_t inFlight = 0;         ///< Received and not answered completely.
  std::uint64_t mostInFlight = 0;     ///< Their maximum so far.
  std::uint64_t held = 0;             ///< Answers waiting at a gate now.

  friend bool operator==(const Counters&, const Counters&) = default;
};

/// Counts a server's events and keeps the last requests. Any thread.
class Journal {
 public:
  /// @param mostRequests How many requests are kept; 0 keeps none and counts no paths.
  /// @param mostBodyBytes The length up to which bodies are kept.
  Journal(std::size_t mostRequests, std::size_t mostBodyBytes)
      : mostRequests_(mostRequests), mostBodyBytes_(mostBodyBytes) {}

  void connectionOpened();
  void connectionClosed();
  void requestBegan(const std::shared_ptr<const Request>& request);
  void requestEnded();
  void holdBegan();
  void holdEnded();

  [[nodiscard]] Counters counters() const;
  [[nodiscard]] std::uint64_t requestCount(const std::string& path) const;
  [[nodiscard]] std::vector<std::shared_ptr<const Request>> requests(std::string_view path) const;
  void forgetRequests();

  /// Waits until the counters meet the condition; false if that takes too long.
  bool waitUntil(const std::function<bool(const Counters&)>& areWanted,
                 std::chrono::steady_clock::duration timeout) const;

 private:
  template <class Change>
  void change(Change&& how);
  void tellWaiters() OMBRIX_REQUIRES(mutex_);
  void keep(const std::shared_ptr<const Request>& request) OMBRIX_REQUIRES(mutex_);

  const std::size_t mostRequests_, mostBodyBytes_;
  mutable platform::Mutex mutex_;
  mutable platform::Condition changed_;
  mutable std::size_t waiters_ OMBRIX_GUARDED_BY(mutex_) = 0;
  Counters counters_ OMBRIX_GUARDED_BY(mutex_);
  std::deque<std::shared_ptr<const Request>> requests_ OMBRIX_GUARDED_BY(mutex_);
  std::unordered_map<std::string, std::uint64_t> countsByPath_ OMBRIX_GUARDED_BY(mutex_);
};

}  // namespace ombrix::devserver
