#include <utility>

#include "OmbrixPlatform/Network/Curl/Detail/AnswerOnce.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/CurlErrors.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/CurlLoop.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/NetworkThreads.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/Redirect.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/TransferRules.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/TransferTask.hpp"

namespace ombrix::platform::detail {

// The transfer.

void TransferTask::load(CurlURLSession& session, const std::shared_ptr<Transfer>& transfer) {
  {
    const LockGuard lock(lock_);
    transfer_ = transfer;
  }
  if (!session.loop().submit(transfer)) {
    fail(makeURLError(URLError::Code::cannotLoadFromNetwork,
                      "the network thread cannot be started"));
  }
}

void TransferTask::endTransfer(CurlURLSession& session) {
  std::shared_ptr<Transfer> transfer;
  {
    const LockGuard lock(lock_);
    transfer = std::exchange(transfer_, nullptr);
  }
  if (transfer && !isForkedChild()) session.loop().abandon(std::move(transfer));
}

void TransferTask::resumeReceiving(CurlURLSession& session) {
  std::shared_ptr<Transfer> transfer;
  {
    const LockGuard lock(lock_);
    transfer = transfer_;
  }
  if (transfer) session.loop().resumeReceiving(std::move(transfer));
}

// What the network thread tells.

void TransferTask::exchangeBegins(TimePoint now) {
  bytesSent_ = 0;
  bytesReceived_ = 0;
  bytesExpected_ = -1;
  const LockGuard lock(lock_);
  metrics_.waiting = now - resumedAt_;
}

void TransferTask::requestIsResent() {
  changeMetrics([](auto& metrics) { ++metrics.resendCount; });
}

void TransferTask::waitsForConnectivity() {
  const auto session = this->session();
  if (!session) return;
  if (answerOnError_) {
    endTransfer(*session);
    standIn(*session);
  }
  session->watchPath();
}

void TransferTask::bodySent(std::int64_t totalBytes) {
  bytesSent_ = totalBytes;
  if (!conversation_.mustReport()) return;
  const auto session = this->session();
  if (session) session->post([self = shared_from_this()] { self->reportSent(); });
}

TransferClient::BodyUse TransferTask::headerCame(std::shared_ptr<const HTTPURLResponse> response,
                                                 std::int64_t expectedBytes) {
  bytesExpected_ = expectedBytes;
  const bool isElsewhere = isRedirect(*response);
  const bool isConfirmation = validated_ && response->statusCode() == 304;
  conversation_.headerCame(!isElsewhere && !isConfirmation && !isReplaced(*response));
  response = handedOver(std::move(response), original_->url);
  const LockGuard lock(lock_);
  response_ = std::move(response);
  return isStreaming_ && !isElsewhere ? BodyUse::stream : BodyUse::gather;
}

void TransferTask::bodyIsStillComing() {
  if (!conversation_.mustAskEarly()) return;
  const auto session = this->session();
  if (!session) return;
  session->post([self = shared_from_this(), session] { self->askAboutResponse(*session); });
}

bool TransferTask::takesMore(std::size_t gatheredBytes) {
  return conversation_.takesMore(gatheredBytes);
}

void TransferTask::bodyCame(DataView piece) {
  bytesReceived_ += static_cast<std::int64_t>(piece.size());
  if (!isStreaming_ || isRedirect(*response())) return;
  if (!conversation_.keep(piece)) return;
  const auto session = this->session();
  if (session) session->post([self = shared_from_this()] { self->handOverStream(); });
}

bool TransferTask::askAboutTrust(URLAuthenticationChallenge challenge, TrustAnswer answer) {
  using Disposition = URLSessionDelegate::AuthChallengeDisposition;
  using Reply = std::pair<Disposition, std::optional<URLCredential>>;
  const auto session = this->session();
  if (!session) return false;
  const auto delegate = session->delegate();
  if (!delegate) {
    answer(CurlTrust::Decision::standard);
    return true;
  }
  auto decide =
      [answer = std::move(answer),
       leaf = challenge.protectionSpace.serverTrust->certificates.front()](Reply reply) mutable {
        const auto& [disposition, credential] = reply;
        const bool isThatOne = credential && !credential->trust.certificates.empty() &&
                               credential->trust.certificates.front() == leaf;
        if (disposition == Disposition::cancelAuthenticationChallenge) {
          answer(std::nullopt);
        } else {
          answer(disposition == Disposition::useCredential && isThatOne
                     ? CurlTrust::Decision::accept
                     : CurlTrust::Decision::standard);
        }
      };
  session->post([session, delegate, challenge = std::move(challenge),
                 once = AnswerOnce<Reply>(std::move(decide), {Disposition::performDefaultHandling,
                                                              std::nullopt})]() mutable {
    delegate->didReceiveChallenge(
        *session, challenge,
        [once = std::move(once)](auto disposition,
                                 std::optional<URLCredential> credential) mutable {
          once({disposition, std::move(credential)});
        });
  });
  return true;
}

void TransferTask::goOnWith(WireAnswer wire) {
  const auto session = this->session();
  if (!session) return;
  bytesSent_ = wire.bytesSent;
  std::shared_ptr<const URLRequest> current;
  {
    const LockGuard lock(lock_);
    transfer_ = nullptr;
    current = current_;
    wire.steps.fetchType = URLSessionTaskMetrics::FetchType::networkLoad;
    wire.steps.waiting = metrics_.waiting;
    wire.steps.redirectCount = metrics_.redirectCount;
    wire.steps.resendCount = metrics_.resendCount;
    metrics_ = std::move(wire.steps);
  }
  Answer answer{.response = std::move(wire.response),
                .body = std::move(wire.body),
                .isNew = true,
                .requestTime = wire.requestTime,
                .responseTime = wire.responseTime};
  answer.response = handedOver(std::move(answer.response), original_->url);
  if (passedOver_) answer.response = withTokenOf(*passedOver_, std::move(answer.response));
  auto next = afterAnswer(*current, *answer.response, redirects_, false);
  switch (next.step) {
    case AfterAnswer::Step::follow:
      return follow(*session, std::move(answer), *std::move(next.next));
    case AfterAnswer::Step::fail:
      return fail(std::move(next.error));
    default:
      answer_ = std::move(answer);
      session->loop().postTogether([self = shared_from_this()] { self->concludeKept(); });
  }
}

void TransferTask::failed(std::shared_ptr<const URLError> error) {
  const auto session = this->session();
  const bool isReplaced = answerOnError_ && isUnreachable(*error);
  if (!session || (!isReplaced && !conversation_.isOwedBefore(*error))) {
    return fail(std::move(error));
  }
  {
    const LockGuard lock(lock_);
    transfer_ = nullptr;
  }
  if (isReplaced) return standIn(*session);
  session->post([self = shared_from_this(), error = std::move(error)]() mutable {
    const auto kept = self->session();
    if (!kept || self->isOver()) return;
    self->concludeWith(*kept, {.error = std::move(error)}, self->response());
  });
}

}  // namespace ombrix::platform::detail
