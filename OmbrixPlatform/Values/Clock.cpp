#include "OmbrixPlatform/Values/Clock.hpp"

#include "OmbrixPlatform/Services.hpp"

namespace ombrix::platform {
namespace {

class SystemClock final : public Clock {
 public:
  Date now() const override { return std::chrono::system_clock::now(); }
  std::chrono::steady_clock::time_point steadyNow() const override {
    return std::chrono::steady_clock::now();
  }
};

}  // namespace

std::shared_ptr<Clock> makeSystemClock() { return std::make_shared<SystemClock>(); }

template <>
std::shared_ptr<Clock> makeDefault() {
  return makeSystemClock();
}

}  // namespace ombrix::platform
