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

/// Sends what waits in a mirror, the oldest change first, one at a time and only while no other
/// process of the device sends: a lock on a file is the turn.
///
/// No change is sent twice, whatever gets lost. The device's mark on the server says which change
/// was taken last, and each change is made only if the mark has not changed meanwhile: an attempt
/// whose answer was lost is either found there, or can never be made any more once the next one
/// was. After a failure it waits, twice as long each time, up to 30 s, and lets others try, unless
/// only this process knows what it has sent.
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
    /// A change was settled, by this process or another, or none waits.
    std::function<void()> advanced;
  };

  static std::shared_ptr<EtcdSending> make(std::shared_ptr<CloudMirror> mirror,
                                           std::filesystem::path turnFile,
                                           std::shared_ptr<DispatchQueue> queue, Handlers handlers);
  EtcdSending(Passkey, std::shared_ptr<CloudMirror> mirror, std::filesystem::path turnFile,
              std::shared_ptr<DispatchQueue> queue, Handlers handlers);

  /// Sends what waits, unless it is waiting after a failure.
  void poke(const std::shared_ptr<EtcdClient>& client);

  /// Sends what waits, whatever has failed before.
  void sendNow(const std::shared_ptr<EtcdClient>& client);

  /// The file of the turn, without its folder.
  [[nodiscard]] std::string turnFileName() const { return turnFile_.filename().string(); }

  void close();

 private:
  void next();
  [[nodiscard]] bool takeTurn();
  void endTurn();
  void answered(const CloudMirror::Pending& pending,
                const std::expected<EtcdChangeResult, EtcdError>& answer);
  void failed(const EtcdError& error);
  EventToken later(std::chrono::duration<double> delay, void (EtcdSending::*step)());
  void retry();
  void askForTurn();
  void missTurn();

  const std::shared_ptr<CloudMirror> mirror_;
  const std::filesystem::path turnFile_;
  const std::shared_ptr<DispatchQueue> queue_;
  Handlers handlers_;
  std::shared_ptr<EtcdClient> client_;
  Descriptor turn_;
  bool isSending_ = false, isClosed_ = false, isWaiting_ = false;
  std::int64_t markRevision_ = 0;
  int attempts_ = 0;  // of one change, with other marks expected
  std::optional<std::chrono::steady_clock::time_point> turnMissedSince_;
  std::chrono::duration<double> delay_;
  EventToken retry_, turnTimer_;
};

}  // namespace ombrix::platform::detail
