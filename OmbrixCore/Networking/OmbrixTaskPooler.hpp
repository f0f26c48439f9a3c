#pragma once

#include <concepts>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>

#include "OmbrixCore/Concurrency/Publisher+Async.hpp"
#include "OmbrixCore/Networking/HTTPError.hpp"
#include "OmbrixPlatform/Concurrency/Serial.hpp"
#include "OmbrixPlatform/Concurrency/Task.hpp"
#include "OmbrixPlatform/Publishers/AnyPublisher.hpp"

namespace ombrix {

/// Runs one task for all who ask for the same thing at the same time: whoever asks for a key that
/// runs already waits for that result.
///
/// An actor: all operations may be called from any thread. Cancelling a caller's own task ends
/// neither the pooled task nor the caller's wait, and a task that never ends, such as one that
/// awaits the answer of an operation that was cancelled, keeps its key and its callers. To be able
/// to give up on such a request, start `asAsync(publisher)` as a task of your own, pool a closure
/// that awaits that, and cancel it.
template <class Result>
class OmbrixTaskPooler final {
 public:
  using Work = std::move_only_function<platform::Async<Result>()>;

  /// The result, or the exception, of the task that runs for the key; `task` starts, on the thread
  /// pool, when there is none.
  platform::Async<Result> run(Work task, std::string key) {
    return pool(state_, std::move(task), std::move(key));
  }

  /// The same for the first value of a publisher; throws its `HTTPError`.
  template <platform::Publisher Source>
    requires std::same_as<typename Source::Output, Result> &&
             std::same_as<typename Source::Failure, HTTPError>
  platform::Async<Result> run(Source publisher, std::string key) {
    auto task = [publisher = std::move(publisher)] { return asAsync(publisher); };
    return pool(state_, std::move(task), std::move(key));
  }

 private:
  // Outlives the pooler while a call is under way.
  struct State {
    platform::Serial serial;
    std::unordered_map<std::string, platform::Task<Result>> tasks;
  };

  static platform::Async<Result> pool(std::shared_ptr<State> state, Work task, std::string key) {
    bool isCreator = false;
    auto join = [&]() -> platform::Task<Result> {
      const auto running = state->tasks.find(key);
      if (running != state->tasks.end()) return running->second;
      isCreator = true;
      return state->tasks.emplace(key, platform::startTask(std::move(task))).first->second;
    };
    const auto pooled = co_await state->serial.run(join);
    std::exception_ptr failure;
    std::optional<Result> result;
    try {
      Result value = co_await pooled;
      result.emplace(std::move(value));
    } catch (...) {
      failure = std::current_exception();
    }
    if (isCreator) {
      auto leave = [&] { state->tasks.erase(key); };
      co_await state->serial.run(leave);
    }
    if (failure) std::rethrow_exception(failure);
    co_return std::move(*result);
  }

  const std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace ombrix
