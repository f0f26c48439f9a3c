#pragma once

#include <atomic>
#include <coroutine>
#include <cstdint>
#include <memory>
#include <type_traits>

#include "OmbrixPlatform/Concurrency/TaskContext.hpp"

namespace ombrix::platform {

/// Where the sections of an actor may run.
enum class SectionPlace : std::uint8_t {
  anywhere,      ///< at once on the calling thread when no other section runs
  offMainQueue,  ///< the same, but never on the main queue: for slow work
};

/// The executor of an actor: its sections and jobs run one at a time, in the order of arrival.
///
/// A section is a plain closure without a suspension inside. It runs at once when no other section
/// runs or waits; otherwise it is queued, and the coroutine continues afterwards through its own
/// executor. Nothing is held across a suspension.
///
///     auto section = [&] { return items_.size(); };
///     auto count = co_await serial_.run(section);
///
/// Any thread. Running work keeps the state of the executor alive, but not the actor.
class Serial final : public Executor {
 public:
  explicit Serial(SectionPlace place = SectionPlace::anywhere);
  ~Serial() override;
  Serial(const Serial&) = delete;
  Serial& operator=(const Serial&) = delete;

  /// Runs a job on the thread pool when its turn comes.
  void post(Job job) override;

  /// Awaitable: runs a named closure as a section and returns its result or throws its exception.
  template <class Section>
  auto run(Section& section) {
    return SectionAwaiter<Section>(*this, section);
  }

  /// Whether the calling code is inside a section or job of this executor.
  [[nodiscard]] bool isCurrent() const noexcept;

  /// Whether the calling thread is inside a section or job of any actor.
  [[nodiscard]] static bool isInsideAny() noexcept;

 private:
  struct State;

  template <class Section>
  struct SectionAwaiter {
    using T = std::invoke_result_t<Section&>;

    SectionAwaiter(Serial& executor, Section& body) : serial(executor), section(body) {}

    Serial& serial;
    Section& section;
    detail::Outcome<T> outcome;

    bool await_ready() {
      if (!serial.enter()) return false;
      State* const state = serial.state_.get();  // the section may drop the actor's last owner
      std::atomic<std::uint32_t>* const word = serial.word_;
      {
        const Inside inside(word);
        detail::runInto(outcome, section);
      }
      leave(state, word);
      return true;
    }
    template <detail::HasTaskContext Parent>
    void await_suspend(std::coroutine_handle<Parent> parent) {
      serial.post([this, parent, executor = parent.promise().context().executor] {
        detail::runInto(outcome, section);
        executor->post(detail::ResumeJob(parent));
      });
    }
    T await_resume() { return outcome.take(); }
  };

  // Marks the calling thread as inside, for the checks of blocking waits.
  class Inside {
   public:
    explicit Inside(const void* identity) noexcept;
    ~Inside();
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;

   private:
    friend class Serial;
    const void* identity_;
    const Inside* outer_;
  };

  static constexpr std::uint32_t kIdle = 0;
  static constexpr std::uint32_t kInside = 1;
  static constexpr std::uint32_t kQueued = 2;  // a section runs or is about to, and more wait

  bool enter() noexcept {
    if (place_ == SectionPlace::offMainQueue && isOnMainQueue()) return false;
    std::uint32_t idle = kIdle;
    return word_->compare_exchange_strong(idle, kInside, std::memory_order_acquire,
                                          std::memory_order_relaxed);
  }
  static void leave(State* state, std::atomic<std::uint32_t>* word) noexcept {
    std::uint32_t inside = kInside;
    if (!word->compare_exchange_strong(inside, kIdle, std::memory_order_release,
                                       std::memory_order_relaxed)) {
      scheduleDrain(*state);
    }
  }
  static bool isOnMainQueue() noexcept;
  static void scheduleDrain(State& state);

  const std::shared_ptr<State> state_;
  std::atomic<std::uint32_t>* const word_;  // inside the state
  const SectionPlace place_;
};

}  // namespace ombrix::platform
