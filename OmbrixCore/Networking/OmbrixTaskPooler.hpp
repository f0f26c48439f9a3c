#pragma once

#include <concepts>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <variant>

#include "OmbrixCore/Concurrency/Publisher+Async.hpp"
#include "OmbrixCore/Networking/Errors/HTTPError.hpp"
#include "OmbrixPlatform/Concurrency/Serial.hpp"
#include "OmbrixPlatform/Concurrency/Task.hpp"
#include "OmbrixPlatform/Publishers/AnyPublisher.hpp"

namespace ombrix {

/// Runs one task for all callers that ask for the same key at the same time: a caller whose key has
/// a running task waits for that task's result.
///
/// An actor: all operations may be called from any thread. Cancelling a caller's own task ends that
/// caller's wait at once, not the pooled task, which keeps its key until it is over.
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
    // Called once; from then on only its source may still answer.
    auto task = [publisher = std::move(publisher)]() mutable {
      return asAsync(std::move(publisher));
    };
    return pool(state_, std::move(task), std::move(key));
  }

 private:
  // Outlives the pooler while a call is under way.
  struct State {
    platform::Serial serial;
    std::unordered_map<std::string, platform::Task<Result>> tasks;
  };

  static platform::Async<Result> pool(std::shared_ptr<State> state, Work task, std::string key) {
    auto join = [&]() -> platform::Task<Result> {
      const auto running = state->tasks.find(key);
      if (running != state->tasks.end()) return running->second;
      auto work = [state, task = std::move(task), key]() mutable {
        return finish(std::move(state), std::move(task), std::move(key));
      };
      return state->tasks.emplace(key, platform::startTask(std::move(work))).first->second;
    };
    const auto pooled = co_await state->serial.run(join);
    if constexpr (std::is_void_v<Result>) {
      co_await pooled;
    } else {
      Result value = co_await pooled;
      co_return value;
    }
  }

  // The pooled task itself frees its key before any caller hears of its end: every caller may have
  // gone by then.
  static platform::Async<Result> finish(std::shared_ptr<State> state, Work task, std::string key) {
    std::exception_ptr failure;
    std::optional<std::conditional_t<std::is_void_v<Result>, std::monostate, Result>> result;
    try {
      auto work = task();
      if constexpr (std::is_void_v<Result>) {
        co_await std::move(work);
      } else {
        Result value = co_await std::move(work);
        result.emplace(std::move(value));
      }
    } catch (...) {
      failure = std::current_exception();
    }
    auto leave = [&] { state->tasks.erase(key); };
    co_await state->serial.run(leave);
    if (failure) std::rethrow_exception(failure);
    if constexpr (!std::is_void_v<Result>) co_return std::move(*result);
  }

  const std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace ombrix
