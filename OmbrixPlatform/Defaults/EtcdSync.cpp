#include "OmbrixPlatform/Defaults/Detail/EtcdSync.hpp"

#include <algorithm>
#include <future>
#include <utility>

#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix::platform::detail {
namespace {

constexpr std::chrono::duration<double> kFirstDelay{0.5};
constexpr std::chrono::duration<double> kLongestDelay{30};

}  // namespace

std::shared_ptr<EtcdSync> EtcdSync::make(EtcdConfiguration configuration) {
  return std::make_shared<EtcdSync>(Passkey{}, std::move(configuration));
}

EtcdSync::EtcdSync(Passkey, EtcdConfiguration configuration)
    : configuration_(std::move(configuration)),
      mirror_(configuration_.folder / (configuration_.domain + ".plist")),
      changed_(std::make_shared<Signal<const Store::ExternalChange&>>()),
      queue_(DispatchQueue::serial("cloud store")),
      delay_(kFirstDelay) {}

std::optional<PropertyList> EtcdSync::value(std::string_view key) {
  begin();
  CloudMirror::Outcome outcome;
  auto value = mirror_.value(key, outcome);
  tell(std::move(outcome), Store::ChangeReason::serverChange);
  return value;
}

PropertyList::Dictionary EtcdSync::values() {
  begin();
  CloudMirror::Outcome outcome;
  auto values = mirror_.values(outcome);
  tell(std::move(outcome), Store::ChangeReason::serverChange);
  return values;
}

void EtcdSync::set(std::string_view key, std::optional<PropertyList> value) {
  tell(mirror_.set(key, std::move(value)), Store::ChangeReason::serverChange);
  begin();
  post([self = shared_from_this()] { self->sendWhileWatching(); });
}

ObservationToken EtcdSync::observe(Store::ExternalChangeHandler handler) {
  auto token = changed_->connect(
      [handler = std::make_shared<Store::ExternalChangeHandler>(std::move(handler))](
          const Store::ExternalChange& change) { (*handler)(change); });
  begin();
  return token;
}

void EtcdSync::tellRefused(std::string_view key) {
  changed_->send({Store::ChangeReason::quotaViolation, {std::string(key)}});
}

bool EtcdSync::synchronize() {
  if (queue_->isCurrent()) fatalError("a change handler must not wait for the cloud store");
  hasBegun_ = true;
  std::promise<bool> promise;
  auto result = promise.get_future();
  post([self = shared_from_this(), promise = std::move(promise)]() mutable {
    Waiter waiter = [promise = std::move(promise)](bool succeeded) mutable {
      promise.set_value(succeeded);
    };
    if (self->phase_ == Phase::closed) return waiter(false);
    self->nextWaiters_.push_back(std::move(waiter));
    if (self->phase_ != Phase::exchanging) self->exchange();
  });
  const ThreadPool::BlockingScope blocking;
  return result.get();
}

void EtcdSync::close() {
  post([self = shared_from_this()] {
    self->phase_ = Phase::closed;
    ++self->round_;
    self->retry_.cancel();
    if (self->client_) self->client_->close();
    self->client_.reset();
    self->release(false);
  });
}

void EtcdSync::begin() {
  if (hasBegun_.exchange(true)) return;
  post([self = shared_from_this()] {
    if (self->phase_ == Phase::idle) self->exchange();
  });
}

void EtcdSync::post(Job job) { queue_->post(std::move(job)); }

/// One round: send what waits, read everything, watch from there on.
void EtcdSync::exchange() {
  const std::uint64_t round = ++round_;
  phase_ = Phase::exchanging;
  retry_.cancel();
  isSending_ = false;
  std::ranges::move(nextWaiters_, std::back_inserter(waiters_));
  nextWaiters_.clear();
  if (!client_) client_ = EtcdClient::make(configuration_, queue_);
  sendPending(round, [self = shared_from_this(), round] { self->read(round); });
}

void EtcdSync::sendPending(std::uint64_t round, Done done) {
  const auto pending = mirror_.nextPending();
  if (!pending) return done();
  client_->put(pending->key, pending->value,
               [self = shared_from_this(), round, pending = *pending,
                done = std::move(done)](std::expected<std::int64_t, EtcdError> revision) mutable {
                 if (round != self->round_) return;
                 if (revision) {
                   self->tell(self->mirror_.sent(pending, *revision),
                              Store::ChangeReason::serverChange);
                 } else if (revision.error().isRefused) {
                   self->tell(self->mirror_.refused(pending), Store::ChangeReason::serverChange);
                   self->report(revision.error().message);
                   self->tellRefused(pending.key);
                 } else {
                   return self->failed(revision.error(), round);
                 }
                 self->sendPending(round, std::move(done));
               });
}

void EtcdSync::read(std::uint64_t round) {
  client_->range([self = shared_from_this(), round](std::expected<EtcdSnapshot, EtcdError> all) {
    if (round != self->round_) return;
    if (!all) return self->failed(all.error(), round);
    self->tell(self->mirror_.take(*all), std::exchange(self->hasRead_, true)
                                             ? Store::ChangeReason::serverChange
                                             : Store::ChangeReason::initialSync);
    self->delay_ = kFirstDelay;
    self->hasReported_ = false;
    self->follow(all->revision + 1, round);
  });
}

void EtcdSync::follow(std::int64_t revision, std::uint64_t round) {
  phase_ = Phase::watching;
  client_->watch(
      revision,
      [self = shared_from_this(), round](const EtcdWatchMessage& message) {
        if (round != self->round_ || message.events.empty()) return;
        self->tell(self->mirror_.take(message.events), Store::ChangeReason::serverChange);
      },
      [self = shared_from_this(), round](const EtcdError& error) { self->failed(error, round); });
  std::vector<Waiter> done;
  done.swap(waiters_);
  for (auto& waiter : done) waiter(true);
  if (!nextWaiters_.empty()) return exchange();
  sendWhileWatching();
}

void EtcdSync::sendWhileWatching() {
  if (phase_ != Phase::watching || std::exchange(isSending_, true)) return;
  sendPending(round_, [self = shared_from_this()] { self->isSending_ = false; });
}

void EtcdSync::failed(const EtcdError& error, std::uint64_t round) {
  if (round != round_) return;
  ++round_;
  phase_ = Phase::waiting;
  if (!std::exchange(hasReported_, true)) report(error.message);
  retry_ = after(delay_, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) {
      self->post([self] {
        if (self->phase_ == Phase::waiting) self->exchange();
      });
    }
  });
  delay_ = std::min(delay_ * 2, kLongestDelay);
  release(false);
}

void EtcdSync::release(bool succeeded) {
  std::vector<Waiter> all = std::move(waiters_);
  std::ranges::move(nextWaiters_, std::back_inserter(all));
  waiters_.clear();
  nextWaiters_.clear();
  for (auto& waiter : all) waiter(succeeded);
}

/// Tells observers on the queue, whichever thread met the change.
void EtcdSync::tell(CloudMirror::Outcome outcome, Store::ChangeReason reason) {
  for (const auto& error : outcome.errors) report(error);
  if (outcome.keys.empty()) return;
  post([self = shared_from_this(), reason, keys = std::move(outcome.keys)] {
    self->changed_->send({reason, keys});
  });
}

void EtcdSync::report(const std::string& message) {
  {
    const std::lock_guard lock(reportMutex_);
    if (std::exchange(lastReport_, message) == message) return;
  }
  if (configuration_.onError) configuration_.onError(message);
}

}  // namespace ombrix::platform::detail
