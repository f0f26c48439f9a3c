#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Locks/Condition.hpp"
#include "OmbrixPlatform/Network/URLError.hpp"
#include "OmbrixPlatform/Network/URLSession.hpp"

namespace ombrix::testing {

/// A session without a network: it records requests and answers them by a rule, or task by task as
/// the test says. Like a real session's, its handlers run on the delegate queue. Any thread.
class FakeURLSession final : public platform::URLSession,
                             public std::enable_shared_from_this<FakeURLSession> {
  struct Passkey {};

 public:
  /// How a task ends: with an HTTP answer, with an answer that is not HTTP, or with an error.
  struct Answer {
    int status = 200;
    platform::HTTPHeaders headers = {};
    std::optional<std::string_view> body = std::nullopt;
    bool isHTTP = true;
    std::shared_ptr<const platform::Error> error = nullptr;

    static Answer failure(platform::URLError error);
  };
  /// The answer to a request; if empty, the task waits for `complete`.
  using Rule = std::function<std::optional<Answer>(const platform::URLRequest&)>;

  static std::shared_ptr<FakeURLSession> make(
      Rule rule = nullptr, const platform::URLSessionConfiguration& configuration = {},
      std::shared_ptr<platform::URLSessionDelegate> delegate = nullptr,
      std::shared_ptr<platform::DispatchQueue> delegateQueue = nullptr);
  FakeURLSession(Passkey, Rule rule, const platform::URLSessionConfiguration& configuration,
                 std::shared_ptr<platform::URLSessionDelegate> delegate,
                 std::shared_ptr<platform::DispatchQueue> delegateQueue);
  ~FakeURLSession() override;

  /// Completes a task, counted from 0 in the order of `resume`; waits until it was resumed.
  void complete(std::size_t index, Answer answer);

  /// The request of a resumed task; waits until it was resumed.
  platform::URLRequest request(std::size_t index);

  /// The number of tasks created so far, and of those resumed.
  [[nodiscard]] std::size_t madeCount() const;
  [[nodiscard]] std::size_t resumedCount() const;

  [[nodiscard]] const std::shared_ptr<platform::URLSessionDelegate>& delegate() const {
    return delegate_;
  }

  // URLSession
  const platform::URLSessionConfiguration& configuration() const override { return configuration_; }
  const std::shared_ptr<platform::DispatchQueue>& delegateQueue() const override { return queue_; }
  std::shared_ptr<platform::URLSessionDataTask> dataTask(
      platform::URLRequest request,
      platform::URLSessionCompletionHandler completionHandler) override;
  using URLSession::uploadTask;
  std::shared_ptr<platform::URLSessionUploadTask> uploadTask(
      platform::URLRequest request, std::optional<platform::SharedData> body,
      platform::URLSessionCompletionHandler completionHandler) override;
  void finishTasksAndInvalidate() override;
  void invalidateAndCancel() override;
  void close() override;

 private:
  class Task;

  std::shared_ptr<Task> taskAt(std::size_t index);
  void resumed(const std::shared_ptr<Task>& task);

  const Rule rule_;
  const platform::URLSessionConfiguration configuration_;
  const std::shared_ptr<platform::URLSessionDelegate> delegate_;
  const std::shared_ptr<platform::DispatchQueue> queue_;
  mutable platform::Mutex mutex_;
  platform::Condition added_;
  std::size_t madeCount_ OMBRIX_GUARDED_BY(mutex_) = 0;
  bool isEnded_ OMBRIX_GUARDED_BY(mutex_) = false;
  std::vector<std::shared_ptr<Task>> resumed_ OMBRIX_GUARDED_BY(mutex_);
};

/// Creates such sessions for the client under test, all with one rule.
///
///     auto sessions = std::make_shared<FakeURLSessionFactory>(rule);
///     ScopedService scoped(services().urlSessionFactory, sessions);
class FakeURLSessionFactory final : public platform::URLSessionFactory {
 public:
  explicit FakeURLSessionFactory(FakeURLSession::Rule rule = nullptr) : rule_(std::move(rule)) {}

  std::shared_ptr<platform::URLSession> make(
      const platform::URLSessionConfiguration& configuration,
      std::shared_ptr<platform::URLSessionDelegate> delegate,
      std::shared_ptr<platform::DispatchQueue> delegateQueue) override {
    auto session =
        FakeURLSession::make(rule_, configuration, std::move(delegate), std::move(delegateQueue));
    const platform::LockGuard lock(mutex_);
    sessions_.push_back(session);
    return session;
  }

  /// The sessions created so far, in order.
  [[nodiscard]] std::vector<std::shared_ptr<FakeURLSession>> sessions() const {
    const platform::LockGuard lock(mutex_);
    return sessions_;
  }

 private:
  const FakeURLSession::Rule rule_;
  mutable platform::Mutex mutex_;
  std::vector<std::shared_ptr<FakeURLSession>> sessions_ OMBRIX_GUARDED_BY(mutex_);
};

}  // namespace ombrix::testing
