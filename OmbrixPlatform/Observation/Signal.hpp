#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

#include "OmbrixPlatform/Observation/ObservationToken.hpp"
#include "OmbrixPlatform/Observation/ObserverList.hpp"
#include "OmbrixPlatform/Values/CallOut.hpp"

namespace ombrix::platform {

/// A typed notification: every connected handler is called on each `send`.
///
///     Signal<const std::string&> renamed;
///     auto token = renamed.connect([](const std::string& name) { … });
///     renamed.send("new");
///
/// Guarantees:
/// - Handlers run one after the other in the order of connection, on the thread that sends, without
///   a lock. Several threads that send at once may run one handler at the same time.
/// - Handlers may be connected and ended at any time, also inside a handler. A handler that is
///   connected during a round is first called in the next round; a handler that is ended during a
///   round before its turn is skipped.
/// - Ending a connection: see `ObservationToken`.
/// - A handler must not throw: an exception that leaves it stops the program with its text.
///
/// A signal costs one pointer until the first handler is connected. It may be destroyed inside one
/// of its handlers; the round still reaches the remaining handlers. Arguments that are passed by
/// value are copied for each handler.
template <class... Args>
class Signal {
  static_assert((!std::is_rvalue_reference_v<Args> && ...), "several handlers share an argument");

 public:
  using Handler = std::move_only_function<void(Args...)>;

  constexpr Signal() noexcept = default;
  Signal(const Signal&) = delete;
  Signal& operator=(const Signal&) = delete;
  ~Signal() {
    if (auto* list = list_.load(std::memory_order_acquire)) list->self.reset();
  }

  /// Calls the handler on every later `send` until the token is destroyed. Any thread.
  ObservationToken connect(Handler handler) {
    auto slot = std::make_shared<Slot>(std::move(handler));
    list().add(slot);
    return ObservationToken(std::move(slot));
  }

  /// Calls every handler that is connected now. Any thread.
  void send(Args... args) const {
    if (!hasObservers()) return;
    const detail::ObserverList::Round round(*list_.load(std::memory_order_acquire));
    for (const auto& observer : round) {
      if (const detail::ObserverCall call{*observer}) {
        callOut("a handler of a signal", [&] { static_cast<Slot&>(*observer).handler(args...); });
      }
    }
  }

  /// Whether any handler is connected. Any thread.
  [[nodiscard]] bool hasObservers() const noexcept {
    const auto* list = list_.load(std::memory_order_acquire);
    return list != nullptr && !list->empty();
  }

 private:
  struct Slot final : detail::Observer {
    explicit Slot(Handler connected) : handler(std::move(connected)) {}
    void releaseHandler() noexcept override { handler = nullptr; }
    Handler handler;
  };

  /// Owns itself until the signal releases it, so that the signal is a single atomic pointer.
  struct List final : detail::ObserverList {
    std::shared_ptr<List> self;
  };

  List& list() {
    if (auto* made = list_.load(std::memory_order_acquire)) return *made;
    auto fresh = std::make_shared<List>();
    List* expected = nullptr;
    fresh->self = fresh;
    if (list_.compare_exchange_strong(expected, fresh.get(), std::memory_order_acq_rel)) {
      return *fresh;
    }
    fresh->self.reset();
    return *expected;
  }

  std::atomic<List*> list_{nullptr};
};

}  // namespace ombrix::platform
