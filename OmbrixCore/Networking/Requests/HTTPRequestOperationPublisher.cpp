#include "OmbrixCore/Networking/Requests/HTTPRequestOperationPublisher.hpp"

#include <mutex>
#include <optional>
#include <utility>

namespace ombrix {

using platform::Demand;

/// The running delivery to one subscriber.
class HTTPRequestOperationPublisher::Inner final : public platform::Subscription,
                                                   public std::enable_shared_from_this<Inner> {
 public:
  using Completion = platform::Completion<HTTPError>;

  Inner(std::shared_ptr<HttpRequestOperation> operation, AnySubscriber downstream)
      : operation_(operation), asked_(std::move(operation)), downstream_(std::move(downstream)) {}

  // Kept: every request puts the operation on its queue, which takes none twice: a subscriber that
  // asks a second time stops the program. Asking once is the contract; an operation that was run
  // silently again would send the request again.
  void request(Demand demand) override {
    if (demand.isNone()) platform::fatalError("a subscriber requested no values");
    std::shared_ptr<HttpRequestOperation> operation;
    {
      const std::lock_guard lock(lock_);
      if (!downstream_) return;
      demand_ += demand;
      operation = asked_ ? std::move(asked_) : operation_.lock();
    }
    if (!operation) return;
    // From now on the operation keeps the delivery alive, and not the other way round: it lets go
    // of it at its end, or when it goes because nobody is left to run it.
    operation->setCombineCallback([delivery = Delivery(shared_from_this())](
                                      bool success, int code, std::optional<platform::Data> data) {
      delivery.inner->deliver(success, code, std::move(data));
    });
    operation->enqueueForPublisher();
  }

  void cancel() override {
    AnySubscriber released;
    {
      const std::lock_guard lock(lock_);
      released.swap(downstream_);
    }
    if (const auto operation = operation_.lock()) operation->cancel();
  }

  void deliver(bool success, int code, std::optional<platform::Data> data) {
    AnySubscriber downstream;
    {
      const std::lock_guard lock(lock_);
      if (demand_.isNone()) return;
      downstream.swap(downstream_);
    }
    const auto operation = operation_.lock();  // which calls
    if (!downstream || !operation) return;
    HTTPExchange exchange = operation->exchange();
    auto body = data ? platform::SharedData(*std::move(data)) : platform::SharedData();
    if (!success) {
      const auto error = HTTPError::withStatusCode(code, body);
      return downstream->receiveCompletion(
          Completion::failure(error.causedBy({.code = code,
                                              .response = std::move(exchange.response),
                                              .body = std::move(body),
                                              .transportError = std::move(exchange.error)})));
    }
    downstream->receiveValue({.code = code,
                              .data = std::move(body),
                              .response = std::move(exchange.response),
                              .metrics = std::move(exchange.metrics)});
    downstream->receiveCompletion(Completion::finished());
  }

 private:
  /// What the operation holds. When it lets go of it without a call, the answer will never come:
  /// the subscriber is let go as well, whose own waits end with that.
  struct Delivery {
    explicit Delivery(std::shared_ptr<Inner> target) : inner(std::move(target)) {}
    Delivery(Delivery&&) noexcept = default;
    Delivery& operator=(Delivery&&) = delete;
    ~Delivery() {
      if (inner) inner->release();
    }

    std::shared_ptr<Inner> inner;
  };

  void release() {
    AnySubscriber released;
    const std::lock_guard lock(lock_);
    released.swap(downstream_);
  }

  const std::weak_ptr<HttpRequestOperation> operation_;
  platform::FutexLock lock_;
  std::shared_ptr<HttpRequestOperation> asked_;  // until there is demand
  AnySubscriber downstream_;                     // null once it was served or cancelled
  Demand demand_ = Demand::none();
};

HTTPRequestOperationPublisher::HTTPRequestOperationPublisher(
    std::shared_ptr<HttpRequestOperation> operation)
    : operation_(std::move(operation)) {}

void HTTPRequestOperationPublisher::receive(AnySubscriber subscriber) const {
  const auto inner = std::make_shared<Inner>(operation_, subscriber);
  operation_->setCombineCallback(
      [weak = std::weak_ptr(inner)](bool success, int code, std::optional<platform::Data> data) {
        if (const auto strong = weak.lock()) strong->deliver(success, code, std::move(data));
      });
  subscriber->receiveSubscription(inner);
}

}  // namespace ombrix
