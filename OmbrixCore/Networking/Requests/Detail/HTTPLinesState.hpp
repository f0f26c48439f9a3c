#pragma once

#include <deque>
#include <exception>
#include <memory>
#include <optional>
#include <string>

#include "OmbrixCore/Networking/Requests/HTTPBodySink.hpp"
#include "OmbrixCore/Networking/Requests/HTTPLines.hpp"
#include "OmbrixCore/Networking/Requests/HttpRequestOperation.hpp"
#include "OmbrixPlatform/Concurrency/Continuation.hpp"
#include "OmbrixPlatform/Locks/FutexLock.hpp"

namespace ombrix {

/// Turns the network's pieces into lines, which wait here to be taken.
class HTTPLines::State final : public HTTPBodySink {
 public:
  explicit State(std::weak_ptr<HttpRequestOperation> operation)
      : operation_(std::move(operation)) {}

  std::expected<Flow, platform::URLError> take(const platform::HTTPURLResponse& response,
                                               platform::DataView piece) override;
  std::expected<void, platform::URLError> end(const platform::HTTPURLResponse& response) override;

  /// False once a part of the answer has come.
  [[nodiscard]] bool beginAgain(const std::shared_ptr<HttpRequestOperation>& operation,
                                platform::HTTPHeaders& headers) override;

  /// The request is over; null where the body was whole.
  void finish(std::exception_ptr error);

  /// For the consumer: a line, the end, or that it has to wait.
  struct Found {
    bool mustWait = false;
    std::optional<std::string> line;
  };
  Found takeLine();

  /// Resumed when there is something to find.
  void await(platform::Continuation<void> continuation);

 private:
  void add(std::string line);
  void wake();

  std::string partial_;    // delegate queue
  bool hasBegun_ = false;  // delegate queue

  platform::FutexLock lock_;
  std::weak_ptr<HttpRequestOperation> operation_ OMBRIX_GUARDED_BY(lock_);
  std::deque<std::string> lines_ OMBRIX_GUARDED_BY(lock_);
  std::size_t bytes_ OMBRIX_GUARDED_BY(lock_) = 0;  // of these lines
  bool isHeld_ OMBRIX_GUARDED_BY(lock_) = false;
  bool isOver_ OMBRIX_GUARDED_BY(lock_) = false;
  std::exception_ptr error_ OMBRIX_GUARDED_BY(lock_);
  std::optional<platform::Continuation<void>> waiting_ OMBRIX_GUARDED_BY(lock_);
};

}  // namespace ombrix
