#include "OmbrixCore/Concurrency/DispatchQueue+Throttle.hpp"

#include <unordered_map>

#include "OmbrixPlatform/Concurrency/Events.hpp"
#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixPlatform/Values/Clock.hpp"

namespace ombrix {
namespace {

using TimePoint = std::chrono::steady_clock::time_point;
using Context = std::optional<DispatchContext>;

struct ContextHash {
  std::size_t operator()(const Context& context) const { return context ? context->hash() : 0; }
};

struct Debounced {
  platform::EventToken timer;
  platform::Job action;
  std::shared_ptr<platform::DispatchQueue> queue;
  std::size_t generation = 0;
};

// The tables of the whole process. An entry goes when its time has come.
struct Tables {
  platform::Mutex mutex;
  std::unordered_map<Context, TimePoint, ContextHash> throttled OMBRIX_GUARDED_BY(mutex);
  std::unordered_map<Context, Debounced, ContextHash> debounced OMBRIX_GUARDED_BY(mutex);
  std::size_t generations OMBRIX_GUARDED_BY(mutex) = 0;
};

Tables& tables() {
  static Tables& instance = *new Tables;
  return instance;
}

void forgetThrottled(const Context& context, TimePoint deadline) {
  const platform::LockGuard lock(tables().mutex);
  const auto entry = tables().throttled.find(context);
  if (entry != tables().throttled.end() && entry->second == deadline) {
    tables().throttled.erase(entry);
  }
}

void runDebounced(const Context& context, std::size_t generation) {
  Debounced due;
  {
    const platform::LockGuard lock(tables().mutex);
    const auto entry = tables().debounced.find(context);
    if (entry == tables().debounced.end() || entry->second.generation != generation) return;
    due = std::move(entry->second);
    tables().debounced.erase(entry);
  }
  due.queue->async(std::move(due.action));
}

}  // namespace

void throttle(platform::DispatchQueue& queue, TimePoint deadline, const Context& context,
              platform::Job action) {
  const auto now = platform::services().clock.get().steadyNow();
  if (now < deadline) {
    {
      const platform::LockGuard lock(tables().mutex);
      const auto [entry, isNew] = tables().throttled.try_emplace(context, deadline);
      if (!isNew && now < entry->second) return;
      entry->second = deadline;
    }
    platform::afterUncancellably(deadline,
                                 [context, deadline] { forgetThrottled(context, deadline); });
  } else {
    const platform::LockGuard lock(tables().mutex);
    const auto entry = tables().throttled.find(context);
    if (entry != tables().throttled.end() && now < entry->second) return;
  }
  queue.async(std::move(action));
}

void debounce(platform::DispatchQueue& queue, std::chrono::duration<double> interval,
              const Context& context, platform::Job action) {
  // A replaced timer is destroyed outside the lock, since that waits for its handler.
  Debounced replaced;
  std::size_t generation = 0;
  {
    const platform::LockGuard lock(tables().mutex);
    generation = ++tables().generations;
    auto& entry = tables().debounced[context];
    replaced = std::exchange(
        entry, Debounced{{}, std::move(action), queue.shared_from_this(), generation});
  }
  auto timer =
      platform::after(interval, [context, generation] { runDebounced(context, generation); });
  const platform::LockGuard lock(tables().mutex);
  const auto entry = tables().debounced.find(context);
  if (entry != tables().debounced.end() && entry->second.generation == generation) {
    entry->second.timer = std::move(timer);
  }
}

}  // namespace ombrix
