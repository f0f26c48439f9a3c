#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Concurrency/Events.hpp"
#include "OmbrixPlatform/Defaults/Detail/CloudMirror.hpp"
#include "OmbrixPlatform/Defaults/Detail/EtcdClient.hpp"
#include "OmbrixPlatform/Observation/Signal.hpp"

namespace ombrix::platform::detail {

/// Keeps a mirror and a server in step: sends what waits, reads everything, then watches; when the
/// server fails, does it all again after a while. Starts with the first use. Any thread.
class EtcdSync final : public std::enable_shared_from_this<EtcdSync> {
  struct Passkey {};

 public:
  using Store = NSUbiquitousKeyValueStore;

  static std::shared_ptr<EtcdSync> make(EtcdConfiguration configuration);
  EtcdSync(Passkey, EtcdConfiguration configuration);

  [[nodiscard]] std::optional<PropertyList> value(std::string_view key);
  [[nodiscard]] PropertyList::Dictionary values();
  void set(std::string_view key, std::optional<PropertyList> value);

  /// Sends and reads everything now, and waits for it; false when that failed. Not from a change
  /// handler: that stops the program, since it would wait for itself.
  bool synchronize();

  ObservationToken observe(Store::ExternalChangeHandler handler);

  /// Tells observers that a value was refused for its size.
  void tellRefused(std::string_view key);

  /// Ends it: nothing is sent or told any more. What waits stays in the mirror.
  void close();

 private:
  enum class Phase { idle, exchanging, watching, waiting, closed };
  using Done = std::function<void()>;
  using Waiter = std::move_only_function<void(bool succeeded)>;

  void begin();
  void post(Job job);
  void tell(CloudMirror::Outcome outcome, Store::ChangeReason reason);
  void report(const std::string& message);

  // On the queue only.
  void exchange();
  void sendPending(std::uint64_t round, Done done);
  void read(std::uint64_t round);
  void follow(std::int64_t revision, std::uint64_t round);
  void sendWhileWatching();
  void failed(const EtcdError& error, std::uint64_t round);
  void release(bool succeeded);

  const EtcdConfiguration configuration_;
  CloudMirror mirror_;
  const std::shared_ptr<Signal<const Store::ExternalChange&>> changed_;
  const std::shared_ptr<DispatchQueue> queue_;
  std::atomic<bool> hasBegun_{false};
  std::mutex reportMutex_;
  std::string lastReport_;  // said once until something else is said

  // On the queue only.
  std::shared_ptr<EtcdClient> client_;
  Phase phase_ = Phase::idle;
  std::uint64_t round_ = 0;  // answers of an earlier round are of no interest
  bool isSending_ = false;
  bool hasReported_ = false;
  bool hasRead_ = false;
  std::chrono::duration<double> delay_;
  EventToken retry_;
  std::vector<Waiter> waiters_;      // for the exchange under way
  std::vector<Waiter> nextWaiters_;  // for the one after it
};

}  // namespace ombrix::platform::detail
