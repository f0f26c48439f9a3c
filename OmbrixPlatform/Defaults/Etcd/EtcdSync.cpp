#include "OmbrixPlatform/Defaults/Etcd/Detail/EtcdSync.hpp"

#include <algorithm>
#include <future>
#include <utility>

#include "OmbrixPlatform/Concurrency/Process.hpp"
#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"
#include "OmbrixPlatform/Defaults/Detail/CallAtExit.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix::platform::detail {
namespace {

constexpr std::chrono::duration<double> kFirstDelay{0.5};
constexpr std::chrono::duration<double> kLongestDelay{30};
constexpr std::size_t kMaximumReports = 16;

}  // namespace

std::shared_ptr<EtcdSync> EtcdSync::make(EtcdConfiguration configuration) {
  return std::make_shared<EtcdSync>(Passkey{}, std::move(configuration));
}

EtcdSync::EtcdSync(Passkey, EtcdConfiguration configuration)
    : configuration_(std::move(configuration)),
      mirror_(std::make_shared<CloudMirror>(configuration_.folder /
                                            (configuration_.domain + ".plist"))),
      changed_(std::make_shared<Signal<const Store::ExternalChange&>>()),
      queue_(DispatchQueue::serial("cloud store")),
      delay_(kFirstDelay),
      flushDelay_(kFirstDelay) {}

std::optional<PropertyList> EtcdSync::value(std::string_view key) {
  begin();
  CloudMirror::Outcome outcome;
  auto value = mirror_->value(key, outcome);
  tell(std::move(outcome), Store::ChangeReason::serverChange);
  return value;
}

PropertyList::Dictionary EtcdSync::values() {
  begin();
  CloudMirror::Outcome outcome;
  auto values = mirror_->values(outcome);
  tell(std::move(outcome), Store::ChangeReason::serverChange);
  return values;
}

void EtcdSync::set(std::string_view key, std::optional<PropertyList> value) {
  if (!EtcdMessages::isKey(key)) throw Error("a key of the cloud store cannot begin with NUL");
  // The server takes no empty key, and a change that it refuses would hold up all later ones.
  if (key.empty() && configuration_.prefix.empty()) {
    throw Error("a key of a cloud store without a prefix cannot be empty");
  }
  mirror_->set(key, std::move(value));
  begin();
  if (isProcessExiting()) return flushLast();
  if (flushIsDue_.exchange(true)) return;
  queue_->post([self = shared_from_this()] {
    self->flushIsDue_ = false;
    self->flush();
  });
}

void EtcdSync::flushLast() { tell(mirror_->flush(), Store::ChangeReason::serverChange); }

ObservationToken EtcdSync::observe(Store::ExternalChangeHandler handler) {
  auto token = changed_->connect(
      [handler = std::make_shared<Store::ExternalChangeHandler>(std::move(handler))](
          const Store::ExternalChange& change) { (*handler)(change); });
  begin();
  return token;
}

void EtcdSync::tellRefused(std::string_view key) {
  tell({.keys = {std::string(key)}}, Store::ChangeReason::quotaViolation);
}

bool EtcdSync::synchronize() {
  if (queue_->isCurrent()) fatalError("a change handler must not wait for the cloud store");
  begin();
  std::promise<bool> promise;
  auto result = promise.get_future();
  queue_->post([self = shared_from_this(), promise = std::move(promise)]() mutable {
    if (self->phase_ == Phase::closed) return promise.set_value(false);
    self->lookAtFile();
    self->flush();
    Waiter waiter = [promise = std::move(promise)](bool succeeded) mutable {
      promise.set_value(succeeded);
    };
    self->nextCallers_.push_back(
        {std::move(waiter), self->mirror_->lastOrder(), !self->mirror_->isFlushed()});
    if (self->phase_ != Phase::reading) self->read();
    self->sending_->sendNow(self->client_);
  });
  const ThreadPool::BlockingScope blocking;
  return result.get();
}

void EtcdSync::close() {
  queue_->post([self = shared_from_this()] { self->end(); });
}

void EtcdSync::closeAndWait() {
  if (queue_->isCurrent()) fatalError("a change handler must not wait for the cloud store's end");
  const auto client = queue_->sync([this] {
    flush();
    auto kept = client_;
    end();
    return kept;
  });
  if (client) client->awaitEnd();
}

void EtcdSync::end() {
  phase_ = Phase::closed;
  ++round_;
  retry_.cancel();
  flushRetry_.cancel();
  fileWatch_.cancel();
  if (sending_) sending_->close();
  sending_.reset();
  if (client_) client_->close();
  client_.reset();
  releaseAll();
}

