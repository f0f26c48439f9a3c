#pragma once

#include <memory>
#include <optional>
#include <string>

#include "OmbrixCore/Networking/Requests/HTTPAnswer.hpp"
#include "OmbrixPlatform/Concurrency/Async.hpp"
#include "OmbrixPlatform/Concurrency/Task.hpp"

namespace ombrix {

class ServerRequests;

/// The lines of an answer's body, as they come; for answers that are long or never end. Move-only:
/// dropping it ends the request.
///
///     auto lines = api.lines("events");
///     for (;;) {
///       const auto line = co_await lines.next();
///       if (!line) break;
///       ...
///     }
///
/// Lines that are not taken hold the server back: at most about a MiB is kept here.
class HTTPLines {
 public:
  HTTPLines(HTTPLines&&) noexcept = default;
  HTTPLines& operator=(HTTPLines&& other) noexcept;
  ~HTTPLines();

  /// The next line, without its end ("\n" or "\r\n"); empty after the last one. Throws `HTTPError`
  /// where the request fails, after the lines that came before (a line of more than 1 MiB is such a
  /// failure); `CancellationError` when the awaiting task is cancelled, which ends the request. One
  /// call at a time.
  [[nodiscard]] platform::Async<std::optional<std::string>> next();

 private:
  friend class ServerRequests;
  class State;

  HTTPLines(std::shared_ptr<State> state, platform::Task<void> request);

  std::shared_ptr<State> state_;  // null when moved from
  platform::Task<void> request_;
};

}  // namespace ombrix
