#pragma once

#include <memory>
#include <utility>

namespace ombrix::platform {

namespace detail {

/// What a token ends: one registered handler, or anything else that can be stopped once.
class Observation {
 public:
  virtual ~Observation() = default;

  /// Ends the observation; called once. Returns when no call of the handler is running, except
  /// calls further up this thread's own stack.
  virtual void cancel() noexcept = 0;
};

}  // namespace detail

/// Keeps an observation alive; destroying it ends the observation.
///
/// After the destructor (or `cancel`) has returned, no later call of the handler starts on any
/// thread, calls on other threads have ended, and the handler's captures are destroyed. Destroying
/// a token inside its own handler does not deadlock; the captures then live until that call
/// returns. Do not destroy a token while holding a lock that its handler takes, and do not let two
/// handlers on two threads end each other.
///
/// A token may be destroyed on any thread and may outlive what it observes.
class [[nodiscard]] ObservationToken {
 public:
  ObservationToken() = default;
  explicit ObservationToken(std::shared_ptr<detail::Observation> observation) noexcept
      : observation_(std::move(observation)) {}
  ObservationToken(ObservationToken&& other) noexcept = default;
  ObservationToken& operator=(ObservationToken&& other) noexcept {
    if (this != &other) {
      cancel();
      observation_ = std::move(other.observation_);
    }
    return *this;
  }
  ~ObservationToken() { cancel(); }

  /// Ends the observation now; a second call does nothing.
  void cancel() noexcept {
    if (const auto observation = std::move(observation_)) observation->cancel();
  }

  /// Keeps the observation for the lifetime of its subject; the token becomes empty.
  void detach() noexcept { observation_.reset(); }

  /// Whether the token still holds an observation.
  explicit operator bool() const noexcept { return observation_ != nullptr; }

 private:
  std::shared_ptr<detail::Observation> observation_;
};

}  // namespace ombrix::platform
