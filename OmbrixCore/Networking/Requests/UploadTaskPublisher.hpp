#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "OmbrixCore/Networking/Requests/RequestOptions.hpp"
#include "OmbrixPlatform/Network/URLError.hpp"
#include "OmbrixPlatform/Network/URLSession.hpp"
#include "OmbrixPlatform/Publishers/AnyPublisher.hpp"

namespace ombrix {

/// What an upload brought back.
struct UploadAnswer {
  platform::SharedData data;  // empty when the answer had no body
  std::shared_ptr<const platform::URLResponse> response;
};

/// One upload as a publisher: it starts when a subscriber first asks for a value and sends the
/// answer and the end, on the session's delegate queue. Each subscriber has its own upload;
/// cancelling the subscription cancels the upload.
class UploadTaskPublisher final
    : public platform::PublisherOperators<UploadTaskPublisher, UploadAnswer, platform::URLError> {
 public:
  /// @param data The body; nothing sends none.
  UploadTaskPublisher(platform::URLRequest request, std::shared_ptr<platform::URLSession> session,
                      std::optional<platform::Data> data);

  [[nodiscard]] const platform::URLRequest& request() const noexcept { return parent_->request; }
  [[nodiscard]] const std::shared_ptr<platform::URLSession>& session() const noexcept {
    return parent_->session;
  }
  [[nodiscard]] const std::optional<platform::Data>& data() const noexcept { return parent_->data; }

  using TaskHandler = std::function<void(const std::shared_ptr<platform::URLSessionUploadTask>&)>;

  /// The same upload, which tells how far it is, on the session's delegate queue; calls may be
  /// merged.
  [[nodiscard]] UploadTaskPublisher onProgress(RequestOptions::ProgressHandler handler) const;

  /// The same upload, which hands over the task of each subscriber before it is resumed, on the
  /// thread that first asks for a value.
  [[nodiscard]] UploadTaskPublisher onTask(TaskHandler handler) const;

  void receive(AnySubscriber subscriber) const;

 private:
  struct Parent {
    platform::URLRequest request;
    std::shared_ptr<platform::URLSession> session;
    std::optional<platform::Data> data;
    RequestOptions::ProgressHandler progress = nullptr;
    TaskHandler handleTask = nullptr;
  };
  class Inner;

  std::shared_ptr<const Parent> parent_;
};

/// An upload that runs on a session; nothing runs yet.
UploadTaskPublisher uploadTaskPublisher(std::shared_ptr<platform::URLSession> session,
                                        platform::URLRequest request,
                                        std::optional<platform::Data> data);

}  // namespace ombrix
