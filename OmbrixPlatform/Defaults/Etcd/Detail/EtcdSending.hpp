#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Concurrency/Events.hpp"
#include "OmbrixPlatform/Defaults/Etcd/Detail/CloudMirror.hpp"
#include "OmbrixPlatform/Defaults/Etcd/Detail/EtcdClient.hpp"
#include "OmbrixPlatform/Detail/Descriptor.hpp"

namespace ombrix::platform::detail {

/// Sends what waits in a mirror, the oldest change first, one at a time, and leaves it to another
/// process of the device while that one sends: a lock on a file is the turn.
///
/// No change is made twice, and none undoes a later one of the device, whatever gets lost and
/// whoever sends: the server's mark of the key says which change of it the device has made last,
/// and a change is made only if the mark is as it was read and not of a later one. An attempt whose
/// answer was lost is either found there, or can never come through any more once the next one has.
/// So the turn only spares the others the same work: who cannot have it, or waits for it in vain,
/// sends without. After a failure it waits, twice as long each time, up to 30 s, and lets others
/// try.
///
/// All calls and handlers on the client's queue.
class EtcdSending final : public std::enable_shared_from_this<EtcdSending> {
  struct Passkey {};

 public:
  struct Handlers {
    std::function<void(CloudMirror::Outcome)> tell;
    /// The server will never take the change.
    std::function<void(const std::string& key, const EtcdError& error)> refused;
    std::function<void(const EtcdError& error)> failed;
    /// A change was taken or refused, through this process or another, or none waits.
    std::function<void()> advanced;
  };

  static std::shared_ptr<EtcdSending> make(std::shared_ptr<CloudMirror> mirror,
                                           std::filesystem::path turnFile,
                                           std::shared_ptr<DispatchQueue> queue, Handlers handlers);
  EtcdSending(Passkey, std::shared_ptr<CloudMirror> mirror, std::filesystem::path turnFile,
              std::shared_ptr<DispatchQueue> queue, Handlers handlers);

  /// Sends the waiting changes, unless it pauses after a failure.
  void poke(const std::shared_ptr<EtcdClient>& client);

  /// Sends the waiting changes, also after a failure.
  void sendNow(const std::shared_ptr<EtcdClient>& client);

  /// The file of the turn, without its folder.
  [[nodiscard]] std::string turnFileName() const { return turnFile_.filename().string(); }

  void close();

 private:
  void next();
  [[nodiscard]] bool maySend();
  void endTurn();
  void answered(const CloudMirror::Pending& pending,
                const std::expected<EtcdChangeResult, EtcdError>& answer);
  void failed(const EtcdError& error);
  EventToken later(std::chrono::duration<double> delay, void (EtcdSending::*step)());
  void retry();
  void askForTurn();
  [[nodiscard]] bool isTurnMissedForLong();

  const std::shared_ptr<CloudMirror> mirror_;
  const std::filesystem::path turnFile_;
  const std::shared_ptr<DispatchQueue> queue_;
  Handlers handlers_;
  std::shared_ptr<EtcdClient> client_;
  Descriptor turn_;
  bool isSending_ = false, isClosed_ = false, isWaiting_ = false;
  std::string markFor_;  // the change that is later than the mark that was read last
  std::int64_t markRevision_ = 0;
  int attempts_ = 0;       // of one change, each with another mark expected
  std::string missedFor_;  // the change that waits for the turn
  std::chrono::steady_clock::time_point missedSince_;
  std::chrono::duration<double> delay_;
  EventToken retry_, turnTimer_;
};

}  // namespace ombrix::platform::detail
