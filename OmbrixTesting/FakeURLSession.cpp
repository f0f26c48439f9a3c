#include "OmbrixTesting/FakeURLSession.hpp"

#include <chrono>
#include <utility>

#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix::testing {

using platform::Data;
using platform::URLError;
using platform::URLRequest;

FakeURLSession::Answer FakeURLSession::Answer::failure(URLError error) {
  return {.error = std::make_shared<const URLError>(std::move(error))};
}

class FakeURLSession::Task final : public platform::URLSessionUploadTask,
                                   public std::enable_shared_from_this<Task> {
 public:
  Task(std::shared_ptr<FakeURLSession> session, std::uint64_t identifier, URLRequest request,
       platform::URLSessionCompletionHandler handler)
      : session_(std::move(session)),
        identifier_(identifier),
        request_(std::move(request)),
        handler_(std::move(handler)) {}

  void resume() override {
    std::shared_ptr<FakeURLSession> session;
    {
      const platform::LockGuard lock(mutex_);
      if (state_ != State::suspended) return;
      state_ = State::running;
      session = session_;
    }
    session->resumed(shared_from_this());
  }

  void setDelegate(std::shared_ptr<platform::URLSessionTaskDelegate> delegate) override {
    const platform::LockGuard lock(mutex_);
    delegate_.swap(delegate);
  }
  void receiveMore() override {}  // bodies arrive whole

  void cancel() override { end(Answer::failure(URLError(URLError::Code::cancelled))); }

  void end(Answer answer) {
    std::shared_ptr<FakeURLSession> session;
    platform::URLSessionCompletionHandler handler;
    std::shared_ptr<platform::URLSessionTaskDelegate> delegate;
    {
      const platform::LockGuard lock(mutex_);
      if (state_ == State::completed) return;
      state_ = State::completed;
      session = std::move(session_);
      handler = std::move(handler_);
      delegate = std::move(delegate_);
      if (!answer.error && answer.isHTTP) {
        response_ = std::make_shared<const platform::HTTPURLResponse>(request_.url, answer.status,
                                                                      answer.headers);
      }
      error_ = answer.error;
    }
    session->queue_->async([self = shared_from_this(), url = request_.url,
                            handler = std::move(handler), delegate = std::move(delegate),
                            answer = std::move(answer)]() mutable {
      if (!handler && delegate) {
        if (answer.body) delegate->didReceiveData(*self, platform::bytesOf(*answer.body));
        return delegate->didComplete(*self, answer.error);
      }
      if (answer.error) return handler(std::nullopt, nullptr, answer.error);
      std::optional<Data> body;
      if (answer.body) body = platform::dataFrom(*answer.body);
      if (!answer.isHTTP) {
        return handler(std::move(body), std::make_shared<const platform::URLResponse>(url),
                       nullptr);
      }
      handler(std::move(body), self->response(), nullptr);
    });
  }

  State state() const override {
    const platform::LockGuard lock(mutex_);
    return state_;
  }
  std::uint64_t taskIdentifier() const override { return identifier_; }
  const URLRequest& originalRequest() const override { return request_; }
  URLRequest currentRequest() const override { return request_; }
  std::shared_ptr<const platform::HTTPURLResponse> response() const override {
    const platform::LockGuard lock(mutex_);
    return response_;
  }
  std::shared_ptr<const platform::Error> error() const override {
    const platform::LockGuard lock(mutex_);
    return error_;
  }
  std::int64_t countOfBytesSent() const override { return 0; }
  std::int64_t countOfBytesExpectedToSend() const override { return 0; }
  std::int64_t countOfBytesReceived() const override { return 0; }
  std::int64_t countOfBytesExpectedToReceive() const override { return -1; }
  platform::URLSessionTaskMetrics metrics() const override { return {}; }

 private:
  mutable platform::Mutex mutex_;
  State state_ OMBRIX_GUARDED_BY(mutex_) = State::suspended;
  std::shared_ptr<FakeURLSession> session_ OMBRIX_GUARDED_BY(mutex_);  // until it has ended
  const std::uint64_t identifier_;
  const URLRequest request_;
  platform::URLSessionCompletionHandler handler_ OMBRIX_GUARDED_BY(mutex_);
  std::shared_ptr<platform::URLSessionTaskDelegate> delegate_ OMBRIX_GUARDED_BY(mutex_);
  std::shared_ptr<const platform::HTTPURLResponse> response_ OMBRIX_GUARDED_BY(mutex_);
  std::shared_ptr<const platform::Error> error_ OMBRIX_GUARDED_BY(mutex_);
};

