#pragma once

#include <memory>
#include <optional>
#include <tuple>
#include <utility>

#include "OmbrixPlatform/Publishers/Demand.hpp"

namespace ombrix::platform {

/// The failure of a publisher that cannot fail; it has no values.
struct Never {
  Never() = delete;
};

/// The output of a publisher that only reports that something happened.
using Void = std::tuple<>;

/// How a publisher ended: finished, or with a failure.
template <class Failure>
class Completion {
 public:
  static Completion finished() { return Completion(std::nullopt); }
  static Completion failure(Failure failure) { return Completion(std::move(failure)); }

  [[nodiscard]] bool isFinished() const { return !failure_.has_value(); }

  /// The failure, if it ended with one.
  [[nodiscard]] const std::optional<Failure>& failure() const { return failure_; }

 private:
  explicit Completion(std::optional<Failure> failure) : failure_(std::move(failure)) {}

  std::optional<Failure> failure_;
};

/// A running delivery from a publisher to one subscriber. Any thread.
class Subscription {
 public:
  virtual ~Subscription() = default;

  /// Requests more values, at least one.
  virtual void request(Demand demand) = 0;

  /// Ends the delivery: nothing sent after it returns is delivered. A call that began on another
  /// thread may still be running.
  virtual void cancel() = 0;
};

/// The receiving end. A publisher calls it one call at a time: once `receiveSubscription`, then
/// values, never more than were requested, then at most one completion, and nothing after it.
template <class Output, class Failure>
class Subscriber {
 public:
  virtual ~Subscriber() = default;

  virtual void receiveSubscription(std::shared_ptr<Subscription> subscription) = 0;

  /// Takes a value; the result is added to the demand.
  virtual Demand receiveValue(const Output& value) = 0;

  virtual void receiveCompletion(const Completion<Failure>& completion) = 0;
};

/// A source that delivers values to subscribers. A publisher is a value that is cheap to copy;
/// copies share one source.
template <class T>
concept Publisher =
    requires(const T& publisher,
             std::shared_ptr<Subscriber<typename T::Output, typename T::Failure>> subscriber) {
      publisher.receive(subscriber);
    };

}  // namespace ombrix::platform
