#include "OmbrixPlatform/Values/NestedCalls.hpp"

#include <functional>
#include <list>

namespace ombrix::platform::detail {
namespace {

// A plain pointer: the destructors of other thread-local objects may still let things go.
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
    if (call) call();  // else there was no memory for it, and it was made at once
  }
  --depth_;
  delete std::exchange(waiting, nullptr);
}

}  // namespace ombrix::platform::detail