std::shared_ptr<FakeURLSession> FakeURLSession::make(
    Rule rule, const platform::URLSessionConfiguration& configuration,
    std::shared_ptr<platform::URLSessionDelegate> delegate,
    std::shared_ptr<platform::DispatchQueue> delegateQueue) {
  return std::make_shared<FakeURLSession>(Passkey{}, std::move(rule), configuration,
                                          std::move(delegate), std::move(delegateQueue));
}

FakeURLSession::FakeURLSession(Passkey, Rule rule,
                               const platform::URLSessionConfiguration& configuration,
                               std::shared_ptr<platform::URLSessionDelegate> delegate,
                               std::shared_ptr<platform::DispatchQueue> delegateQueue)
    : rule_(std::move(rule)),
      configuration_(configuration),
      delegate_(std::move(delegate)),
      queue_(delegateQueue ? std::move(delegateQueue)
                           : platform::DispatchQueue::serial("ombrix.testing.session")) {}

FakeURLSession::~FakeURLSession() = default;

std::shared_ptr<FakeURLSession::Task> FakeURLSession::taskAt(std::size_t index) {
  const platform::LockGuard lock(mutex_);
  const auto isThere = [&]() OMBRIX_REQUIRES(mutex_) { return resumed_.size() > index; };
  if (!added_.wait_for(mutex_, std::chrono::seconds(30), isThere)) {
    platform::fatalError("no task was resumed");
  }
  return resumed_[index];
}

void FakeURLSession::complete(std::size_t index, Answer answer) {
  taskAt(index)->end(std::move(answer));
}

URLRequest FakeURLSession::request(std::size_t index) { return taskAt(index)->originalRequest(); }

std::size_t FakeURLSession::madeCount() const {
  const platform::LockGuard lock(mutex_);
  return madeCount_;
}

std::size_t FakeURLSession::resumedCount() const {
  const platform::LockGuard lock(mutex_);
  return resumed_.size();
}

void FakeURLSession::resumed(const std::shared_ptr<Task>& task) {
  bool isEnded = false;
  {
    const platform::LockGuard lock(mutex_);
    isEnded = isEnded_;
    resumed_.push_back(task);
    added_.notify_all();
  }
  if (isEnded) return task->end(Answer::failure(URLError(URLError::Code::unknown)));
  if (!rule_) return;
  if (auto answer = rule_(task->originalRequest())) task->end(std::move(*answer));
}

std::shared_ptr<platform::URLSessionDataTask> FakeURLSession::dataTask(
    URLRequest request, platform::URLSessionCompletionHandler completionHandler) {
  return uploadTask(request, request.httpBody, std::move(completionHandler));
}

std::shared_ptr<platform::URLSessionUploadTask> FakeURLSession::uploadTask(
    URLRequest request, std::optional<platform::SharedData> body,
    platform::URLSessionCompletionHandler completionHandler) {
  request.httpBody = std::move(body);
  const platform::LockGuard lock(mutex_);
  return std::make_shared<Task>(shared_from_this(), ++madeCount_, std::move(request),
                                std::move(completionHandler));
}

void FakeURLSession::finishTasksAndInvalidate() {
  const platform::LockGuard lock(mutex_);
  isEnded_ = true;
}

void FakeURLSession::invalidateAndCancel() {
  std::vector<std::shared_ptr<Task>> tasks;
  {
    const platform::LockGuard lock(mutex_);
    isEnded_ = true;
    tasks = resumed_;
  }
  for (const auto& task : tasks) task->cancel();
}

void FakeURLSession::close() {
  invalidateAndCancel();
  queue_->sync([] {});
}

}  // namespace ombrix::testing
