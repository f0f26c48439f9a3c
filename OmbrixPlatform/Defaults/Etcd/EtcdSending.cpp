#include "OmbrixPlatform/Defaults/Etcd/Detail/EtcdSending.hpp"

#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <utility>

#include "OmbrixPlatform/Detail/MadeFile.hpp"

namespace ombrix::platform::detail {
namespace {

constexpr std::chrono::duration<double> kFirstDelay{0.5};
constexpr std::chrono::duration<double> kLongestDelay{30};
// Events of the folder announce the end of another's turn; this is for events that got lost.
constexpr std::chrono::duration<double> kTurnDelay{1};
constexpr std::chrono::seconds kLongestTurn{10};
// A mark changes by this device's own changes alone, so one more attempt is the rule.
constexpr int kMaxAttempts = 10;

bool isSameFile(int descriptor, const std::string& path) {
  struct stat held{}, named{};
  return ::fstat(descriptor, &held) == 0 && ::stat(path.c_str(), &named) == 0 &&
         held.st_dev == named.st_dev && held.st_ino == named.st_ino;
}

}  // namespace

std::shared_ptr<EtcdSending> EtcdSending::make(std::shared_ptr<CloudMirror> mirror,
                                               std::filesystem::path turnFile,
                                               std::shared_ptr<DispatchQueue> queue,
                                               Handlers handlers) {
  return std::make_shared<EtcdSending>(Passkey{}, std::move(mirror), std::move(turnFile),
                                       std::move(queue), std::move(handlers));
}

EtcdSending::EtcdSending(Passkey, std::shared_ptr<CloudMirror> mirror,
                         std::filesystem::path turnFile, std::shared_ptr<DispatchQueue> queue,
                         Handlers handlers)
    : mirror_(std::move(mirror)),
      turnFile_(std::move(turnFile)),
      queue_(std::move(queue)),
      handlers_(std::move(handlers)),
      delay_(kFirstDelay) {}

void EtcdSending::poke(const std::shared_ptr<EtcdClient>& client) {
  client_ = client;
  if (!isWaiting_) next();
}

void EtcdSending::sendNow(const std::shared_ptr<EtcdClient>& client) {
  retry_.cancel();
  isWaiting_ = false;
  poke(client);
}

void EtcdSending::close() {
  isClosed_ = true;
  retry_.cancel();
  turnTimer_.cancel();
  endTurn();
  client_.reset();
  handlers_ = {};
}

void EtcdSending::next() {
  if (isClosed_ || isSending_) return;
  if (mirror_->nextPending() && !maySend()) return;
  // The process that had the turn before may have sent it.
  handlers_.tell(mirror_->refresh());
  const auto pending = mirror_->nextPending();
  if (!pending) {
    missedFor_.clear();
    endTurn();
    return handlers_.advanced();
  }
  CloudMirror::Outcome outcome;
  const std::string device = mirror_->deviceIdentifier(outcome);
  handlers_.tell(std::move(outcome));
  // If the device forgot its name, a change could be made twice.
  if (device.empty()) return failed({"the device's name for the cloud cannot be kept"});
  isSending_ = true;
  // What another mark is, nobody knows: it may be this very change, or a later one.
  client_->change(*pending, device, markFor_ == pending->id ? markRevision_ : 0,
                  [self = shared_from_this(),
                   pending = *pending](const std::expected<EtcdChangeResult, EtcdError>& answer) {
                    self->isSending_ = false;
                    if (!self->isClosed_) self->answered(pending, answer);
                  });
}

/// Takes the turn, if no other process has it.
bool EtcdSending::maySend() {
  turnTimer_.cancel();
  while (!turn_) {
    // Opened for reading: only closing a file that was opened for writing tells the others that a
    // turn has ended.
    auto file = openOrMakeFile(turnFile_.string(), O_RDONLY);
    if (!file) return true;
    if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) return isTurnMissedForLong();
    if (isSameFile(file.get(), turnFile_.string())) turn_ = std::move(file);
  }
  missedFor_.clear();
  return true;
}

void EtcdSending::endTurn() {
  if (!turn_) return;
  // Closed last: that tells the others, and they come at once.
  const auto news = openFile(turnFile_.string(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK);
  ::flock(turn_.get(), LOCK_UN);
  turn_.reset();
}

/// Another process has the turn: whether it has not got on with what waits for long. Comes again.
bool EtcdSending::isTurnMissedForLong() {
  const auto now = std::chrono::steady_clock::now();
  const auto pending = mirror_->nextPending();
  if (pending && std::exchange(missedFor_, pending->id) != pending->id) missedSince_ = now;
  if (now - missedSince_ >= kLongestTurn) return true;
  turnTimer_ = later(kTurnDelay, &EtcdSending::askForTurn);
  return false;
}

void EtcdSending::askForTurn() {
  if (!isWaiting_) next();
}

void EtcdSending::answered(const CloudMirror::Pending& pending,
                           const std::expected<EtcdChangeResult, EtcdError>& answer) {
  const bool isRefused = !answer && answer.error().kind == EtcdError::Kind::tooLarge;
  if (!answer && !isRefused) return failed(answer.error());
  const bool isMade = answer && answer->revision;
  if (!isMade && !isRefused && !answer->isOvertaken) {
    markFor_ = pending.id;
    markRevision_ = answer->markRevision;
    if (++attempts_ < kMaxAttempts) return next();
    return failed({"the server's record of this device changes by itself"});
  }
  markFor_.clear();
  handlers_.tell(isMade ? mirror_->sent(pending, *answer->revision) : mirror_->withdrawn(pending));
  attempts_ = 0;
  delay_ = kFirstDelay;
  if (isRefused) handlers_.refused(pending.key, answer.error());
  handlers_.advanced();
  next();
}

void EtcdSending::failed(const EtcdError& error) {
  attempts_ = 0;
  endTurn();
  isWaiting_ = true;
  retry_ = later(delay_, &EtcdSending::retry);
  delay_ = std::min(delay_ * 2, kLongestDelay);
  handlers_.failed(error);
}

void EtcdSending::retry() {
  isWaiting_ = false;
  next();
}

/// Calls a step on the queue after a delay.
EventToken EtcdSending::later(std::chrono::duration<double> delay, void (EtcdSending::*step)()) {
  return after(delay, [weak = weak_from_this(), step] {
    const auto self = weak.lock();
    if (!self) return;
    self->queue_->post([self, step] {
      if (!self->isClosed_) (self.get()->*step)();
    });
  });
}

}  // namespace ombrix::platform::detail
