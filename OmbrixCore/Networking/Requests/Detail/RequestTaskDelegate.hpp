#pragma once

#include <memory>

#include "OmbrixCore/Networking/Requests/HTTPBodySink.hpp"
#include "OmbrixCore/Networking/Requests/RequestOptions.hpp"
#include "OmbrixPlatform/Network/URLSession.hpp"

namespace ombrix::detail {

/// The delegate of one request's task: it passes the body of a success on to a sink, gathers the
/// body of a failure, which explains it, and reports progress.
class RequestTaskDelegate final : public platform::URLSessionTaskDelegate {
 public:
  /// @param sink Null for a task with a handler of its own; then only progress is reported.
  /// @param progress May be empty.
  /// @param handler Called at the end in place of such a handler if there is a sink.
  RequestTaskDelegate(std::shared_ptr<HTTPBodySink> sink, RequestOptions::ProgressHandler progress,
                      platform::URLSessionCompletionHandler handler);

  Flow didReceiveData(platform::URLSessionDataTask& task, platform::DataView data) override;
  void didSendBodyData(platform::URLSessionTask& task, std::int64_t totalBytesSent,
                       std::int64_t totalBytesExpectedToSend) override;
  void didComplete(platform::URLSessionTask& task,
                   const std::shared_ptr<const platform::Error>& error) override;

 private:
  void tell(const platform::URLSessionTask& task) const;

  const std::shared_ptr<HTTPBodySink> sink_;
  const RequestOptions::ProgressHandler progress_;
  platform::URLSessionCompletionHandler handler_;
  platform::Data failure_;                             // the body of a failure
  std::shared_ptr<const platform::URLError> refusal_;  // the sink's
};

}  // namespace ombrix::detail