void EtcdSync::begin() {
  if (hasBegun_.exchange(true)) return;
  callAtExit<EtcdSync, &EtcdSync::flushLast>(weak_from_this());
  queue_->post([self = shared_from_this()] { self->start(); });
}

void EtcdSync::start() {
  if (phase_ != Phase::idle) return;
  client_ = EtcdClient::make(configuration_, queue_);
  const auto calling = [weak = weak_from_this()](auto operation) {
    return [weak, operation](auto&&... arguments) {
      if (const auto self = weak.lock()) {
        operation(*self, std::forward<decltype(arguments)>(arguments)...);
      }
    };
  };
  sending_ = EtcdSending::make(
      mirror_, configuration_.folder / ("." + configuration_.domain + ".sending"), queue_,
      {.tell = calling([](EtcdSync& self, CloudMirror::Outcome outcome) {
         self.tell(std::move(outcome), Store::ChangeReason::serverChange);
       }),
       .refused = calling([](EtcdSync& self, const std::string& key, const EtcdError& error) {
         self.report("\"" + key + "\" cannot be kept in the cloud: " + error.message);
         self.tellRefused(key);
       }),
       .failed = calling([](EtcdSync& self, const EtcdError& error) { self.sendingFailed(error); }),
       .advanced = calling([](EtcdSync& self) { self.releaseDone(); })});
  watchFile();
  read();
  sending_->poke(client_);
}

void EtcdSync::watchFile() {
  try {
    fileWatch_ = FolderWatcher::shared().watch(
        configuration_.folder, [weak = weak_from_this()](const FolderChange& change) {
          if (const auto self = weak.lock()) self->noteFolderChange(change);
        });
  } catch (const Error& error) {
    report(error.what());
  }
}

/// On the events thread: the file has changed, or another process's turn to send has ended.
void EtcdSync::noteFolderChange(const FolderChange& change) {
  const bool isOurs = change.kind == FolderChange::Kind::lookAgain ||
                      change.name == configuration_.domain + ".plist" ||
                      change.name == "." + configuration_.domain + ".sending";
  if (!isOurs || lookIsDue_.exchange(true)) return;
  queue_->post([self = shared_from_this()] {
    self->lookIsDue_ = false;
    if (self->phase_ == Phase::closed) return;
    self->lookAtFile();
    self->flush();
  });
}

/// Puts the new values into the file and has them sent; they are sent even if the file fails.
void EtcdSync::flush() {
  auto outcome = mirror_->flush();
  const bool isSaved = outcome.isSaved;
  tell(std::move(outcome), Store::ChangeReason::serverChange);
  if (phase_ == Phase::closed) return;
  if (isSaved) {
    flushRetry_.cancel();
    flushDelay_ = kFirstDelay;
    for (auto* callers : {&callers_, &nextCallers_}) {
      for (Caller& caller : *callers) {
        if (std::exchange(caller.awaitsFlush, false)) caller.lastOrder = mirror_->lastOrder();
      }
    }
  } else {
    flushRetry_ = later(flushDelay_, [](EtcdSync& self) { self.flush(); });
    flushDelay_ = std::min(flushDelay_ * 2, kLongestDelay);
  }
  releaseDone();
  if (sending_) sending_->poke(client_);
}

/// Calls a step on the queue after a delay.
EventToken EtcdSync::later(std::chrono::duration<double> delay, void (*step)(EtcdSync& self)) {
  return after(delay, [weak = weak_from_this(), step] {
    const auto self = weak.lock();
    if (!self) return;
    self->queue_->post([self, step] {
      if (self->phase_ != Phase::closed) step(*self);
    });
  });
}

void EtcdSync::lookAtFile() {
  tell(mirror_->refresh(), Store::ChangeReason::serverChange);
  // Changes that could not be written were shown until another process wrote the file.
  const auto position = mirror_->position();
  const bool isBehind = position.epoch == taken_.epoch && position.revision < taken_.revision;
  if (isBehind && phase_ == Phase::watching) read();
}

