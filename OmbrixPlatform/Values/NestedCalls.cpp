#include "OmbrixPlatform/Values/NestedCalls.hpp"

#include <functional>
#include <list>

namespace ombrix::platform::detail {
namespace {

// A plain pointer: destructors of other thread-local objects may still make such calls.
constinit thread_local std::list<std::move_only_function<void()>>* waiting = nullptr;

}  // namespace

NestedCalls::Job& NestedCalls::makePlace() {
  if (!waiting) waiting = new std::list<Job>;
  return waiting->emplace_back();
}

void NestedCalls::makeThosePutOff() noexcept {
  if (!waiting) return;
  ++depth_;
  while (!waiting->empty()) {
    Job call = std::move(waiting->front());
    waiting->pop_front();
    if (call) call();  // empty if there was no memory to postpone it: it ran at once
  }
  --depth_;
  delete std::exchange(waiting, nullptr);
}

}  // namespace ombrix::platform::detail
