#pragma once

#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "OmbrixPlatform/Network/URLError.hpp"
#include "OmbrixPlatform/Network/URLSession.hpp"

namespace ombrix::testing {

/// What a task's completion handler was given.
struct Outcome {
  std::optional<platform::Data> data;
  std::shared_ptr<const platform::HTTPURLResponse> response;
  std::shared_ptr<const platform::Error> error;

  [[nodiscard]] int status() const { return response ? response->statusCode() : 0; }
  [[nodiscard]] std::string text() const {
    return data ? std::string(platform::textOf(*data)) : std::string();
  }
  /// The code of a `URLError`; nothing without an error.
  [[nodiscard]] std::optional<platform::URLError::Code> code() const {
    const auto urlError = std::dynamic_pointer_cast<const platform::URLError>(error);
    return urlError ? std::optional(urlError->code()) : std::nullopt;
  }
  /// "200 body" or "error -1001".
  [[nodiscard]] std::string summary() const {
    if (error && (data || response)) return "an error and an answer";
    if (error)
      return "error " +
             std::to_string(static_cast<int>(code().value_or(platform::URLError::Code::unknown)));
    return std::to_string(status()) + " " + text();
  }
};

/// A task and the outcome it will have.
struct RunningTask {
  std::shared_ptr<platform::URLSessionDataTask> task;
  std::future<Outcome> future;

  /// Waits for the outcome; a minute is for ever here.
  Outcome outcome() {
    if (future.wait_for(std::chrono::minutes(1)) != std::future_status::ready) {
      return {.error = std::make_shared<const platform::Error>("no outcome came")};
    }
    return future.get();
  }
};

/// The threads of the sessions of this process, by their folders in /proc.
inline std::set<std::filesystem::path> threadsOfSessions() {
  std::set<std::filesystem::path> threads;
  std::error_code gone;  // threads end while they are listed
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task", gone)) {
    std::string name;
    std::getline(std::ifstream(entry.path() / "comm") >> std::ws, name);
    if (name == "URLSession") threads.insert(entry.path());
  }
  return threads;
}

/// How many sessions of this process have a thread.
inline std::size_t networkThreads() { return threadsOfSessions().size(); }

inline platform::URLRequest requestTo(const std::string& url) {
  return platform::URLRequest(platform::URL::parse(url).value());
}

/// Makes a task, not yet resumed.
inline RunningTask prepare(platform::URLSession& session, platform::URLRequest request) {
  auto promise = std::make_shared<std::promise<Outcome>>();
  auto future = promise->get_future();
  auto task = session.dataTask(
      std::move(request), [promise](std::optional<platform::Data> data,
                                    std::shared_ptr<const platform::URLResponse> response,
                                    std::shared_ptr<const platform::Error> error) {
        promise->set_value(
            {std::move(data),
             std::dynamic_pointer_cast<const platform::HTTPURLResponse>(std::move(response)),
             std::move(error)});
      });
  return {std::move(task), std::move(future)};
}

inline RunningTask start(platform::URLSession& session, platform::URLRequest request) {
  RunningTask running = prepare(session, std::move(request));
  running.task->resume();
  return running;
}

inline Outcome fetch(platform::URLSession& session, platform::URLRequest request) {
  return start(session, std::move(request)).outcome();
}

}  // namespace ombrix::testing
