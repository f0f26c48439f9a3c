#include "OmbrixCore/Networking/Requests/HTTPRequestOperationPublisher.hpp"

#include <expected>
#include <optional>
#include <utility>

#include "OmbrixPlatform/Locks/FutexLock.hpp"

namespace ombrix {

using platform::Demand;

/// The running delivery to one subscriber.
class HTTPRequestOperationPublisher::Inner final : public platform::Subscription,
                                                   public std::enable_shared_from_this<Inner> {
 public:
  using Completion = platform::Completion<HTTPError>;
  using Outcome = std::expected<HTTPAnswer, HTTPError>;

  Inner(std::shared_ptr<HttpRequestOperation> operation,
        std::shared_ptr<platform::Executor> executor, AnySubscriber downstream)
      : operation_(operation),
        executor_(std::move(executor)),
        asked_(std::move(operation)),
        downstream_(std::move(downstream)) {}

  // Kept: every request puts the operation on its queue, which takes none twice: a subscriber that
  // asks a second time stops the program. Asking once is the contract; an operation that was run
  // silently again would send the request again.
  void request(Demand demand) override {
    if (demand.isNone()) platform::fatalError("a subscriber requested no values");
    std::shared_ptr<HttpRequestOperation> operation;
    {
      const platform::LockGuard lock(lock_);
      if (!downstream_) return;
      demand_ += demand;
      operation = asked_ ? std::move(asked_) : operation_.lock();
    }
    if (!operation) return;
    // From now on the operation keeps the delivery alive, and not the other way round: it releases
    // the delivery at its end, or when it is destroyed because nobody is left to run it.
    operation->setCombineCallback(
        [delivery = Delivery(shared_from_this())](bool success, int code,
                                                  std::optional<platform::Data> data) {
          delivery.inner->deliver(success, code, std::move(data));
        },
        executor_ != nullptr);
    operation->enqueueForPublisher();
  }

  void cancel() override {
    AnySubscriber released;
    {
      const platform::LockGuard lock(lock_);
      released.swap(downstream_);
    }
    if (const auto operation = operation_.lock()) operation->cancel();
  }

  /// The operation has ended: its outcome goes to the subscriber, here or on the executor.
  void deliver(bool success, int code, std::optional<platform::Data> data) {
    const auto operation = operation_.lock();  // which calls
    if (!operation) return;
    auto outcome = outcomeOf(success, code, std::move(data), operation->exchange());
    {
      const platform::LockGuard lock(lock_);
      if (demand_.isNone() || !downstream_ || isAnswered_) return;
      isAnswered_ = true;
      outcome_.swap(outcome);
    }
    if (!executor_) return run();
    executor_->post(platform::OwedJob(shared_from_this()));
  }

  /// Hands the outcome over.
  void run() {
    AnySubscriber downstream;
    std::optional<Outcome> outcome;
    {
      const platform::LockGuard lock(lock_);
      downstream.swap(downstream_);
      outcome.swap(outcome_);
    }
    if (!downstream) return;
    if (!*outcome) {
      return downstream->receiveCompletion(Completion::failure(std::move(outcome->error())));
    }
    downstream->receiveValue(**outcome);
    downstream->receiveCompletion(Completion::finished());
  }

  /// The executor will not run the job: nobody downstream can be reached any more.
  void drop() { release(true); }

 private:
  static std::optional<Outcome> outcomeOf(bool success, int code,
                                          std::optional<platform::Data> data,
                                          HTTPExchange exchange) {
    auto body = data ? platform::SharedData(*std::move(data)) : platform::SharedData();
    if (success) {
      return HTTPAnswer{.code = code,
                        .data = std::move(body),
                        .response = std::move(exchange.response),
                        .metrics = std::move(exchange.metrics)};
    }
    const auto error = HTTPError::withStatusCode(code, body);
    return std::unexpected(error.causedBy({.code = code,
                                           .response = std::move(exchange.response),
                                           .body = std::move(body),
                                           .transportError = std::move(exchange.error)}));
  }

  /// The completion that the operation holds. If the operation releases it without a call, the
  /// answer will never come: the subscriber is released as well, which ends its own waits.
  struct Delivery {
    explicit Delivery(std::shared_ptr<Inner> target) : inner(std::move(target)) {}
    Delivery(Delivery&&) noexcept = default;
    Delivery& operator=(Delivery&&) = delete;
    ~Delivery() {
      if (inner) inner->release(false);
    }

    std::shared_ptr<Inner> inner;
  };

  /// @param evenAnswered Whether an outcome that is on its way must not arrive.
  void release(bool evenAnswered) {
    AnySubscriber released;
    const platform::LockGuard lock(lock_);
    if (evenAnswered || !isAnswered_) released.swap(downstream_);
  }

  const std::weak_ptr<HttpRequestOperation> operation_;
  const std::shared_ptr<platform::Executor> executor_;
  platform::FutexLock lock_;
  std::shared_ptr<HttpRequestOperation> asked_ OMBRIX_GUARDED_BY(lock_);  // until there is demand
  AnySubscriber downstream_ OMBRIX_GUARDED_BY(lock_);  // null after the end or a cancellation
  Demand demand_ OMBRIX_GUARDED_BY(lock_) = Demand::none();
  bool isAnswered_ OMBRIX_GUARDED_BY(lock_) = false;
  std::optional<Outcome> outcome_ OMBRIX_GUARDED_BY(lock_);  // on its way
};

HTTPRequestOperationPublisher::HTTPRequestOperationPublisher(
    std::shared_ptr<HttpRequestOperation> operation, std::shared_ptr<platform::Executor> deliverOn)
    : operation_(std::move(operation)), deliverOn_(std::move(deliverOn)) {}

void HTTPRequestOperationPublisher::receive(AnySubscriber subscriber) const {
  const auto inner = std::make_shared<Inner>(operation_, deliverOn_, subscriber);
  operation_->setCombineCallback(
      [weak = std::weak_ptr(inner)](bool success, int code, std::optional<platform::Data> data) {
        if (const auto strong = weak.lock()) strong->deliver(success, code, std::move(data));
      });
  subscriber->receiveSubscription(inner);
}

}  // namespace ombrix
