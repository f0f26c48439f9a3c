#pragma once

#include <gtest/gtest.h>

#include <expected>
#include <memory>
#include <optional>
#include <utility>

#include "OmbrixCore/Concurrency/Publisher+Async.hpp"
#include "OmbrixTesting/FakeURLSession.hpp"
#include "OmbrixTesting/ManualPathMonitor.hpp"
#include "OmbrixTesting/RecordingLog.hpp"
#include "OmbrixTesting/ScopedDirectories.hpp"
#include "OmbrixTesting/ScopedLocale.hpp"
#include "OmbrixTesting/ScopedServerAPI.hpp"
#include "OmbrixTesting/ScopedService.hpp"

namespace ombrix {

/// Subscribes and waits for the first value or the failure.
template <class Output>
std::expected<Output, HTTPError> resultOf(
    const platform::AnyPublisher<Output, HTTPError>& publisher) {
  try {
    return asAsync(publisher).get();
  } catch (const HTTPError& error) {
    return std::unexpected(error);
  }
}

/// A client whose sessions answer by a rule that the test sets.
class ServerAPITest : public ::testing::Test {
 protected:
  using Answer = testing::FakeURLSession::Answer;
  using Rule = testing::FakeURLSession::Rule;
  using Method = OmbrixServerAPI::HTTPMethod;

  OmbrixServerAPI& client() { return api_.client(); }
  void answer(Answer answer) {
    rule_ = [answer](const auto&) { return answer; };
  }
  void answer(Rule rule) { rule_ = std::move(rule); }

  /// The session that the client uses.
  std::shared_ptr<testing::FakeURLSession> session() {
    return std::dynamic_pointer_cast<testing::FakeURLSession>(client().session());
  }

  /// Answers one request to the client's session and gives what its publisher makes of it.
  OmbrixServerAPI::Result<HTTPAnswer> run(Answer with) {
    answer(std::move(with));
    return resultOf(client().publisher("resorts"));
  }

  testing::RecordingLog log;
  testing::ScopedDirectories directories;
  std::shared_ptr<testing::ManualPathMonitorFactory> paths =
      std::make_shared<testing::ManualPathMonitorFactory>();

 private:
  Rule rule_;
  std::shared_ptr<testing::FakeURLSessionFactory> sessions_ =
      std::make_shared<testing::FakeURLSessionFactory>(
          [this](const platform::URLRequest& request) { return rule_(request); });
  testing::ScopedService<platform::URLSessionFactory> scopedSessions_{
      platform::services().urlSessionFactory, sessions_};
  testing::ScopedService<platform::NWPathMonitorFactory> scopedPaths_{
      platform::services().pathMonitorFactory, paths};
  testing::ScopedServerAPI api_;
};

}  // namespace ombrix
