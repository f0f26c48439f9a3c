#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Concurrency/Events.hpp"
#include "OmbrixPlatform/Defaults/Etcd/Detail/CloudMirror.hpp"
#include "OmbrixPlatform/Defaults/Etcd/Detail/EtcdClient.hpp"
#include "OmbrixPlatform/Defaults/Etcd/Detail/EtcdSending.hpp"
#include "OmbrixPlatform/Files/FolderWatcher.hpp"
#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Observation/Signal.hpp"

namespace ombrix::platform::detail {

/// Keeps a mirror and a server in step: reads everything, then watches, and starts over some time
/// after the server has failed. Independently of that, `EtcdSending` sends the waiting changes. The
/// mirror's file is watched too: another process may add a change to it, or remove one. Starts with
/// the first use. Any thread.
class EtcdSync final : public std::enable_shared_from_this<EtcdSync> {
  struct Passkey {};

 public:
  using Store = NSUbiquitousKeyValueStore;

  static std::shared_ptr<EtcdSync> make(EtcdConfiguration configuration);
  EtcdSync(Passkey, EtcdConfiguration configuration);

  [[nodiscard]] std::optional<PropertyList> value(std::string_view key);
  [[nodiscard]] PropertyList::Dictionary values();

  /// Shows a value at once; the copy on disk and the server get it later.
  void set(std::string_view key, std::optional<PropertyList> value);

  /// Waits until every new value is in the copy on disk; false when they cannot be written.
  void flushLast();

  /// Sends and reads everything now, and waits for it; false when that failed. Not from a change
  /// handler: that stops the program, since it would wait for itself.
  bool synchronize();
  [[nodiscard]] bool isKept() const { return mirror_->isFlushed(); }

  ObservationToken observe(Store::ExternalChangeHandler handler);

  /// Tells observers that a value was refused for its size.
  void tellRefused(std::string_view key);

  /// Ends it: it sends and reports nothing more. Waiting changes stay in the mirror. Returns at
  /// once.
  void close();

  /// The same, and waits until none of its code runs any more. Not from a change handler: that
  /// stops the program.
  void closeAndWait();

 private:
  enum class Phase { idle, reading, watching, waiting, closed };
  /// Whether it is a fault that the server has discarded a watch's first revision.
  enum class IfCompacted : std::uint8_t { read, fail };
  using Waiter = std::move_only_function<void(bool succeeded)>;
  /// A call of `synchronize`.
  struct Caller {
    Waiter waiter;
    std::int64_t lastOrder;    // of the changes that are to be sent
    bool awaitsFlush = false;  // there are more, which are in no file yet
    bool hasRead = false;
  };

  void begin();
  void tell(CloudMirror::Outcome outcome, Store::ChangeReason reason);
  void report(const std::string& message);
  void watchFile();
  void noteFolderChange(const FolderChange& change);

  // On the queue only.
  void start();
  void flush();
  EventToken later(std::chrono::duration<double> delay, void (*step)(EtcdSync& self));
  void lookAtFile();
  void read();
  void follow(std::uint64_t round, IfCompacted ifCompacted);
  void readFailed(const EtcdError& error, std::uint64_t round);
  void sendingFailed(const EtcdError& error);
  void releaseDone();
  void releaseAll();
  void end();

  const EtcdConfiguration configuration_;
  const std::shared_ptr<CloudMirror> mirror_;
  const std::shared_ptr<Signal<const Store::ExternalChange&>> changed_;
  const std::shared_ptr<DispatchQueue> queue_;
  std::atomic<bool> hasBegun_{false}, lookIsDue_{false}, flushIsDue_{false};
  Mutex reportMutex_;
  // Each is reported once until the fault is over.
  std::set<std::string> reported_ OMBRIX_GUARDED_BY(reportMutex_);

  // On the queue only.
  std::shared_ptr<EtcdClient> client_;
  std::shared_ptr<EtcdSending> sending_;
  ObservationToken fileWatch_;
  Phase phase_ = Phase::idle;
  std::uint64_t round_ = 0;      // answers of an earlier round are ignored
  CloudMirror::Position taken_;  // how far this process has read
  std::int64_t heard_ = 0;       // it has missed nothing up to this revision
  bool hasRead_ = false;
  std::chrono::duration<double> delay_, flushDelay_;
  EventToken retry_, flushRetry_;
  std::vector<Caller> callers_;      // whose reading is under way or done
  std::vector<Caller> nextCallers_;  // whose reading is the next one
};

}  // namespace ombrix::platform::detail
