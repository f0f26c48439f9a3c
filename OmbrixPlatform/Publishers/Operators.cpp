#include "OmbrixPlatform/Publishers/Operators.hpp"

namespace ombrix::platform::detail {

std::shared_ptr<Subscription> emptySubscription() {
  class EmptySubscription final : public Subscription {
    void request(Demand) override {}
    void cancel() override {}
  };
  return std::make_shared<EmptySubscription>();
}

}  // namespace ombrix::platform::detail
