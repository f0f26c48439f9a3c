#pragma once

#include <memory>

#include "OmbrixCore/Networking/Errors/HTTPError.hpp"
#include "OmbrixCore/Networking/Requests/HTTPAnswer.hpp"
#include "OmbrixCore/Networking/Requests/HttpRequestOperation.hpp"
#include "OmbrixPlatform/Concurrency/Executor.hpp"
#include "OmbrixPlatform/Publishers/AnyPublisher.hpp"

namespace ombrix {

/// A request operation as a publisher: it delivers one answer and the end, or a failure with its
/// code and body.
///
/// The answer is delivered where the operation calls back, or in a job of an executor. The first
/// demand runs an operation of the product's web service; any other operation is run by its maker,
/// who must keep it until it runs. An operation that is cancelled, or destroyed before it ran,
/// sends nothing, not even an end: it releases its subscriber. An operation is run once: an
/// operation of the web service whose publisher is subscribed to again (as a retry would) stops the
/// program, naming the request. Make a publisher for each attempt.
class HTTPRequestOperationPublisher final
    : public platform::PublisherOperators<HTTPRequestOperationPublisher, HTTPAnswer, HTTPError> {
 public:
  /// @param deliverOn Where the subscriber is called, as by `receiveOn`; null: where the operation
  ///   calls back.
  explicit HTTPRequestOperationPublisher(std::shared_ptr<HttpRequestOperation> operation,
                                         std::shared_ptr<platform::Executor> deliverOn = nullptr);

  [[nodiscard]] const std::shared_ptr<HttpRequestOperation>& operation() const noexcept {
    return operation_;
  }

  void receive(AnySubscriber subscriber) const;

 private:
  class Inner;

  std::shared_ptr<HttpRequestOperation> operation_;
  std::shared_ptr<platform::Executor> deliverOn_;
};

}  // namespace ombrix