/// Reads everything, and watches from that revision on.
void EtcdSync::read() {
  const std::uint64_t round = ++round_;
  phase_ = Phase::reading;
  retry_.cancel();
  std::ranges::move(nextCallers_, std::back_inserter(callers_));
  nextCallers_.clear();
  const auto asked = mirror_->position();
  client_->range(
      [self = shared_from_this(), round, asked](const std::expected<EtcdSnapshot, EtcdError>& all) {
        if (round != self->round_) return;
        if (!all) return self->readFailed(all.error(), round);
        auto outcome = self->mirror_->take(*all, asked);
        const bool isSaved = outcome.isSaved;
        self->tell(std::move(outcome), std::exchange(self->hasRead_, true)
                                           ? Store::ChangeReason::serverChange
                                           : Store::ChangeReason::initialSync);
        self->taken_ = self->mirror_->position();
        self->delay_ = kFirstDelay;
        {
          const LockGuard lock(self->reportMutex_);
          if (isSaved) self->reported_.clear();
        }
        self->heard_ = std::min(all->revision, self->taken_.revision);
        self->follow(round, IfCompacted::fail);
        for (auto& caller : self->callers_) caller.hasRead = true;
        self->releaseDone();
        if (!self->nextCallers_.empty()) return self->read();
        self->sending_->sendNow(self->client_);
      });
}

void EtcdSync::follow(std::uint64_t round, IfCompacted ifCompacted) {
  phase_ = Phase::watching;
  const std::int64_t epoch = taken_.epoch, first = heard_ + 1;
  client_->watch(
      first,
      [self = shared_from_this(), round, epoch, first](const EtcdWatchMessage& message) {
        if (round != self->round_ || message.ended) return;
        if (message.revision > 0 && message.revision < first - 1) {
          return self->readFailed({"the server's revisions have started over"}, round);
        }
        if (message.isProgress) self->heard_ = std::max(self->heard_, message.revision);
        if (message.events.empty()) return;
        self->tell(self->mirror_->take(message.events, epoch), Store::ChangeReason::serverChange);
        self->taken_ = self->mirror_->position();
        self->heard_ = std::max(self->heard_, self->taken_.revision);
        if (self->taken_.epoch != epoch) self->read();
      },
      [self = shared_from_this(), round, ifCompacted](const std::optional<EtcdError>& error) {
        if (round != self->round_) return;
        // The watch was silent for a minute: a new one starts where it stood. The server may have
        // discarded that revision if others than we have written; that is not a fault.
        if (!error) return self->follow(round, IfCompacted::read);
        const bool isCompacted = error->kind == EtcdError::Kind::compacted;
        if (isCompacted && ifCompacted == IfCompacted::read) return self->read();
        self->readFailed(*error, round);
      });
}

void EtcdSync::readFailed(const EtcdError& error, std::uint64_t round) {
  if (round != round_) return;
  ++round_;
  phase_ = Phase::waiting;
  report(error.message);
  retry_ = later(delay_, [](EtcdSync& self) {
    if (self.phase_ == Phase::waiting) self.read();
  });
  delay_ = std::min(delay_ * 2, kLongestDelay);
  releaseAll();
}

void EtcdSync::sendingFailed(const EtcdError& error) {
  report(error.message);
  releaseAll();
}

/// Answers the calls whose changes are sent and whose reading is done.
void EtcdSync::releaseDone() {
  const auto pending = mirror_->nextPending();
  std::vector<Caller> done;
  std::erase_if(callers_, [&](Caller& caller) {
    const bool isSent = (!caller.awaitsFlush || mirror_->isFlushed()) &&
                        (!pending || pending->order > caller.lastOrder);
    const bool isDone = caller.hasRead && isSent;
    if (isDone) done.push_back(std::move(caller));
    return isDone;
  });
  for (auto& caller : done) caller.waiter(true);
}

/// Something has failed: no call waits until it works again.
void EtcdSync::releaseAll() {
  std::vector<Caller> all = std::move(callers_);
  std::ranges::move(nextCallers_, std::back_inserter(all));
  callers_.clear();
  nextCallers_.clear();
  for (auto& caller : all) caller.waiter(false);
}

/// Tells observers on the queue, on whichever thread the change was found.
void EtcdSync::tell(CloudMirror::Outcome outcome, Store::ChangeReason reason) {
  for (const auto& error : outcome.errors) report(error);
  if (outcome.keys.empty()) return;
  queue_->post([self = shared_from_this(), reason, keys = std::move(outcome.keys)] {
    if (self->phase_ != Phase::closed) self->changed_->send({reason, keys});
  });
}

void EtcdSync::report(const std::string& message) {
  {
    const LockGuard lock(reportMutex_);
    if (message.empty()) return;
    if (reported_.size() >= kMaximumReports) reported_.clear();
    if (!reported_.insert(message).second) return;
  }
  if (configuration_.onError) configuration_.onError(message);
}

}  // namespace ombrix::platform::detail
