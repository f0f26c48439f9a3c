#include "OmbrixPlatform/Defaults/Etcd/Detail/EtcdSending.hpp"

#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <utility>

#include "OmbrixPlatform/Detail/MadeFile.hpp"
#include "OmbrixPlatform/Files/FileError.hpp"

namespace ombrix::platform::detail {
namespace {

constexpr std::chrono::duration<double> kFirstDelay{0.5};
constexpr std::chrono::duration<double> kLongestDelay{30};
// The end of another's turn is told by the folder; this is for news that got lost.
constexpr std::chrono::duration<double> kTurnDelay{1};
constexpr std::chrono::seconds kLongestTurn{10};
// The mark changes by this device's own changes alone, so one more attempt is the rule.
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
  if (!isWaiting_) return next();
  if (!mirror_->isSendingFromMemory()) endTurn();  // any more
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
  if (mirror_->nextPending() && !takeTurn()) return;
  // Whoever had the turn before may have sent it.
  if (turn_) handlers_.tell(mirror_->refresh());
  const auto pending = mirror_->nextPending();
  if (!pending) {
    turnMissedSince_.reset();
    endTurn();
    return handlers_.advanced();
  }
  CloudMirror::Outcome outcome;
  const std::string device = mirror_->deviceIdentifier(outcome);
  handlers_.tell(std::move(outcome));
  // Under a name that is forgotten a change could be made twice.
  if (device.empty()) return failed({"the device's name for the cloud cannot be kept"});
  isSending_ = true;
  mirror_->sending(*pending);
  client_->change(*pending, device, markRevision_,
                  [self = shared_from_this(),
                   pending = *pending](const std::expected<EtcdChangeResult, EtcdError>& answer) {
                    self->isSending_ = false;
                    if (!self->isClosed_) self->answered(pending, answer);
                  });
}

/// Whether this process may send now. On a disk that takes no file no other process leaves changes.
bool EtcdSending::takeTurn() {
  turnTimer_.cancel();
  while (!turn_) {
    // Opened to read: closing what was opened to write tells the others that a turn has ended.
    auto file = openOrMakeFile(turnFile_.string(), O_RDONLY);
    if (!file) {
      const int code = errno;
      const bool takesNoFile = code == ENOSPC || code == EDQUOT || code == EROFS;
      // One that is there and another user's is the turn of whoever may open it.
      struct stat ignored{};
      const bool isFolderClosed = code == EACCES && ::lstat(turnFile_.c_str(), &ignored) != 0;
      if (takesNoFile || isFolderClosed) return true;
      const FileError error(code, "open", turnFile_.string());
      failed({std::string("the device's turn to send cannot be taken: ") + error.what()});
      return false;
    }
    if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
      missTurn();
      return false;
    }
    if (isSameFile(file.get(), turnFile_.string())) turn_ = std::move(file);
  }
  turnMissedSince_.reset();
  return true;
}

void EtcdSending::endTurn() {
  if (!turn_) return;
  // Closed last, which tells the others, who come at once.
  const auto news = openFile(turnFile_.string(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK);
  ::flock(turn_.get(), LOCK_UN);
  turn_.reset();
}

/// Another process has the turn: comes again, and says so when that one does not get on.
void EtcdSending::missTurn() {
  const auto now = std::chrono::steady_clock::now();
  if (!turnMissedSince_) turnMissedSince_ = now;
  turnTimer_ = later(kTurnDelay, &EtcdSending::askForTurn);
  if (now - *turnMissedSince_ < kLongestTurn) return;
  turnMissedSince_ = now;
  handlers_.failed({"another program of this device is sending and makes no progress"});
}

void EtcdSending::askForTurn() {
  if (!isWaiting_) next();
}

void EtcdSending::answered(const CloudMirror::Pending& pending,
                           const std::expected<EtcdChangeResult, EtcdError>& answer) {
  const bool isRefused = !answer && answer.error().kind == EtcdError::Kind::tooLarge;
  if (!answer && answer.error().kind != EtcdError::Kind::other) mirror_->notTaken();
  if (!answer && !isRefused) return failed(answer.error());
  if (answer) markRevision_ = answer->markRevision;
  if (answer && !answer->revision) {
    if (++attempts_ < kMaxAttempts) return next();
    return failed({"the server's record of this device changes by itself"});
  }
  auto outcome =
      isRefused ? mirror_->refused(pending) : mirror_->sent(pending, answer->revision.value_or(0));
  const bool isSaved = outcome.isSaved;
  const std::string trouble =
      outcome.errors.empty() ? "what was sent cannot be marked as sent" : outcome.errors.front();
  handlers_.tell(std::move(outcome));
  if (!isSaved) {
    // It waits on in the file, for this process or another: whoever sends it next must find its
    // id in the mark instead of making it again.
    markRevision_ = 0;
    return failed({trouble});
  }
  attempts_ = 0;
  delay_ = kFirstDelay;
  if (isRefused) handlers_.refused(pending.key, answer.error());
  handlers_.advanced();
  next();
}

void EtcdSending::failed(const EtcdError& error) {
  attempts_ = 0;
  if (!mirror_->isSendingFromMemory()) endTurn();
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
