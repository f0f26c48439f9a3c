#include "OmbrixCore/Networking/Requests/Detail/RequestTaskDelegate.hpp"

#include <algorithm>
#include <utility>

#include "OmbrixCore/Networking/Requests/HttpRequestOperation.hpp"
#include "OmbrixPlatform/Values/CallOut.hpp"

namespace ombrix::detail {
namespace {

// The most bytes kept of an answer that explains a failure.
constexpr std::size_t kMostBytesOfFailure = std::size_t{1} << 20;

}  // namespace

RequestTaskDelegate::RequestTaskDelegate(std::shared_ptr<HTTPBodySink> sink,
                                         RequestOptions::ProgressHandler progress,
                                         platform::URLSessionCompletionHandler handler)
    : sink_(std::move(sink)), progress_(std::move(progress)), handler_(std::move(handler)) {}

platform::URLSessionTaskDelegate::Flow RequestTaskDelegate::didReceiveData(
    platform::URLSessionDataTask& task, platform::DataView data) {
  const auto response = task.response();
  if (!response || refusal_) return Flow::goOn;
  if (!isSuccessStatus(response->statusCode())) {
    const auto room = kMostBytesOfFailure - failure_.size();
    const auto kept = data.first(std::min(data.size(), room));
    failure_.insert(failure_.end(), kept.begin(), kept.end());
    return Flow::goOn;
  }
  tell(task);
  const auto flow = sink_->take(*response, data);
  if (flow) return *flow;
  refusal_ = std::make_shared<const platform::URLError>(flow.error());
  task.cancel();
  return Flow::goOn;
}

void RequestTaskDelegate::didSendBodyData(platform::URLSessionTask& task,
                                          std::int64_t /*totalBytesSent*/,
                                          std::int64_t /*totalBytesExpectedToSend*/) {
  tell(task);
}

void RequestTaskDelegate::didComplete(platform::URLSessionTask& task,
                                      const std::shared_ptr<const platform::Error>& error) {
  auto response = task.response();
  if (!error && !refusal_ && response && isSuccessStatus(response->statusCode())) {
    const auto ended = sink_->end(*response);
    if (!ended) refusal_ = std::make_shared<const platform::URLError>(ended.error());
  }
  if (sink_ && (refusal_ || error)) sink_->breakOff();
  if (refusal_) return handler_(std::nullopt, nullptr, refusal_);
  if (error) return handler_(std::nullopt, nullptr, error);
  std::optional<platform::Data> body;
  if (!failure_.empty()) body = std::move(failure_);
  handler_(std::move(body), std::move(response), nullptr);
}

void RequestTaskDelegate::tell(const platform::URLSessionTask& task) const {
  if (!progress_) return;
  const HTTPProgress progress{.bytesSent = task.countOfBytesSent(),
                              .bytesExpectedToSend = task.countOfBytesExpectedToSend(),
                              .bytesReceived = task.countOfBytesReceived(),
                              .bytesExpectedToReceive = task.countOfBytesExpectedToReceive()};
  platform::callOut("a handler of progress", [&] { progress_(progress); });
}

}  // namespace ombrix::detail
